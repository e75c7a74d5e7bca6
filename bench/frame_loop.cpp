// Frames a second that a loop in C++ reads: what a loop in another language is held against (frame_loop.py).
//
//   frame_loop DISK TURNS

#include <chrono>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <exception>

#include "recordings/disk.h"
#include "recordings/range_frames.h"

namespace {

void Loop(const recordings::Disk& disk, const recordings::BlockList& blocks) {
    const auto begin = std::chrono::steady_clock::now();
    recordings::RangeFrames frames(disk, blocks, {}, {});
    uint64_t count = 0;
    uint64_t bytes = 0;
    for (recordings::Frame frame; frames.Next(frame); ++count) {
        bytes += frame.size;
    }
    const std::chrono::duration<double> time = std::chrono::steady_clock::now() - begin;
    std::printf("%" PRIu64 " %" PRIu64 " %f\n", count, bytes, time.count());
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fprintf(stderr, "usage: frame_loop DISK TURNS\n");
        return 2;
    }
    try {
        const recordings::Disk disk(recordings::OpenSource(argv[1]));
        const recordings::BlockList blocks = recordings::BlockList::Read(disk);
        for (long turn = std::strtol(argv[2], nullptr, 10); turn > 0; --turn) {
            Loop(disk, blocks);
        }
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s\n", error.what());
        return 1;
    }
}
