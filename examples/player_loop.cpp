// A player's loop: plays one channel from a given time on, in real time, one record after the other, or only
// its key frames, as fast forward does.
//
//   player_loop PARTITION CHANNEL [--from SECONDS] [--fast] [--keys]

#include <disk_access.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

const long kEarlier = 3600; // seconds

struct Wish {
    unsigned int channel = 0;
    long from = 0;     ///< seconds since 1970
    bool fast = false; ///< do not wait for a frame's time
    bool keys = false; ///< key frames only
    FILE* out = nullptr;
};

/// Here a decoder would get the frame.
void Show(const Wish& wish, const FrameInfo_t& frame, const void* payload) {
    const auto* const bytes = static_cast<const unsigned char*>(payload);
    const uint64_t pts = frame.pts; // records are packed: copy before you take a reference
    std::fprintf(wish.out, "%llu.%06llu  type %u  %u bytes  first %02x\n",
                 static_cast<unsigned long long>(pts / 1000000),
                 static_cast<unsigned long long>(pts % 1000000), frame.type, frame.len,
                 frame.len == 0 ? 0u : bytes[0]);
}

/// Waits as long as the time between two frames, but not during a gap in the recording.
void Wait(const FrameInfo_t& frame, uint64_t& last) {
    const uint64_t pts = frame.pts;
    if (last != 0 && pts > last && pts - last < 1000000) {
        usleep(static_cast<useconds_t>(pts - last));
    }
    last = pts;
}

/// Plays one record to its end. The library resizes the buffer, and the caller frees it; all records share
/// it.
unsigned int PlayRecord(CReadDisk& disk, RecordItem_t record, const Wish& wish, void** payload) {
    void* const reader = disk.StartRead(0, &record); // starts at the record's first key frame
    long from = wish.from;
    if (from > static_cast<long>(record.startTime)) {
        disk.SeekTime(reader, &from); // to the first key frame at or after that time
    }
    unsigned int frames = 0;
    uint64_t last = 0;
    FrameInfo_t frame = {};
    // The first key step would pass the key frame at the read position: read that one with ReadFrame().
    int result = disk.ReadFrame(reader, &frame, payload);
    while (result == 0) {
        if (!wish.fast) {
            Wait(frame, last);
        }
        Show(wish, frame, *payload);
        ++frames;
        result = wish.keys ? disk.ReadNextIFrame(reader, &frame, payload)
                           : disk.ReadFrame(reader, &frame, payload);
    }
    disk.StopRead(reader);
    return frames;
}

} // namespace

int main(int argc, char** argv) {
    if (argc < 3) {
        std::fprintf(stderr, "usage: %s PARTITION CHANNEL [--from SECONDS] [--fast] [--keys]\n", argv[0]);
        return 2;
    }
    Wish wish;
    wish.channel = static_cast<unsigned int>(std::strtoul(argv[2], nullptr, 10));
    for (int i = 3; i < argc; ++i) {
        wish.fast = wish.fast || std::strcmp(argv[i], "--fast") == 0;
        wish.keys = wish.keys || std::strcmp(argv[i], "--keys") == 0;
        if (std::strcmp(argv[i], "--from") == 0 && i + 1 < argc) {
            wish.from = std::strtol(argv[++i], nullptr, 10);
        }
    }
    // The library prints its diagnostics on standard output; this program prints on a copy of it.
    wish.out = fdopen(dup(STDOUT_FILENO), "w");
    if (wish.out == nullptr || std::freopen("/dev/null", "w", stdout) == nullptr) {
        std::perror("standard output");
        return 1;
    }

    PartAccess_t part = {};
    std::snprintf(part.PartName, sizeof part.PartName, "%s", argv[1]);
    CSearchDisk search;
    CReadDisk disk;
    search.Init(&part);
    disk.Init(&part);
    // A search that begins in the block before an unusable one misses that block. So it begins earlier, and
    // records that end before the start are left out below.
    const uint32_t earlier = wish.from > kEarlier ? static_cast<uint32_t>(wish.from - kEarlier) : 0;
    SearchParam_t request = {0, earlier, 0x7FFFFFFF, wish.channel};
    CCommList<RecordItem_t> records;
    search.SearchMedia(&request, &records);

    unsigned int frames = 0;
    void* payload = nullptr;
    for (const CCommListNode<RecordItem_t>* node = records.m_pHead; node != nullptr; node = node->pNext) {
        if (static_cast<long>(node->data.endTime) > wish.from) {
            frames += PlayRecord(disk, node->data, wish, &payload);
        }
    }
    std::free(payload);
    std::fprintf(wish.out, "%u frames\n", frames);
    disk.Quit();
    search.Quit();
    std::fclose(wish.out);
    return 0;
}
