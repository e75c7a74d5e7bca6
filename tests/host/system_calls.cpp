#include "host/system_calls.h"

#include <algorithm>
#include <utility>

namespace test_support {

SystemCallLog::SystemCallLog() : SystemCallLog([](const Call&, size_t) { return Fate(); }) {}

SystemCallLog::SystemCallLog(std::function<Fate(const Call&, size_t)> decide) : m_decide(std::move(decide)) {
    m_calls.reserve(0x10000); // noting a call must not allocate: allocations may fail at that time
}

size_t SystemCallLog::Count(CallKind kind) const {
    return static_cast<size_t>(std::count_if(m_calls.begin(), m_calls.end(),
                                             [kind](const Call& call) { return call.kind == kind; }));
}

Fate SystemCallLog::Decide(const Call& call) {
    m_calls.push_back(call);
    return m_decide(call, m_calls.size() - 1);
}

} // namespace test_support
