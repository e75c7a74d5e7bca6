#include "recorded_blocks.h"

#include <algorithm>
#include <optional>

namespace diskaccess {

namespace {

/// Blocks looked at before the range's first: with 32 busy channels a block lasts less than a second, and key
/// frames come every few seconds.
constexpr uint32_t kBlocksBefore = 32;

std::optional<RecordedBlock> ReadBlock(Partition& disk, uint32_t number) {
    const BlockState state = disk.StateOf(number);
    if (state == BlockState::Bad) {
        return std::nullopt;
    }
    BlockHead_t head = {};
    const uint64_t offset = BLOCK_BASE_OFFSET + uint64_t{number} * disk.Head().BlkSize;
    if (!disk.Read(offset, &head, sizeof head) || head.ValidFlag != BLOCK_MAGIC || head.RecSeq == 0) {
        return std::nullopt;
    }
    return RecordedBlock{number, head.RecSeq, head.RecTime, head.media_chn_bitmap,
                         state == BlockState::Suspect};
}

/// Goes from some blocks before the one of the range's start on, until the range is over.
std::vector<RecordedBlock> ReadForwards(Partition& disk, const Partition::Ring& ring, const Range& range) {
    const uint32_t count = disk.Head().BlkCount;
    const uint32_t length = (ring.newest + count - ring.oldest) % count + 1;
    const uint32_t startBlock = disk.StartBlockOf(range.first);
    const uint32_t at = std::min((startBlock + count - ring.oldest) % count, length - 1);
    std::vector<RecordedBlock> blocks;
    for (uint32_t i = at - std::min(at, kBlocksBefore); i < length; ++i) {
        const auto block = ReadBlock(disk, (ring.oldest + i) % count);
        if (block && block->startTime > range.last) {
            break;
        }
        if (block) {
            blocks.push_back(*block);
        }
    }
    return blocks;
}

/// Asks every block, and takes the order from their sequence numbers.
std::vector<RecordedBlock> ReadAll(Partition& disk, const Range& range) {
    std::vector<RecordedBlock> blocks;
    for (uint32_t number = 0; number < disk.Head().BlkCount; ++number) {
        const auto block = ReadBlock(disk, number);
        if (block && block->startTime <= range.last) {
            blocks.push_back(*block);
        }
    }
    std::stable_sort(blocks.begin(), blocks.end(),
                     [](const RecordedBlock& a, const RecordedBlock& b) { return a.sequence < b.sequence; });
    return blocks;
}

} // namespace

BlockSequence FindBlocks(Job& job, const Range& range) {
    Partition& disk = job.Disk();
    const auto ring = disk.RecordedRing();
    BlockSequence sequence;
    if (ring && !job.ReadsFailed()) {
        sequence.blocks = ReadForwards(disk, *ring, range);
    }
    if (job.ReadsFailed() || disk.MissingBlocks() != 0) {
        sequence.blocks = ReadAll(disk, range);
    }
    const auto behind =
        std::find_if(sequence.blocks.begin(), sequence.blocks.end(),
                     [&](const RecordedBlock& block) { return block.startTime > range.first; });
    const auto index = static_cast<size_t>(behind - sequence.blocks.begin());
    sequence.start = index == 0 ? 0 : index - 1;
    return sequence;
}

} // namespace diskaccess
