#ifndef FUZZ_SUPPORT_SAMPLE_INPUTS_H
#define FUZZ_SUPPORT_SAMPLE_INPUTS_H

#include <vector>

#include "support/partition_input.h"

namespace fuzzing {

/// Small valid partitions of all kinds that the sample recorder writes, without scripts. The same on every host.
std::vector<PartitionInput> SampleInputs();

} // namespace fuzzing

#endif // FUZZ_SUPPORT_SAMPLE_INPUTS_H
