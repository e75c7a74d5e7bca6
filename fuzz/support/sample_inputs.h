#ifndef FUZZ_SUPPORT_SAMPLE_INPUTS_H
#define FUZZ_SUPPORT_SAMPLE_INPUTS_H

#include <vector>

#include "sample_recorder/partition_image.h"
#include "support/partition_input.h"

namespace fuzzing {

/// Small valid partitions of all kinds that the sample recorder writes, without scripts. The same on every host.
std::vector<PartitionInput> SampleInputs();

/// What lies on a partition that is no larger than an input can say.
PartitionInput Describe(const sample_recorder::PartitionImage& image);

} // namespace fuzzing

#endif // FUZZ_SUPPORT_SAMPLE_INPUTS_H
