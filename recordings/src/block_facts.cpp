#include "block_facts.h"

#include <algorithm>
#include <bitset>

#include "found_frames.h"

namespace recordings {

namespace {

constexpr int64_t kStale = disk_access::kStaleSeconds;

/// A time stamp further than this after the newest one is damaged, where nothing else tells. Recorders' clocks are set
/// now and then, over hours at most.
constexpr int64_t kClockSetSeconds = 86400;

/// A sync word with no more wrong bits than this was one; a random word has 16.
constexpr size_t kWrongBits = 4;

/// The streams of one recording are no further apart than this.
constexpr int64_t kSkewSeconds = 5;

/// Turns of the ring after which each place was hardly cut off every time.
constexpr uint32_t kTurnsToTell = 4;

/// Places on each side of a block that tell whether blocks are closed here.
constexpr uint32_t kBesideTail = 2;

constexpr uint32_t kUnknownStart = 0xFFFFFFFF;

/// Whether all bytes of a head are as on a disk that was never written.
bool IsErased(const FrameHead_t& head) {
    const bool zeros = head.pts == 0 && (head.sync | head.type | head.chn | head.len) == 0;
    const bool ones = head.pts == -1 && (head.sync & head.type & head.chn & head.len) == UINT32_MAX;
    return zeros || ones;
}

} // namespace

BlockFacts::BlockFacts(const Disk& disk, const Block& block)
    : m_disk(disk), m_block(block), m_areaSize(disk.Layout().frameBytes),
      m_channels(block.headSound && !block.channels.Empty() ? block.channels : ChannelSet::All()) {
    if (Headless()) {
        m_channels = ChannelSet::All();
        m_earliestOwn = block.previousEnd == 0 ? 0 : block.previousEnd - kStale;
        m_earliest = m_earliestOwn;
        m_latest = block.nextStart == kUnknownStart ? kUnknownStart : block.nextStart + kStale;
        return;
    }
    if (block.closed) {
        m_index = ReadIndex(disk, block);
    }
    TakeTimes();
}

void BlockFacts::DropIndex() {
    m_index.reset();
    m_mediaEnd = 0;
    m_lastListed = 0;
    for (auto* const names : {&m_keyFrames, &m_keyFrameTimes, &m_starts, &m_ends, &m_events}) {
        names->clear();
    }
    TakeTimes();
}

void BlockFacts::TakeTimes() {
    m_earliestOwn = int64_t{m_block.start} - kStale;
    m_earliest = std::min<int64_t>(m_block.start, m_block.closed ? m_block.end : m_block.start);
    m_latest = std::max(m_block.start, m_block.end);
    if (m_index) {
        TakeIndex();
    }
    m_earliest -= kStale;
    m_latest += kStale;
    if (!m_block.closed && m_block.headSound) {
        m_earliest =
            int64_t{m_block.start} - kSkewSeconds; // a small ring's previous turn is hardly older than that
    }
}

void BlockFacts::TakeIndex() {
    for (uint32_t channel = 0; channel < kChannels; ++channel) {
        TakeChannel(channel);
    }
    for (const IndexedEvent& event : m_index->events) {
        m_lastListed = event.offset < m_areaSize ? std::max(m_lastListed, event.offset) : m_lastListed;
        m_events.emplace_back(event.offset, 0, event.time);
    }
    m_earliestOwn = std::min(m_earliestOwn, m_earliest - kStale);
    for (auto* const names : {&m_keyFrames, &m_keyFrameTimes, &m_starts, &m_ends, &m_events}) {
        std::sort(names->begin(), names->end());
    }
}

void BlockFacts::TakeChannel(uint32_t channel) {
    for (const IndexedSegment& segment : m_index->segments[channel]) {
        m_starts.emplace_back(segment.startOffset, channel, segment.start);
        m_ends.emplace_back(segment.endOffset, channel, segment.end);
        if (segment.startOffset >= segment.endOffset || segment.endOffset > m_areaSize) {
            continue; // not true of any block
        }
        m_mediaEnd = std::max(m_mediaEnd, segment.endOffset);
        m_earliest = std::min<int64_t>({m_earliest, segment.start, segment.end});
        m_latest = std::max<int64_t>({m_latest, segment.start, segment.end});
    }
    for (const IndexedKeyFrame& key : m_index->keyFrames[channel]) {
        m_lastListed = key.offset < m_areaSize ? std::max(m_lastListed, key.offset) : m_lastListed;
        m_keyFrames.emplace_back(key.offset, channel, key.time);
        m_keyFrameTimes.emplace_back(0, channel, key.time);
    }
}

/// The head of the next place of the ring, if it can be read.
std::optional<BlockHead_t> BlockFacts::HeadOfNext() const {
    const uint32_t count = m_disk.BlockCount();
    uint32_t next = (m_block.number + 1) % count;
    while (next != m_block.number && m_disk.MarkOf(next) == BlockMark::Bad) {
        next = (next + 1) % count;
    }
    BlockHead_t head = {};
    const bool read =
        next != m_block.number && m_disk.Bytes().ReadWhole(m_disk.StartOf(next), &head, sizeof head);
    return read ? std::optional<BlockHead_t>(head) : std::nullopt;
}

std::optional<int64_t> BlockFacts::NextInRing() const {
    const std::optional<BlockHead_t> head = HeadOfNext();
    const bool older =
        head && head->ValidFlag == BLOCK_MAGIC && head->RecSeq != 0 && head->RecSeq < m_block.sequence;
    return older ? std::optional<int64_t>(head->RecTime) : std::nullopt;
}

bool BlockFacts::IsFirstTurn() const {
    const std::optional<BlockHead_t> head = HeadOfNext();
    return head && head->ValidFlag == BLOCK_MAGIC && head->RecSeq == 0;
}

/// Whether nothing was ever written to a place's tail. A tail that cannot be read may have been erased.
bool BlockFacts::TailIsErased(uint32_t number) const {
    BlockTail_t tail = {};
    const bool read =
        m_disk.Bytes().ReadWhole(m_disk.StartOf(number) + m_disk.Layout().tail, &tail, sizeof tail);
    return !read || (tail.RecSeq | tail.StartTime | tail.EndTime) == 0;
}

bool BlockFacts::LostItsTail() const {
    const uint32_t count = m_disk.BlockCount();
    const bool newest = NextInRing().has_value();
    if (newest || m_block.closed || m_block.sequence / kTurnsToTell < count ||
        !TailIsErased(m_block.number)) {
        return false;
    }
    for (uint32_t distance = 1; distance <= std::min(kBesideTail, count - 1); ++distance) {
        const uint32_t after = (m_block.number + distance) % count;
        const uint32_t before = (m_block.number + count - distance) % count;
        if (TailIsErased(after) || TailIsErased(before)) {
            return false; // here the power is cut again and again
        }
    }
    return true;
}

std::vector<uint32_t> BlockFacts::NamedHeads() const {
    std::vector<uint32_t> places;
    for (const auto* const names : {&m_keyFrames, &m_starts, &m_events}) {
        for (const Name& name : *names) {
            places.push_back(std::get<0>(name));
        }
    }
    std::sort(places.begin(), places.end());
    return places;
}

bool BlockFacts::ListsKeyFrame(uint32_t channel, uint32_t offset, int64_t time) const {
    return std::binary_search(m_keyFrames.begin(), m_keyFrames.end(), Name{offset, channel, time});
}

bool BlockFacts::ListsTimeOfKeyFrame(uint32_t channel, int64_t time) const {
    return std::binary_search(m_keyFrameTimes.begin(), m_keyFrameTimes.end(), Name{0, channel, time});
}

bool BlockFacts::ListsStart(uint32_t channel, uint32_t offset, int64_t seconds) const {
    return std::binary_search(m_starts.begin(), m_starts.end(), Name{offset, channel, seconds});
}

bool BlockFacts::ListsEnd(uint32_t channel, uint64_t end, int64_t seconds) const {
    const auto lists = [&](uint64_t offset) {
        return std::binary_search(m_ends.begin(), m_ends.end(),
                                  Name{static_cast<uint32_t>(offset), channel, seconds});
    };
    return lists(end) || (end >= kRebuiltEndBefore && lists(end - kRebuiltEndBefore));
}

bool BlockFacts::InOneSegment(uint32_t channel, uint32_t first, uint32_t second) const {
    const auto has = [=](const IndexedSegment& segment) {
        return segment.startOffset <= first && second < segment.endOffset;
    };
    return m_index && std::any_of(m_index->segments[channel].begin(), m_index->segments[channel].end(), has);
}

bool BlockFacts::ListsEvent(uint32_t offset, int64_t time) const {
    return std::binary_search(m_events.begin(), m_events.end(), Name{offset, 0, time});
}

int64_t BlockFacts::Latest(int64_t newest) const {
    return Headless() || m_block.closed ? std::max(m_latest, newest) : newest + kClockSetSeconds;
}

bool BlockFacts::SeemsHead(const FrameHead_t& head, const Reached& reached) const {
    const int64_t time = head.pts / kMicros;
    // The clock may have been set back; or forwards, from the 1970 that recorders without a battery begin with.
    const bool wasSet =
        !Headless() && !m_block.closed && reached.last > int64_t{m_block.start} + kClockSetSeconds;
    const int64_t since = reached.last - kSkewSeconds;
    const int64_t earliest = wasSet ? since : std::min(m_earliest, since);
    return head.sync == BLOCK_MAGIC && m_channels.Has(head.chn) && head.type < kFrameTypes &&
           time >= earliest && time <= Latest(reached.newest);
}

bool BlockFacts::SeemsLeftOver(const FrameHead_t& head) const {
    const int64_t time = head.pts / kMicros;
    return head.sync == BLOCK_MAGIC && head.chn < kChannels && head.type < kFrameTypes && time > 0 &&
           time < m_block.start;
}

bool BlockFacts::WasHead(const FrameHead_t& head, const Reached& reached) const {
    if (IsErased(head)) {
        return false; // its time of 1970 is none
    }
    const auto wrongBits = std::bitset<32>(head.sync ^ BLOCK_MAGIC).count();
    const int64_t time = head.pts / kMicros;
    return wrongBits <= kWrongBits || (time >= m_earliest && time <= std::max(m_latest, reached.newest));
}

} // namespace recordings
