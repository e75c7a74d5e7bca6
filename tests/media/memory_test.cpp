// What happens when memory is short: an error, and never the end of the process.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <new>
#include <vector>

#include "media/output_file.h"
#include "pipeline.h"
#include "support/allocations.h"
#include "support/memory_use.h"
#include "support/temp_dir.h"

namespace {

using namespace media;

TEST(Chunks, AreTakenBackWithoutMemory) {
    Pipeline pipeline;
    size_t given = 0; // allocations before memory is short
    for (bool got = false; !got; ++given) {
        const test_support::AllocationFaults faults(given, true);
        try {
            pipeline.TakeChunk().reset();
            got = true;
        } catch (const std::bad_alloc&) {
            ASSERT_LT(given, 20u);
        }
    }
    EXPECT_GE(given, 3u); // the chunk, its bytes, and what counts those who hold it
}

TEST(Outputs, LeaveNeitherFileNorDescriptorWithoutMemory) {
    const test_support::TempDir dir;
    const std::string path = dir.File("out");
    const SourceIdentity source(std::vector<int>{});
    const OutputRules rules = {source};
    const int stream = open(dir.File("stream").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    Outputs outputs(rules);
    const size_t before = test_support::OpenDescriptors();
    size_t given = 0;
    for (bool made = false; !made; ++given) {
        try {
            const test_support::AllocationFaults faults(given, true);
            outputs.Make(path);
            made = true;
        } catch (const std::bad_alloc&) {
            ASSERT_EQ(test_support::OpenDescriptors(), before) << given;
            ASSERT_EQ(std::distance(std::filesystem::directory_iterator(dir.File(".")), {}), 1) << given;
        }
    }
    EXPECT_EQ(test_support::OpenDescriptors(), before + 2); // the file, and its folder
    given = 0;
    for (bool made = false; !made; ++given) {
        try {
            const test_support::AllocationFaults faults(given, true);
            outputs.MakeStream("stream", stream);
            made = true;
        } catch (const std::bad_alloc&) {
            ASSERT_EQ(test_support::OpenDescriptors(), before + 2) << given;
        }
    }
    EXPECT_EQ(test_support::OpenDescriptors(), before + 3);
    close(stream);
}

} // namespace
