#include "faults/fault_plan.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>

namespace test_support {

const std::array<IoFault, kIoFaults>& IoFaults() {
    static const std::array<IoFault, kIoFaults> faults = {{
        {"failing", [](CallKind) { return true; }, [](const Call&) { return Fate::Failing(EIO); }},
        {"interrupted", [](CallKind kind) { return kind != CallKind::Seek; },
         [](const Call&) { return Fate::Failing(EINTR); }},
        {"a byte short", [](CallKind kind) { return kind == CallKind::Read; },
         [](const Call& call) { return Fate::Shortened(call.length == 0 ? 0 : call.length - 1); }},
        {"one byte long", [](CallKind kind) { return kind == CallKind::Read; },
         [](const Call& call) { return Fate::Shortened(call.length > 1 ? 1 : 0); }},
        {"half", [](CallKind kind) { return kind == CallKind::Read; },
         [](const Call& call) { return Fate::Shortened(call.length / 2); }},
        {"empty", [](CallKind kind) { return kind == CallKind::Read; },
         [](const Call&) { return Fate::Shortened(0); }},
        {"without a device", [](CallKind kind) { return kind == CallKind::Open; },
         [](const Call&) { return Fate::Failing(ENOENT); }},
        {"without a descriptor", [](CallKind kind) { return kind == CallKind::Open; },
         [](const Call&) { return Fate::Failing(EMFILE); }},
    }};
    return faults;
}

FaultPlan::FaultPlan(const IoFault* fault, const Strike& strike) : m_fault(fault), m_strike(strike) {
    m_calls.reserve(kEndless); // noting a call must not allocate: allocations may fail at that time
}

Fate FaultPlan::Decide(const Call& call) {
    if (++m_allCalls > kEndless) {
        std::fprintf(stderr, "a scenario does not end: struck at call %zu by %s\n", m_strike.position,
                     m_fault == nullptr ? "nothing" : m_fault->name);
        std::abort();
    }
    Fate fate = Fate::Skipped(); // flushes would wait for the host's disk each time
    if (m_armed) {
        const size_t index = m_calls.size();
        m_calls.push_back(call.kind);
        if (m_fault != nullptr && m_strike.Hits(index) && m_fault->fits(call.kind)) {
            fate = m_fault->fate(call);
            ++m_struck;
        }
    }
    if (call.kind == CallKind::Open && fate.kind != Fate::Fail) {
        ++m_open;
    } else if (call.kind == CallKind::Close) {
        --m_open; // a descriptor is gone even when close reports a failure
    }
    return fate;
}

} // namespace test_support
