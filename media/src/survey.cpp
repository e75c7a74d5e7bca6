#include "survey.h"

#include <algorithm>
#include <array>

#include "recordings/block_frames.h"
#include "recordings/block_index.h"
#include "recordings/error.h"

namespace media {

namespace {

using recordings::Block;
using recordings::ChannelSet;
using recordings::Frame;
using recordings::kChannels;
using recordings::TimeRange;

/// What a frame takes on the disk beside its payload.
constexpr uint64_t kFrameHead = 24;
/// Indexes that are asked for ahead of the one that is read.
constexpr size_t kBlocksAhead = 64;
/// By how much a share that is only estimated is taken to be larger: too much costs a little space, too little time.
constexpr double kCaution = 1.004;
/// Blocks that are read for nothing but a track's last frame. Tracks that end earlier are few.
constexpr size_t kMostLookedBack = 4;

/// Problems are named when the frames are read in earnest.
void Ignore(const recordings::Problem& /*problem*/) {}

class Surveyor {
public:
    Surveyor(const recordings::Disk& disk, const recordings::BlockList& blocks,
             const recordings::FrameQuery& query, const recordings::Watch& watch)
        : m_disk(disk), m_blocks(blocks), m_query(query), m_watch(watch),
          m_candidates(blocks.Candidates(query.range)) {}

    Survey Run() {
        for (size_t i = 0; i < m_candidates.size(); ++i) {
            GoOn(i);
            Look(i);
        }
        LookBack();
        return std::move(m_survey);
    }

private:
    const Block& At(size_t candidate) const { return m_blocks.All()[m_candidates[candidate]]; }

    void GoOn(size_t candidate) const {
        if (candidate + kBlocksAhead < m_candidates.size()) {
            recordings::AskForIndex(m_disk, At(candidate + kBlocksAhead));
        }
        if (m_watch && !m_watch({candidate, m_candidates.size(), 0})) {
            throw recordings::Error(recordings::ErrorKind::Cancelled, "the survey was ended");
        }
    }

    void Look(size_t candidate) {
        const Block& block = At(candidate);
        if (block.unreadable || block.wiped) {
            return;
        }
        ChannelSet present;
        if (candidate == 0) {
            present = LookAtStart(block);
        } else if (candidate + 1 == m_candidates.size() || !block.closed) {
            present = LookAtHeads(block);
        } else {
            present = LookAtIndex(block);
        }
        const ChannelSet fresh = present.Without(m_seen);
        if (!fresh.Empty()) {
            m_survey.beginnings.push_back({block.number, RangeFrom(candidate), fresh});
            m_seen.bits |= fresh.bits;
        }
    }

    /// The range, from where a block begins.
    TimeRange RangeFrom(size_t candidate) const {
        const uint32_t start = candidate == 0 ? 0 : At(candidate).start;
        return {std::max(m_query.range.first, start), m_query.range.last};
    }

    /// The first block: what the range takes of it, with the key frames before the range that it begins with.
    ChannelSet LookAtStart(const Block& block) {
        recordings::FrameQuery query = m_query;
        query.want = recordings::Want::Heads;
        if (block.closed) {
            query.range.last = std::clamp(block.end, query.range.first, query.range.last);
        }
        recordings::RangeFrames frames(m_disk, m_blocks, query, Ignore, m_watch);
        ChannelSet present;
        bool begun = false;
        for (Frame frame; frames.Next(frame);) {
            begun = begun || frame.block == block.number;
            if (begun && frame.block != block.number) {
                break;
            }
            Count(frame);
            present.Add(frame.channel);
        }
        return present;
    }

    ChannelSet LookAtHeads(const Block& block) {
        recordings::BlockFrames frames(m_disk, block, recordings::Want::Heads, Ignore, m_watch);
        ChannelSet present;
        Frame frame;
        for (bool lost = false; frames.Next(frame, lost);) {
            if (Wanted(frame)) {
                Count(frame);
                present.Add(frame.channel);
            }
        }
        return present;
    }

    ChannelSet LookAtIndex(const Block& block) {
        const auto index = recordings::ReadIndex(m_disk, block, {true, true, false});
        if (!index) {
            return LookAtHeads(block);
        }
        CountSeconds(block.start, std::max(block.start, block.end));
        ChannelSet present;
        for (uint32_t channel = 0; channel < kChannels; ++channel) {
            if (!m_query.channels.Has(channel) || index->segments[channel].empty()) {
                continue;
            }
            present.Add(channel);
            m_lastBlock.at(channel) = &block;
            m_survey.keyFrames += index->keyFrames[channel].size();
            m_survey.indexedBytes.at(channel) += BytesOf(index->segments[channel]);
        }
        return present;
    }

    /// No more than the block can hold, whatever its index says.
    uint64_t BytesOf(const std::vector<recordings::IndexedSegment>& segments) const {
        uint64_t bytes = 0;
        for (const recordings::IndexedSegment& segment : segments) {
            bytes += segment.bytes;
        }
        return std::min<uint64_t>(bytes, m_disk.Layout().frameBytes);
    }

    bool Wanted(const Frame& frame) const {
        return frame.IsMedia() && m_query.channels.Has(frame.channel) && m_query.range.Holds(frame.Seconds());
    }

    void Count(const Frame& frame) {
        m_survey.seenBytes[TrackKey::Of(frame)] += frame.size + kFrameHead;
        m_survey.keyFrames += frame.type == recordings::kKeyFrame ? 1 : 0;
        CountSeconds(frame.Seconds(), frame.Seconds());
        NoteLast(frame);
    }

    /// Adds a stretch of seconds, without those that were counted before.
    void CountSeconds(int64_t first, int64_t last) {
        const int64_t from = m_counted && *m_counted >= first && *m_counted <= last ? *m_counted + 1 : first;
        m_survey.seconds += m_counted == last || from > last ? 0 : static_cast<uint64_t>(last - from + 1);
        m_counted = last;
    }

    void NoteLast(const Frame& frame) {
        m_lastBlock.at(frame.channel) = nullptr; // no index has anything later
        LastFrame& last = m_survey.lastFrames.try_emplace(TrackKey::Of(frame)).first->second;
        if (frame.time >= last.time) {
            last = {frame.time, frame.size};
        }
    }

    /// Finds the last frames of channels that end in a block of which only the index was looked at.
    void LookBack() {
        for (size_t looked = 0; looked < kMostLookedBack; ++looked) {
            const auto* const later = std::find_if(m_lastBlock.begin(), m_lastBlock.end(),
                                                   [](const Block* block) { return block != nullptr; });
            if (later == m_lastBlock.end()) {
                return;
            }
            LookBackAt(**later);
        }
    }

    void LookBackAt(const Block& block) {
        ChannelSet ending;
        for (uint32_t channel = 0; channel < kChannels; ++channel) {
            if (m_lastBlock.at(channel) == &block) {
                ending.Add(channel);
                m_lastBlock.at(channel) = nullptr;
            }
        }
        recordings::BlockFrames frames(m_disk, block, recordings::Want::Heads, Ignore, m_watch);
        Frame frame;
        for (bool lost = false; frames.Next(frame, lost);) {
            if (Wanted(frame) && ending.Has(frame.channel)) {
                NoteLast(frame);
            }
        }
    }

    const recordings::Disk& m_disk;
    const recordings::BlockList& m_blocks;
    const recordings::FrameQuery& m_query;
    const recordings::Watch& m_watch;
    const std::vector<size_t> m_candidates;
    Survey m_survey;
    std::optional<int64_t> m_counted; ///< second that was counted last
    ChannelSet m_seen;
    std::array<const Block*, kChannels> m_lastBlock =
        {}; ///< that an index has a channel in, and no frame was seen since
};

} // namespace

uint64_t Survey::BytesOf(const std::set<TrackKey>& tracks) const {
    uint64_t bytes = 0;
    for (uint32_t channel = 0; channel < kChannels; ++channel) {
        if (tracks.count({channel, false}) + tracks.count({channel, true}) == 0) {
            continue;
        }
        uint64_t wanted = 0;
        uint64_t seen = 0;
        for (const bool isAudio : {false, true}) {
            const auto found = seenBytes.find({channel, isAudio});
            const uint64_t own = found == seenBytes.end() ? 0 : found->second;
            seen += own;
            wanted += tracks.count({channel, isAudio}) != 0 ? own : 0;
        }
        bytes += wanted;
        const uint64_t indexed = indexedBytes.at(channel);
        if (wanted == seen) {
            bytes += indexed;
        } else {
            const double share = static_cast<double>(wanted) / static_cast<double>(seen);
            bytes += static_cast<uint64_t>(static_cast<double>(indexed) * share * kCaution);
        }
    }
    return bytes;
}

Survey MakeSurvey(const recordings::Disk& disk, const recordings::BlockList& blocks,
                  const recordings::FrameQuery& query, const recordings::Watch& watch) {
    return Surveyor(disk, blocks, query, watch).Run();
}

} // namespace media
