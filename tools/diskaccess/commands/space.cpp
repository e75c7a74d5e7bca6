#include "commands/commands.h"

namespace diskaccess {

namespace {

/// Blocks after the newest one, when the ring is in its first turn.
uint64_t NeverWritten(const recordings::BlockList& blocks, uint32_t blockCount) {
    if (blocks.Newest() == nullptr) {
        return blockCount;
    }
    const bool firstTurn = blocks.Oldest()->number <= blocks.Newest()->number;
    return firstTurn ? blockCount - 1 - blocks.Newest()->number : 0;
}

} // namespace

ExitCode Space(Context& context) {
    const recordings::DiskFacts& facts = context.Disk().Facts();
    const uint64_t blockSize = facts.blockSize;
    const uint64_t total = blockSize * facts.blockCount;
    const uint64_t free = blockSize * NeverWritten(context.Blocks(), facts.blockCount);
    context.ReportBlocks();
    context.Answer().ShowFacts({{"ring_size_bytes", "Total", Bytes{total}},
                                {"used_bytes", "Used", Bytes{total - free}},
                                {"free_bytes", "Free", Bytes{free}},
                                {"wrapped", "Overwriting its oldest recordings", free == 0}});
    return context.Finish();
}

} // namespace diskaccess
