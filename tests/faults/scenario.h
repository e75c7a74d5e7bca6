#ifndef TESTS_FAULTS_SCENARIO_H
#define TESTS_FAULTS_SCENARIO_H

/// @file scenario.h
/// Everything that the library does, as short scripts of calls that can be run again and again with something
/// failing in them.

#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "disk_access.h"
#include "faults/media.h"
#include "faults/transcript.h"

namespace test_support {

/// An object, and work for it.
class Scenario {
public:
    virtual ~Scenario() = default;
    /// Opens the object, which is the same one after Close().
    /// @return whether it is open
    virtual bool Open(PartAccess_t& access) = 0;
    virtual void Work(Transcript& transcript) = 0;
    virtual void Close() = 0;
};

/// What gives the undisturbed results again once the fault has gone: the same open object, or, since a fault
/// may leave an entry of an index made from frames out, that object after it was opened again.
enum class Recovery { SameObject, Reopened };

struct ScenarioEntry {
    const char* name;
    Medium medium;
    std::function<std::unique_ptr<Scenario>()> make;
    Recovery recovery = Recovery::SameObject;
};

std::vector<ScenarioEntry> SearchScenarios();
std::vector<ScenarioEntry> PlaybackScenarios();
std::vector<ScenarioEntry> DeviceScenarios();
/// All of them.
const std::vector<ScenarioEntry>& Scenarios();

/// Work for an object with Init() and Quit().
template <typename Object>
class ObjectScenario : public Scenario {
public:
    using WorkFunction = void (*)(Object&, Transcript&);
    explicit ObjectScenario(WorkFunction work) : m_work(work) {}

    bool Open(PartAccess_t& access) override { return m_object.Init(&access) == 0; }
    void Work(Transcript& transcript) override { m_work(m_object, transcript); }
    void Close() override { m_object.Quit(); }

private:
    WorkFunction m_work;
    Object m_object;
};

template <typename Object>
ScenarioEntry With(const char* name, Medium medium, typename ObjectScenario<Object>::WorkFunction work) {
    return {name, medium, [work] { return std::make_unique<ObjectScenario<Object>>(work); }};
}

/// Work that makes its objects itself.
class FreeScenario : public Scenario {
public:
    using WorkFunction = void (*)(PartAccess_t&, Transcript&);
    explicit FreeScenario(WorkFunction work) : m_work(work) {}

    bool Open(PartAccess_t& access) override {
        m_access = access;
        return true;
    }
    void Work(Transcript& transcript) override { m_work(m_access, transcript); }
    void Close() override {}

private:
    WorkFunction m_work;
    PartAccess_t m_access = {};
};

inline ScenarioEntry Free(const char* name, Medium medium, FreeScenario::WorkFunction work) {
    return {name, medium, [work] { return std::make_unique<FreeScenario>(work); }};
}

} // namespace test_support

#endif // TESTS_FAULTS_SCENARIO_H
