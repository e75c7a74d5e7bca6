#ifndef BENCH_PLAYBACK_CALLS_H
#define BENCH_PLAYBACK_CALLS_H

/// @file calls.h
/// Counts what the program, and all libraries in it, ask of the kernel to read files, and what they copy.
/// Counting costs every reader alike an addition a call.

#include <cstdint>
#include <vector>

namespace playback_bench {

struct Calls {
    uint64_t seeks;
    uint64_t reads;
    uint64_t bytesRead;   ///< from the kernel
    uint64_t bytesCopied; ///< from memory to memory, through memcpy()
    double flushSeconds;  ///< spent in fsync(), which waits for the disk even when there is nothing to write
    double flushProcessorSeconds;
};

/// All since the program's start.
Calls CallsSoFar();

Calls operator-(const Calls& a, const Calls& b);

/// Processor time that this process has taken.
double ProcessorSeconds();

/// One call.
struct CallStep {
    enum { Open, Seek, Read, Flush, Close } kind;
    int fd;        ///< of Open, the one that it gave
    int64_t value; ///< offset of Seek, bytes of Read
};

/// Notes each call in @p steps from now on; null: no longer.
void NoteCalls(std::vector<CallStep>* steps);

} // namespace playback_bench

#endif // BENCH_PLAYBACK_CALLS_H
