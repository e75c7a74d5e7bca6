#include "faults/scenario.h"

namespace test_support {

const std::vector<ScenarioEntry>& Scenarios() {
    static const std::vector<ScenarioEntry> all = [] {
        std::vector<ScenarioEntry> scenarios = SearchScenarios();
        for (const auto& more : {PlaybackScenarios(), DeviceScenarios()}) {
            scenarios.insert(scenarios.end(), more.begin(), more.end());
        }
        return scenarios;
    }();
    return all;
}

} // namespace test_support
