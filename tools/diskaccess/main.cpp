// diskaccess: what is on a recorder's partition.

#include <malloc.h>

#include <csignal>

#include "cli/output.h"
#include "program.h"

namespace {

/// The library resizes a payload's buffer to every frame. Buffers that the C library maps by themselves are
/// mapped anew each time, and key frames are large enough for that: they are kept in the heap.
void KeepPayloadsInTheHeap() {
    mallopt(M_MMAP_THRESHOLD, 32 << 20);
    mallopt(M_TRIM_THRESHOLD, 64 << 20);
}

} // namespace

int main(int argc, char** argv) {
    KeepPayloadsInTheHeap();
    diskaccess::OccupyStandardDescriptors();
    std::signal(SIGPIPE, SIG_IGN); // a closed pipe shows as a failed write, which is not an error
    return diskaccess::RunProgram(argc, argv, diskaccess::Confine);
}
