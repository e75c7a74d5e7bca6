#include "blocks_of_range.h"

#include <iterator>

#include "recordings/range_frames.h"
#include "recordings/records.h"

namespace media {

namespace {

/// The frames of locked channels tell nothing; those who know the password are to find them in the image.
void AddLocked(const recordings::BlockList& blocks, recordings::TimeRange range,
               recordings::ChannelSet locked, std::set<uint32_t>& chosen) {
    if (locked.Empty()) {
        return;
    }
    for (const size_t entry : blocks.Candidates(range)) {
        const recordings::Block& block = blocks.All()[entry];
        if (!block.headSound || !block.channels.And(locked).Empty()) {
            chosen.insert(block.number);
        }
    }
}

} // namespace

std::set<uint32_t> BlocksOfRange(const recordings::Disk& disk, const recordings::BlockList& blocks,
                                 recordings::TimeRange range, recordings::ChannelSet channels,
                                 const recordings::ProblemSink& problems, const recordings::Watch& watch) {
    std::set<uint32_t> chosen;
    const auto note = [&problems, &chosen](const recordings::Problem& problem) {
        if (problems) {
            problems(problem);
        }
        if (problem.severity == recordings::Severity::Loss && problem.block) {
            chosen.insert(*problem.block);
        }
    };
    for (const bool decodable : {true, false}) {
        recordings::FrameQuery query;
        query.range = range;
        query.channels = channels;
        query.decodable = decodable;
        query.want = recordings::Want::Heads;
        recordings::RangeFrames frames(disk, blocks, query, note, watch);
        for (recordings::Frame frame; frames.Next(frame);) {
            chosen.insert(frame.block);
        }
    }
    for (const recordings::Event& event :
         recordings::FindEvents(disk, blocks, range, recordings::kAllEvents, note, watch)) {
        chosen.insert(event.block);
    }
    AddLocked(blocks, range, channels.And(disk.Hidden()), chosen);
    // Neighbours of what is lost are named too, and those that the device does not reach any more.
    std::set<uint32_t> known;
    for (const recordings::Block& block : blocks.All()) {
        known.insert(block.number);
    }
    for (auto block = chosen.begin(); block != chosen.end();) {
        block = known.count(*block) != 0 ? std::next(block) : chosen.erase(block);
    }
    return chosen;
}

} // namespace media
