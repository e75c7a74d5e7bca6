// The dump at each level, and the functions that read devices and blocks.

#include <cstdarg>
#include <cstdio>

#include "faults/scenario.h"
#include "search/search_fixture.h"

namespace test_support {

namespace {

/// A print function that puts everything into a transcript.
__attribute__((format(printf, 2, 3))) int PrintInto(void* ctx, const char* format, ...) {
    char piece[512];
    va_list values;
    va_start(values, format);
    const int length = std::vsnprintf(piece, sizeof piece, format, values);
    va_end(values);
    static_cast<Transcript*>(ctx)->Add("%s", piece);
    return length;
}

template <int kLevel>
void Dump(PartAccess_t& access, Transcript& transcript) {
    CPrintDisk disk;
    transcript.Result("Print", disk.Print(&access, kLevel, PrintInto, &transcript), -1, 0);
}

void Device(PartAccess_t& access, Transcript& transcript) {
    dev_op_st* const dev = dev_open(&access);
    uint32_t word = 0;
    transcript.Result("dev_read", dev_read(dev, &word, sizeof word), -1, 0);
    transcript.Result("dev_seek", dev_seek(dev, BLOCK_BASE_OFFSET), -1, 0);
    transcript.Result("dev_read", dev_read(dev, &word, sizeof word), -1, 0);
    transcript.Result("dev_close", dev_close(dev), dev == nullptr ? -1 : 0, dev == nullptr ? -1 : 0);
}

/// A read that failed leaves the window where it was, and can be repeated.
void Window(PartAccess_t& access, Transcript& transcript) {
    block_info_t info = {};
    static_cast<PartAccess_t&>(info) = access;
    info.BlkSize = kMediaBlockSize;
    info.BaseOffs = BLOCK_BASE_OFFSET;
    bolck_op_st* const block = block_open(&info);
    BlockHead_t head = {};
    transcript.Result("block_read", block_read(block, &head, sizeof head), -1, 0);
    if (transcript.Result("block_seek", block_seek(block, 840), -1, 0) == 0) {
        FrameHead_t frame = {};
        if (transcript.Result("block_read", block_read(block, &frame, sizeof frame), -1, 0) != 0) {
            transcript.Require(block->CurOffs == BLOCK_BASE_OFFSET + 840, "the place of a read that failed");
            transcript.Result("block_read", block_read(block, &frame, sizeof frame), -1, 0);
        }
        if (block->CurOffs != BLOCK_BASE_OFFSET + 840) {
            transcript.Require(frame.pts == Pts(kPlayStart), "the frame of that place");
            transcript.Add("second %lld\n", static_cast<long long>(frame.pts / 1000000));
        }
    } else {
        transcript.Require(block == nullptr || block->CurOffs == BLOCK_BASE_OFFSET, "the window's start");
    }
    transcript.Result("block_seek", block_seek(block, kMediaBlockSize + 1), -1, -1);
    transcript.Result("block_close", block_close(block), block == nullptr ? -1 : 0,
                      block == nullptr ? -1 : 0);
}

} // namespace

std::vector<ScenarioEntry> DeviceScenarios() {
    return {
        Free("DumpOfSize", Medium::Dump, Dump<-1>),
        Free("DumpOfTables", Medium::Dump, Dump<0>),
        Free("DumpOfHead", Medium::Dump, Dump<1>),
        Free("DumpOfBlocks", Medium::Dump, Dump<2>),
        Free("DumpOfEverything", Medium::Dump, Dump<3>),
        Free("DumpOfEverythingExtended", Medium::ExtendedDump, Dump<3>),
        Free("Device", Medium::Play, Device),
        Free("Window", Medium::Play, Window),
    };
}

} // namespace test_support
