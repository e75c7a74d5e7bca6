#ifndef FUZZ_SUPPORT_PARTITION_RUN_H
#define FUZZ_SUPPORT_PARTITION_RUN_H

#include "support/machine.h"
#include "support/partition_input.h"

namespace fuzzing {

/// Runs the script of an input on its partition, which lies on device 0 of the machine, with its fault in force. Each
/// harness that reads partitions has its own; what comes before and after is the same for all.
void RunPartition(const PartitionInput& input, Machine& machine);

} // namespace fuzzing

#endif // FUZZ_SUPPORT_PARTITION_RUN_H
