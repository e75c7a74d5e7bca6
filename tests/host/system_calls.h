#ifndef TESTS_HOST_SYSTEM_CALLS_H
#define TESTS_HOST_SYSTEM_CALLS_H

/// @file system_calls.h
/// Watches the calls that the library makes on a device, and makes them fail. For programs that link the library's
/// objects: nothing of the seam between library and host is exported.

#include <functional>
#include <vector>

#include "host/call_watch.h"
#include "host/size_answers.h"

namespace test_support {

/// Records the calls made while it lives.
class SystemCallLog : public CallWatch<> {
public:
    SystemCallLog();
    /// Also asks @p decide what becomes of each call. The index counts the calls from 0.
    explicit SystemCallLog(std::function<Fate(const Call&, size_t index)> decide);

    const std::vector<Call>& Calls() const { return m_calls; }
    size_t Count(CallKind kind) const;
    void Clear() { m_calls.clear(); }

protected:
    Fate Decide(const Call& call) override;

private:
    std::function<Fate(const Call&, size_t)> m_decide;
    std::vector<Call> m_calls;
};

} // namespace test_support

#endif // TESTS_HOST_SYSTEM_CALLS_H
