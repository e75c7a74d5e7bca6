#include "support/partition_run.h"

#include "support/fuzzer.h"

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace fuzzing;
    Machine& machine = Machine::The();
    const PartitionInput input = PartitionInput::Parse(data, size);
    input.LayOn(machine.Device(0));
    machine.SetFault(input.Fault(), input.head.faultCall);
    RunPartition(input, machine);
    machine.Reset();
    return 0;
}
