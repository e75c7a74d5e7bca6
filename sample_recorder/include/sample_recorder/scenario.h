#ifndef SAMPLE_RECORDER_SCENARIO_H
#define SAMPLE_RECORDER_SCENARIO_H

#include <string>

namespace sample_recorder {

/// Records a partition from a description in JSON: cameras and their files, journeys, events, faults. The
/// README beside the scenarios describes it.
/// @param mediaDirectory where the files named in it lie
/// @throws Error with one line that says what is wrong
void RecordScenario(const std::string& scenarioPath, const std::string& mediaDirectory,
                    const std::string& outputPath);

} // namespace sample_recorder

#endif // SAMPLE_RECORDER_SCENARIO_H
