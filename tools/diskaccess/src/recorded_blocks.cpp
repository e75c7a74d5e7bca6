#include "recorded_blocks.h"

#include <fmt/format.h>

#include <algorithm>
#include <optional>

namespace diskaccess {

namespace {

/// Blocks looked at before the range's first: with 32 busy channels a block lasts less than a second, and key
/// frames come every few seconds.
constexpr uint32_t kBlocksBefore = 32;

constexpr uint32_t kLastSearchedSecond = 0x7FFFFFFF;

std::optional<RecordedBlock> ReadBlock(Job& job, uint32_t number) {
    Partition& disk = job.Disk();
    const BlockState state = disk.StateOf(number);
    if (state == BlockState::Bad) {
        return std::nullopt;
    }
    BlockHead_t head = {};
    const uint64_t offset = BLOCK_BASE_OFFSET + uint64_t{number} * disk.Head().BlkSize;
    if (!disk.Read(offset, &head, sizeof head)) {
        if (state != BlockState::Missing) {
            job.NoteFailedRead();
        }
        return std::nullopt;
    }
    // One of the two numbers may be damaged; a block that was never recorded has neither.
    if (head.ValidFlag != BLOCK_MAGIC || (head.RecSeq == 0 && head.RecTime == 0)) {
        return std::nullopt;
    }
    return RecordedBlock{number, head.RecSeq, head.RecTime, head.media_chn_bitmap,
                         state == BlockState::Suspect};
}

/// The ring as the library has it, with the suspect blocks at its ends, which the library does not look at.
Partition::Ring WithSuspectEnds(Job& job, Partition::Ring ring) {
    const uint32_t count = job.Disk().Head().BlkCount;
    const auto sequenceOf = [&](uint32_t number) {
        const auto block = ReadBlock(job, number);
        return block ? block->sequence : 0;
    };
    const auto suspect = [&](uint32_t number, uint32_t sequence) {
        return job.Disk().StateOf(number) == BlockState::Suspect && sequenceOf(number) == sequence;
    };
    uint32_t sequence = sequenceOf(ring.oldest);
    for (uint32_t before = (ring.oldest + count - 1) % count;
         sequence > 1 && before != ring.newest && suspect(before, sequence - 1);
         before = (before + count - 1) % count) {
        ring.oldest = before;
        --sequence;
    }
    sequence = sequenceOf(ring.newest);
    for (uint32_t behind = (ring.newest + 1) % count; behind != ring.oldest && suspect(behind, sequence + 1);
         behind = (behind + 1) % count) {
        ring.newest = behind;
        ++sequence;
    }
    return ring;
}

/// Goes from some blocks before the one of the range's start on, until the range is over.
std::vector<RecordedBlock> ReadForwards(Job& job, const Partition::Ring& ring, const Range& range) {
    Partition& disk = job.Disk();
    const uint32_t count = disk.Head().BlkCount;
    const uint32_t length = (ring.newest + count - ring.oldest) % count + 1;
    const uint32_t startBlock = disk.StartBlockOf(range.first);
    const uint32_t at = std::min((startBlock + count - ring.oldest) % count, length - 1);
    std::vector<RecordedBlock> blocks;
    for (uint32_t i = at - std::min(at, kBlocksBefore); i < length; ++i) {
        const auto block = ReadBlock(job, (ring.oldest + i) % count);
        if (block && block->startTime > range.last) {
            break;
        }
        if (block) {
            blocks.push_back(*block);
        }
    }
    return blocks;
}

/// Gives blocks whose sequence number is damaged the place that they have in the ring.
void PlaceUnnumbered(std::vector<RecordedBlock>& blocks) {
    for (size_t i = 0; i < blocks.size(); ++i) {
        if (blocks[i].sequence == 0 && i != 0 && blocks[i - 1].number + 1 == blocks[i].number) {
            blocks[i].sequence = blocks[i - 1].sequence + 1;
        } else if (blocks[i].sequence == 0 && i + 1 != blocks.size() && blocks[i + 1].sequence != 0) {
            blocks[i].sequence = blocks[i + 1].sequence - 1;
        }
    }
}

/// The recorder's seconds are signed: no search reaches what a clock that was far ahead has marked.
void NoteUnreachable(Job& job, const std::vector<RecordedBlock>& blocks) {
    const auto late = std::count_if(blocks.begin(), blocks.end(), [](const RecordedBlock& block) {
        return block.startTime > kLastSearchedSecond;
    });
    if (late != 0) {
        job.Note(
            fmt::format("{}: {} block{} bear{} times after 2038-01-19 and {} left out; units lists them, "
                        "and play --unit plays them",
                        job.Wanted().partition, late, late == 1 ? "" : "s", late == 1 ? "s" : "",
                        late == 1 ? "is" : "are"),
            kFailed);
    }
}

} // namespace

std::vector<RecordedBlock> AllBlocks(Job& job) {
    std::vector<RecordedBlock> blocks;
    if (job.Disk().Head().BlkSize < sizeof(BlockHead_t)) {
        return blocks; // a forged size: millions of blocks, none of which holds its own head
    }
    const uint32_t stated = job.Disk().Head().BlkCount;
    const uint32_t whole = stated - job.Disk().MissingBlocks();
    const uint32_t begun = std::min(whole, stated - 1) + 1; // the device may end inside a block
    for (uint32_t number = 0; number < begun; ++number) {
        const auto block = ReadBlock(job, number);
        if (block) {
            blocks.push_back(*block);
        }
    }
    NoteUnreachable(job, blocks);
    PlaceUnnumbered(blocks);
    std::stable_sort(blocks.begin(), blocks.end(),
                     [](const RecordedBlock& a, const RecordedBlock& b) { return a.sequence < b.sequence; });
    return blocks;
}

bool TimesMislead(Job& job) {
    return !job.AsksEveryBlock() && !InOrder(AllBlocks(job));
}

bool InOrder(const std::vector<RecordedBlock>& blocks) {
    uint32_t turns = 0;
    for (size_t i = 1; i < blocks.size(); ++i) {
        turns += blocks[i].number < blocks[i - 1].number ? 1u : 0u;
        if (blocks[i].sequence == blocks[i - 1].sequence || blocks[i].startTime < blocks[i - 1].startTime) {
            return false;
        }
    }
    return turns < 2 && (blocks.empty() || blocks.front().startTime != 0);
}

BlockSequence FindBlocks(Job& job, const Range& range) {
    Partition& disk = job.Disk();
    const auto ring = disk.RecordedRing();
    BlockSequence sequence;
    if (ring && !job.AsksEveryBlock() && !job.ReadsFailed()) {
        sequence.blocks = ReadForwards(job, WithSuspectEnds(job, *ring), range);
    }
    if (!ring || job.AsksEveryBlock() || job.ReadsFailed() || disk.MissingBlocks() != 0) {
        sequence.blocks = AllBlocks(job);
        sequence.inOrder = InOrder(sequence.blocks);
    }
    if (!sequence.inOrder) {
        return sequence;
    }
    auto& blocks = sequence.blocks;
    const auto later = [](uint32_t time) {
        return [time](const RecordedBlock& block) { return block.startTime > time; };
    };
    blocks.erase(std::find_if(blocks.begin(), blocks.end(), later(range.last)), blocks.end());
    const auto behind = std::find_if(blocks.begin(), blocks.end(), later(range.first));
    const auto index = static_cast<size_t>(behind - blocks.begin());
    sequence.start = index == 0 ? 0 : index - 1;
    return sequence;
}

} // namespace diskaccess
