// Writes the inputs that fuzzing of partitions starts from: partition_seeds DIRECTORY. Each sample partition gets
// some scripts, seeded, which between them call every operation.

#include <cstdio>
#include <fstream>
#include <random>
#include <string>

#include "support/sample_inputs.h"

namespace {

/// Scripts a partition.
constexpr uint32_t kScripts = 6;
constexpr uint32_t kOperations = 16;
/// More arguments than an operation mostly takes; what it leaves is the next operation.
constexpr uint32_t kArguments = 4;

std::vector<uint8_t> MakeScript(uint32_t seed) {
    std::mt19937 random(seed);
    std::vector<uint8_t> script;
    for (uint32_t i = 0; i < kOperations; ++i) {
        script.push_back(static_cast<uint8_t>(seed * kOperations + i));
        for (uint32_t k = 0; k < kArguments; ++k) {
            script.push_back(static_cast<uint8_t>(random()));
        }
    }
    return script;
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fputs("usage: partition_seeds DIRECTORY\n", stderr);
        return 2;
    }
    uint32_t seed = 0;
    for (fuzzing::PartitionInput input : fuzzing::SampleInputs()) {
        for (uint32_t i = 0; i < kScripts; ++i, ++seed) {
            input.script = MakeScript(seed);
            const std::vector<uint8_t> bytes = input.Bytes();
            std::ofstream file(argv[1] + ("/seed-" + std::to_string(seed)), std::ios::binary);
            file.write(reinterpret_cast<const char*>(bytes.data()),
                       static_cast<std::streamsize>(bytes.size()));
            if (!file.flush()) {
                std::fprintf(stderr, "%s: cannot be written\n", argv[1]);
                return 1;
            }
        }
    }
    return 0;
}
