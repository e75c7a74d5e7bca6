// diskaccess: what is on a recorder's partition.

#include <malloc.h>
#include <sys/resource.h>

#include <algorithm>
#include <csignal>

#include "cli/output.h"
#include "program.h"

namespace {

/// Twice the files that a manifest can name.
constexpr rlim_t kMostOpenFiles = 8192;

/// The library resizes a payload's buffer to every frame. Buffers that the C library maps by themselves are
/// mapped again each time, and key frames are large enough for that: they are kept in the heap.
void KeepPayloadsInTheHeap() {
    mallopt(M_MMAP_THRESHOLD, 32 << 20);
    mallopt(M_TRIM_THRESHOLD, 64 << 20);
}

/// An export holds all its files open until all are complete, so that it names all of them or none. A disk with many changes
/// of encoding makes more files than the soft limit lets a program open at first.
void AllowManyOpenFiles() {
    rlimit files = {};
    if (getrlimit(RLIMIT_NOFILE, &files) == 0) {
        files.rlim_cur = std::max(files.rlim_cur, std::min<rlim_t>(files.rlim_max, kMostOpenFiles));
        setrlimit(RLIMIT_NOFILE, &files); // without it, many files are an error with a name
    }
}

} // namespace

int main(int argc, char** argv) {
    KeepPayloadsInTheHeap();
    AllowManyOpenFiles();
    diskaccess::OccupyStandardDescriptors();
    std::signal(SIGPIPE, SIG_IGN); // a closed pipe shows as a failed write, which is not an error
    return diskaccess::RunProgram(argc, argv, diskaccess::Confine);
}
