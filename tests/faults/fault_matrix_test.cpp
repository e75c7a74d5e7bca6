// Every system call and every allocation of every scenario failing, each in turn: nothing crashes, hangs or is
// lost, results stay within what the interface promises, and once the fault has gone the results are those of an
// undisturbed run.
//
// DISKACCESS_FAULT_STRIDE=n in the environment takes one place of n, 1 all of them.

#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <sstream>

#include "faults/fault_plan.h"
#include "faults/scenario.h"
#include "support/allocations.h"
#include "support/printed.h"
#include "support/temp_dir.h"

namespace {

using namespace test_support;

/// Allocations that are made to fail for each failing system call.
constexpr size_t kPairsACall = 4;

/// Counts what the tests did, to be printed if asked for.
struct Tally {
    size_t scenarios = 0;
    std::array<size_t, kIoFaults> calls = {};
    size_t allocations = 0;
    size_t pairs = 0;
};
Tally g_tally;

class TallyPrinter : public ::testing::Environment {
public:
    void TearDown() override {
        if (g_tally.scenarios == 0) {
            return;
        }
        std::printf("scenarios: %zu\n", g_tally.scenarios);
        for (size_t i = 0; i < kIoFaults; ++i) {
            std::printf("runs with calls %s: %zu\n", IoFaults()[i].name, g_tally.calls[i]);
        }
        std::printf("runs with failing allocations: %zu\n", g_tally.allocations);
        std::printf("runs with both: %zu\n", g_tally.pairs);
    }
};
[[maybe_unused]] const auto* const g_printer = ::testing::AddGlobalTestEnvironment(new TallyPrinter);

size_t Stride() {
    const char* const stride = std::getenv("DISKACCESS_FAULT_STRIDE");
    const size_t stated = stride == nullptr ? FAULT_STRIDE : std::strtoul(stride, nullptr, 10);
    return stated == 0 ? 1 : stated;
}

/// What is to fail in a run: system calls, allocations, or both.
struct Disturbance {
    const IoFault* fault = nullptr;
    Strike call;
    Strike allocation;

    std::string Description() const {
        std::ostringstream text;
        if (fault != nullptr) {
            text << "call " << call.position << (call.forever ? " and on " : " ") << fault->name << "; ";
        }
        if (allocation.position != Strike::kNever) {
            text << "allocation " << allocation.position << (allocation.forever ? " and on" : "");
        }
        return text.str();
    }
};

/// One run of a scenario: work that may be disturbed, work on the same object after that, closing that may be
/// disturbed, and work on the object opened again.
struct Outcome {
    Transcript disturbed;
    Transcript after;
    Transcript again;
    bool opened = false;
    bool struckInOpen = false;
    bool openedAnew = false;
    long leaked = 0;
    long descriptorsLeft = 0;
    std::vector<CallKind> calls;
    size_t struckCalls = 0;
    size_t allCalls = 0;
    size_t allocations = 0;
    bool struckAllocation = false;
};

class FaultMatrix : public ::testing::TestWithParam<size_t> {
protected:
    const ScenarioEntry& Entry() const { return Scenarios()[GetParam()]; }

    void SetUp() override {
        setenv("TZ", "UTC", 1);
        m_path = m_dir.File("disk");
        m_access = MakeMedium(Entry().medium, m_path).Access();
        RunWith({}, m_undisturbed);
        ++g_tally.scenarios;
    }

    void RunWith(const Disturbance& disturbance, Outcome& run) {
        FaultPlan plan(disturbance.fault, disturbance.call);
        m_plan = &plan;
        m_log.Clear();
        Quietly([&] {
            const std::unique_ptr<Scenario> scenario = Entry().make();
            const long held = AllocationsHeld();
            RunScenario(*scenario, plan, disturbance.allocation, run);
            run.leaked = AllocationsHeld() - held;
        });
        m_plan = nullptr;
        run.calls = plan.Calls();
        run.struckCalls = plan.Struck();
        run.allCalls = plan.AllCalls();
        run.descriptorsLeft = plan.Open();
    }

    /// Runs, and checks all that must hold whatever failed.
    const Outcome& Check(const Disturbance& disturbance) {
        RunWith(disturbance, m_run);
        std::ostringstream wrong;
        if (m_run.leaked != 0) {
            wrong << m_run.leaked << " allocations left. ";
        }
        if (m_run.descriptorsLeft != 0) {
            wrong << m_run.descriptorsLeft << " descriptors left. ";
        }
        if (m_run.allCalls > 4 * m_undisturbed.allCalls + 100) {
            wrong << m_run.allCalls << " calls. ";
        }
        for (const Transcript* const transcript : {&m_run.disturbed, &m_run.after, &m_run.again}) {
            if (transcript->Broken() != nullptr) {
                wrong << "not so: " << transcript->Broken() << ":\n" << transcript->Text();
            }
        }
        const bool comparable =
            m_run.opened && !m_run.struckInOpen && Entry().recovery == Recovery::SameObject;
        if (comparable) {
            Compare("on the same object", m_run.after, m_undisturbed.after, wrong);
        }
        if (!m_run.openedAnew) {
            wrong << "does not open again. ";
        }
        Compare("opened again", m_run.again, m_undisturbed.again, wrong);
        if (!wrong.str().empty()) {
            ADD_FAILURE() << disturbance.Description() << ": " << wrong.str();
        }
        return m_run;
    }

    /// Whether the next place is one of those taken.
    bool Taken() { return m_stride == 1 || m_random() % m_stride == 0; }

    void FailEachCall() {
        for (size_t kind = 0; kind < kIoFaults; ++kind) {
            for (const bool forever : {false, true}) {
                for (size_t position = 0; position < m_undisturbed.calls.size() && !HasFailure();
                     ++position) {
                    if (Fits(kind, position) && Taken()) {
                        const Disturbance disturbance = {&IoFaults()[kind], {position, forever}, {}};
                        const Outcome& run = Check(disturbance);
                        g_tally.calls[kind] += run.struckCalls != 0 ? 1u : 0u;
                        FailAllocationsToo(disturbance, run.allocations);
                    }
                }
            }
        }
    }

    /// The calls of an undisturbed run are those of any other up to the one that fails.
    bool Fits(size_t kind, size_t position) const {
        return IoFaults()[kind].fits(m_undisturbed.calls[position]);
    }

    void FailAllocationsToo(Disturbance disturbance, size_t allocations) {
        for (size_t i = 0; i < kPairsACall && allocations != 0; ++i) {
            disturbance.allocation = {m_random() % allocations, i == 0};
            g_tally.pairs += Check(disturbance).struckAllocation ? 1u : 0u;
        }
    }

    void FailEachAllocation() {
        for (const bool forever : {false, true}) {
            // A failure may lead to others being asked for: on to the first that is not met any more.
            for (size_t position = 0;; ++position) {
                if (position < m_undisturbed.allocations && !Taken()) {
                    continue;
                }
                if (!Check({nullptr, {}, {position, forever}}).struckAllocation || HasFailure()) {
                    break;
                }
                ++g_tally.allocations;
            }
        }
    }

    void ExpectTheUndisturbedRunToSucceed() const {
        EXPECT_TRUE(m_undisturbed.opened && m_undisturbed.openedAnew);
        EXPECT_EQ(m_undisturbed.disturbed.Broken(), nullptr) << m_undisturbed.disturbed.Broken();
        EXPECT_EQ(m_undisturbed.leaked, 0);
        EXPECT_EQ(m_undisturbed.descriptorsLeft, 0);
        EXPECT_FALSE(m_undisturbed.calls.empty());
        if (std::getenv("DISKACCESS_FAULT_TRANSCRIPTS") != nullptr) {
            std::printf("%zu calls, %zu allocations\n%s", m_undisturbed.calls.size(),
                        m_undisturbed.allocations, m_undisturbed.disturbed.Text());
        }
    }

private:
    void RunScenario(Scenario& scenario, FaultPlan& plan, const Strike& allocation, Outcome& run) {
        for (Transcript* const transcript : {&run.disturbed, &run.after, &run.again}) {
            transcript->Clear();
        }
        {
            AllocationFaults faults(allocation.position, allocation.forever);
            plan.Arm(true);
            run.opened = scenario.Open(m_access);
            run.struckInOpen = plan.Struck() != 0 || faults.Count() > allocation.position;
            scenario.Work(run.disturbed);
            plan.Arm(false);
            run.allocations = faults.Count();
            run.struckAllocation = faults.Count() > allocation.position;
        }
        scenario.Work(run.after);
        plan.Arm(true);
        scenario.Close();
        plan.Arm(false);
        run.openedAnew = scenario.Open(m_access);
        scenario.Work(run.again);
        scenario.Close();
    }

    static void Compare(const char* when, const Transcript& is, const Transcript& was, std::ostream& wrong) {
        if (std::string(is.Text()) != was.Text()) {
            wrong << when << ", not the results of an undisturbed run:\n"
                  << is.Text() << "instead of\n"
                  << was.Text();
        }
    }

    TempDir m_dir;
    std::string m_path;
    PartAccess_t m_access = {};
    FaultPlan* m_plan = nullptr;
    BlockDeviceGuise m_guise;
    SystemCallLog m_log{
        [this](const Call& call, size_t) { return m_plan != nullptr ? m_plan->Decide(call) : Fate(); }};
    Outcome m_undisturbed;
    Outcome m_run;
    size_t m_stride = Stride();
    std::mt19937 m_random{20240229};
};

TEST_P(FaultMatrix, EveryFailureStaysWithinBounds) {
    ExpectTheUndisturbedRunToSucceed();
    FailEachCall();
    FailEachAllocation();
}

std::string NameOf(const ::testing::TestParamInfo<size_t>& info) {
    return Scenarios()[info.param].name;
}

INSTANTIATE_TEST_SUITE_P(Of, FaultMatrix, ::testing::Range(size_t{0}, Scenarios().size()), NameOf);

} // namespace
