// What it takes to find all events of a full disk: libDiskRecordings, which asks for blocks in advance, beside the
// recorder's own search, which waits for each; cold, with nothing of the disk in the page cache, and warm.
//
// ring_bench [DIRECTORY]
//
// Makes a sparse, wrapped ring of 65,536 blocks of 8 MiB (512 GiB, of which some 800 MB are written) in DIRECTORY and
// removes it in the end. For figures of a disk, DIRECTORY must lie on one.

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include "disk_access.h"
#include "recordings/records.h"
#include "sample_recorder/indexed_ring.h"
#include "sample_recorder/partition_image.h"

namespace {

constexpr uint32_t kBlocks = 65536;
constexpr uint32_t kBlockSize = 0x800000;
constexpr int kRounds = 3;

/// The ring, removed in the end.
class RingFile {
public:
    explicit RingFile(const std::filesystem::path& directory)
        : m_path(directory / ("ring-bench-" + std::to_string(getpid()))) {
        sample_recorder::Format format;
        format.blockCount = kBlocks;
        format.blockSize = kBlockSize;
        auto image = sample_recorder::PartitionImage::Create(m_path, format);
        sample_recorder::IndexedRing ring;
        ring.newest = 20000;
        ring.secondsPerBlock = 120;
        ring.iframesPerChannel = 20;
        ring.eventsPerBlock = 2;
        sample_recorder::WriteIndexedRing(image, ring);
    }
    ~RingFile() { std::filesystem::remove(m_path); }
    RingFile(const RingFile&) = delete;
    RingFile& operator=(const RingFile&) = delete;

    const std::filesystem::path& Path() const { return m_path; }

    /// Takes the file out of the page cache.
    void Forget() const {
        const int fd = open(m_path.c_str(), O_RDONLY | O_CLOEXEC);
        const bool forgotten = fd >= 0 && fsync(fd) == 0 && posix_fadvise(fd, 0, 0, POSIX_FADV_DONTNEED) == 0;
        close(fd);
        if (!forgotten) {
            throw std::runtime_error("the page cache cannot be emptied");
        }
    }

private:
    std::filesystem::path m_path;
};

size_t BySearch(const std::filesystem::path& path) {
    PartAccess_t access = {};
    path.string().copy(access.PartName, sizeof access.PartName - 1);
    CSearchDisk disk;
    disk.Init(&access);
    SearchParam_t request = {0xFFFFFFFFFFFFFFFF, 0, 0x7FFFFFFF, 0xFFFFFFFF};
    CCommList<EventItem_t> events;
    disk.SearchEvent(&request, &events);
    return static_cast<size_t>(events.m_nCount);
}

size_t ByRecordings(const std::filesystem::path& path) {
    const recordings::Disk disk(recordings::OpenSource(path));
    const auto blocks = recordings::BlockList::Read(disk);
    return recordings::FindEvents(disk, blocks, {}, recordings::kAllEvents, {}).size();
}

/// The median of some runs, in seconds.
double Median(const RingFile& ring, bool cold, size_t (*find)(const std::filesystem::path&), size_t& found) {
    std::vector<double> seconds;
    for (int i = 0; i < kRounds; ++i) {
        if (cold) {
            ring.Forget();
        }
        const auto begin = std::chrono::steady_clock::now();
        found = find(ring.Path());
        seconds.push_back(std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count());
    }
    std::sort(seconds.begin(), seconds.end());
    return seconds[seconds.size() / 2];
}

/// Leads descriptor 1, on which the recorder's library prints, to nowhere.
void Silence() {
    const int null = open("/dev/null", O_WRONLY | O_CLOEXEC);
    dup2(null, STDOUT_FILENO);
    close(null);
}

void Run(const std::filesystem::path& directory) {
    FILE* const out = fdopen(dup(STDOUT_FILENO), "w");
    Silence();
    std::fprintf(out, "making a ring of %u blocks in %s ...\n", kBlocks, directory.c_str());
    std::fflush(out);
    const RingFile ring(directory);
    std::fprintf(out, "all events           events    recorder's search    in advance    ratio\n");
    for (const bool cold : {true, false}) {
        size_t found = 0;
        const double search = Median(ring, cold, BySearch, found);
        const double advance = Median(ring, cold, ByRecordings, found);
        std::fprintf(out, "%-16s %10zu %18.2f s %11.2f s %8.2f\n", cold ? "cold" : "warm", found, search,
                     advance, search / advance);
        std::fflush(out);
    }
    fclose(out);
}

} // namespace

int main(int argc, char** argv) {
    try {
        Run(argc > 1 ? argv[1] : std::filesystem::temp_directory_path());
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "ring_bench: %s\n", error.what());
        return 1;
    }
}
