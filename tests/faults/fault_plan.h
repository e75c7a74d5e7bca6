#ifndef TESTS_FAULTS_FAULT_PLAN_H
#define TESTS_FAULTS_FAULT_PLAN_H

/// @file fault_plan.h
/// Which system calls of a run fail, and how.

#include <array>
#include <cstddef>
#include <vector>

#include "host/system_calls.h"

namespace test_support {

/// A way in which system calls fail.
struct IoFault {
    const char* name;
    bool (*fits)(CallKind kind);
    Fate (*fate)(const Call& call);
};

constexpr size_t kIoFaults = 8;
const std::array<IoFault, kIoFaults>& IoFaults();

/// Decides on the calls of one run, and keeps its books. Only calls made while it is armed are counted, and fail.
class FaultPlan {
public:
    /// More calls in one run than any scenario can have reason for.
    static constexpr size_t kEndless = 0x2000;

    /// @param fault null when no call is to fail
    FaultPlan(const IoFault* fault, const Strike& strike);

    void Arm(bool armed) { m_armed = armed; }
    /// Ends the test program when the run does not end.
    Fate Decide(const Call& call);

    /// Calls while armed, and how many of them were struck.
    const std::vector<CallKind>& Calls() const { return m_calls; }
    size_t Struck() const { return m_struck; }
    /// Calls of any time.
    size_t AllCalls() const { return m_allCalls; }
    /// Descriptors opened less those closed.
    long Open() const { return m_open; }

private:
    const IoFault* m_fault;
    Strike m_strike;
    bool m_armed = false;
    std::vector<CallKind> m_calls;
    size_t m_struck = 0;
    size_t m_allCalls = 0;
    long m_open = 0;
};

} // namespace test_support

#endif // TESTS_FAULTS_FAULT_PLAN_H
