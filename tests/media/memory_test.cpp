// What happens when memory is short: an error, and never the end of the process.

#include <gtest/gtest.h>

#include <new>

#include "pipeline.h"
#include "support/allocations.h"

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

} // namespace
