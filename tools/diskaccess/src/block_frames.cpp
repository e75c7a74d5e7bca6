#include "block_frames.h"

#include <algorithm>
#include <bitset>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <utility>

#include "frame_types.h"

namespace diskaccess {

namespace {

/// Media older than this many seconds before the block or its newest frame is left over from the ring's
/// previous turn.
constexpr int64_t kStaleSeconds = 30;
/// A time stamp further than this outside its block's time is damaged. Recorders' clocks are set now and then,
/// over hours at most.
constexpr int64_t kClockSetSeconds = 86400;
/// Frame types that recorders use lie below this.
constexpr uint32_t kFrameTypes = 16;

/// A sync word with no more wrong bits than this was one; a random word has 16.
constexpr size_t kWrongBits = 4;

constexpr size_t kChunk = 0x10000;
constexpr size_t kSector = 0x1000;

uint64_t SpanOf(const FrameHead_t& head) {
    return sizeof(FrameHead_t) + uint64_t{head.len};
}

} // namespace

Payload& Payload::operator=(Payload&& other) noexcept {
    std::swap(m_data, other.m_data);
    return *this;
}

Payload::~Payload() {
    std::free(m_data);
}

FrameArea FindFrameArea(Partition& disk, const std::vector<RecordedBlock>& blocks) {
    PartAccess_t access = disk.Access();
    for (const RecordedBlock& block : blocks) {
        CReadBlock reader;
        if (reader.OpenBlock(block.number, disk.Head().BlkSize, &access, disk.Head().FmtVersion, 0) != 0) {
            continue;
        }
        uint32_t inside = 0;
        uint32_t outside = disk.Head().BlkSize;
        while (inside + 1 < outside) {
            const uint32_t middle = inside + (outside - inside) / 2;
            (reader.GetOffset(middle) != -1 ? inside : outside) = middle;
        }
        const FrameArea area = {static_cast<uint32_t>(reader.GetOffset(0)), outside};
        reader.CloseBlock();
        return area;
    }
    return {};
}

BlockFrames::BlockFrames(Partition& disk, const FrameArea& area, const RecordedBlock& block, Want want)
    : m_disk(disk), m_area(area), m_block(block), m_want(want), m_newest(block.startTime) {
    PartAccess_t access = disk.Access();
    m_opened = m_reader.OpenBlock(block.number, disk.Head().BlkSize, &access, disk.Head().FmtVersion, 0) == 0;
    if (m_opened) {
        // Opens the window wide, for every channel, whether or not a first frame is found.
        RecordItem_t whole = {};
        whole.recId = block.number << 16;
        whole.flag = 1;
        m_reader.SeekOffs(1, &whole, 0, 0);
        ReadIndex();
    }
}

BlockFrames::~BlockFrames() {
    m_reader.CloseBlock();
}

std::vector<RecSegItem_t> BlockFrames::SegmentsOf(uint32_t channel) {
    std::vector<RecSegItem_t> segments;
    RecordItem_t item = {};
    item.recId = m_block.number << 16 | channel << 9;
    RecSegItem_t segment = {};
    while (segments.size() < 512 && m_reader.GetRecSegInfo(&item, &segment) == 0) {
        segments.push_back(segment);
        ++item.recId;
    }
    return segments;
}

void BlockFrames::ReadIndex() {
    int64_t earliest = std::numeric_limits<int64_t>::max();
    for (uint32_t channel = 0; channel < 32; ++channel) {
        for (const RecSegItem_t& segment : SegmentsOf(channel)) {
            m_indexEnd = std::max(m_indexEnd, std::min(segment.epos, m_area.size));
            earliest = std::min<int64_t>(earliest, segment.s);
            m_endTime = std::max<int64_t>(m_endTime, segment.e);
        }
    }
    // Where head and index contradict each other, the index is right: all frames went into it.
    if (m_indexEnd != 0 &&
        (m_block.startTime > m_endTime || m_block.startTime + kClockSetSeconds < earliest)) {
        m_block.startTime = static_cast<uint32_t>(earliest);
        m_newest = earliest;
    }
}

bool BlockFrames::Fits(const FrameHead_t& head, uint32_t offset) const {
    return head.chn < 32 && head.type < kFrameTypes && offset + SpanOf(head) <= m_area.size;
}

BlockFrames::Found BlockFrames::Judge(const FrameHead_t& head, uint32_t offset) const {
    if (!Fits(head, offset)) {
        return Found::Damage;
    }
    const int64_t time = SecondsOf(head);
    const int64_t start = m_block.startTime;
    if (!IsMedia(head)) {
        return Found::Frame;
    }
    if (offset < m_indexEnd) {
        const int64_t end = std::max(m_endTime, start);
        return time + kClockSetSeconds < start || time > end + kClockSetSeconds ? Found::Damage
                                                                                : Found::Frame;
    }
    if (time + kStaleSeconds < std::max(start, m_newest)) {
        return Found::End;
    }
    return time > m_newest + kClockSetSeconds ? Found::Damage : Found::Frame;
}

bool BlockFrames::SeemsFrame(const FrameHead_t& head, uint32_t offset) const {
    const int64_t latest =
        m_indexEnd != 0 ? std::max(m_endTime, m_newest) + kStaleSeconds : m_newest + kClockSetSeconds;
    const int64_t time = SecondsOf(head);
    return Fits(head, offset) && (m_block.channels >> head.chn & 1) != 0 && time <= latest &&
           time + kStaleSeconds >= (m_indexEnd != 0 ? int64_t{m_block.startTime} : m_newest);
}

/// Whether some of what lies there still looks like a head of this block: then only a field of it is damaged.
bool BlockFrames::WasFrame(const FrameHead_t& head) const {
    const auto wrongBits = std::bitset<32>(head.sync ^ BLOCK_MAGIC).count();
    const int64_t time = SecondsOf(head);
    return wrongBits <= kWrongBits || (time >= m_block.startTime && time <= std::max(m_endTime, m_newest));
}

BlockFrames::Found BlockFrames::ReadAt(uint32_t offset, PlacedFrame& frame) {
    if (m_ended || uint64_t{offset} + sizeof(FrameHead_t) > m_area.size) {
        return Found::End;
    }
    int skipped = 0;
    void** const slot = m_want == Want::Payloads ? frame.payload.Slot() : nullptr;
    const int result =
        m_opened ? m_reader.GetFrame(offset, &frame.head, slot, &skipped) : ReadRaw(offset, frame);
    if (result != 0) {
        return m_indexEnd != 0 && offset >= m_indexEnd ? Found::End : Found::Damage;
    }
    frame.offset = offset;
    return Judge(frame.head, offset);
}

int BlockFrames::ReadRaw(uint32_t offset, PlacedFrame& frame) const {
    if (!m_disk.Read(DeviceOffset(offset), &frame.head, sizeof frame.head) ||
        frame.head.sync != BLOCK_MAGIC || !Fits(frame.head, offset)) {
        return -1;
    }
    if (m_want == Want::Heads || frame.head.len == 0) {
        return 0;
    }
    void* const buffer = std::realloc(*frame.payload.Slot(), frame.head.len);
    if (buffer == nullptr) {
        return -1;
    }
    *frame.payload.Slot() = buffer;
    const uint64_t behindHead = DeviceOffset(offset) + sizeof frame.head;
    return m_disk.Read(behindHead, buffer, frame.head.len) ? 0 : -1;
}

bool BlockFrames::MarkedEnd(uint32_t offset) const {
    FrameHead_t head = {};
    return m_disk.Read(DeviceOffset(offset), &head, sizeof head) && head.sync == 0xFFFFFFFF &&
           head.pts == 0xFFFFFFFF && head.type == 0xFFFFFFFF && head.chn == 0xFFFFFFFF &&
           head.len == 0xFFFFFFFF;
}

uint64_t BlockFrames::DeviceOffset(uint32_t offset) const {
    return BLOCK_BASE_OFFSET + uint64_t{m_block.number} * m_disk.Head().BlkSize + m_area.start + offset;
}

std::optional<uint32_t> BlockFrames::FindFrame(uint32_t from, bool& unreadable) const {
    constexpr size_t syncAt = offsetof(FrameHead_t, sync);
    const uint32_t end = m_indexEnd != 0 ? m_indexEnd : m_area.size;
    const uint32_t sync = BLOCK_MAGIC;
    std::vector<uint8_t> bytes;
    for (uint64_t at = from; at + sizeof(FrameHead_t) <= end;) {
        // Chunks overlap by a head, so that one across their seam is seen.
        bytes.resize(static_cast<size_t>(std::min<uint64_t>(kChunk, end - at)));
        if (!m_disk.Read(DeviceOffset(static_cast<uint32_t>(at)), bytes.data(), bytes.size())) {
            bytes.resize(std::min(bytes.size(), kSector));
            if (!m_disk.Read(DeviceOffset(static_cast<uint32_t>(at)), bytes.data(), bytes.size())) {
                unreadable = true;
                at += bytes.size();
                continue;
            }
        }
        const uint8_t* const last = bytes.data() + bytes.size();
        for (const uint8_t* search = bytes.data() + syncAt; search < last;) {
            const auto* const hit = static_cast<const uint8_t*>(
                memmem(search, static_cast<size_t>(last - search), &sync, sizeof sync));
            if (hit == nullptr || hit - syncAt + sizeof(FrameHead_t) > last) {
                break;
            }
            FrameHead_t head;
            std::memcpy(&head, hit - syncAt, sizeof head);
            const auto offset = static_cast<uint32_t>(at + static_cast<size_t>(hit - syncAt - bytes.data()));
            if (SeemsFrame(head, offset)) {
                return offset;
            }
            search = hit + 1;
        }
        at += bytes.size() == end - at ? bytes.size() : bytes.size() - (sizeof(FrameHead_t) - 1);
    }
    return std::nullopt;
}

void BlockFrames::NoteLoss(uint32_t from, uint32_t to, bool unreadable) {
    m_nextLost = true;
    if (!m_losses.empty() && uint64_t{m_losses.back().offset} + m_losses.back().bytes == from) {
        m_losses.back().bytes += to - from;
        m_losses.back().unreadable |= unreadable;
        return;
    }
    const auto before = m_hasPending ? std::optional<int64_t>(m_pending.head.pts) : m_delivered;
    m_losses.push_back({m_block.number, from, uint64_t{to} - from, before, std::nullopt, unreadable});
}

/// Where the next frame begins, if the head at hand is sound and leads to another: then it is its payload that
/// the disk did not deliver.
std::optional<uint32_t> BlockFrames::BehindUnreadablePayload(const FrameHead_t& head) const {
    if (head.sync != BLOCK_MAGIC || !SeemsFrame(head, m_offset)) {
        return std::nullopt;
    }
    const auto behind = static_cast<uint32_t>(m_offset + SpanOf(head));
    FrameHead_t next = {};
    const bool sound = m_disk.Read(DeviceOffset(behind), &next, sizeof next) && next.sync == BLOCK_MAGIC &&
                       SeemsFrame(next, behind);
    return sound ? std::optional<uint32_t>(behind) : std::nullopt;
}

/// Moves to where frames go on behind damage.
/// @return false when there are no more
bool BlockFrames::PassDamage() {
    FrameHead_t head = {};
    bool unreadable = !m_disk.Read(DeviceOffset(m_offset), &head, sizeof head);
    const bool overwritten = !unreadable && !WasFrame(head);
    const uint32_t from = m_hasPending ? m_pending.offset + static_cast<uint32_t>(sizeof head) : m_offset;
    auto resumed = BehindUnreadablePayload(head);
    unreadable = unreadable || resumed;
    if (!resumed) {
        resumed = FindFrame(from, unreadable);
    }
    if (resumed == m_offset) {
        resumed = FindFrame(m_offset + 1, unreadable); // what lies there was tried
    }
    if (!resumed && (m_indexEnd == 0 || MarkedEnd(m_offset))) {
        return false;
    }
    uint32_t start = m_offset;
    if (m_hasPending && (overwritten || (resumed && *resumed < m_offset))) {
        start = m_pending.offset;
        m_hasPending = false;
    }
    NoteLoss(start, resumed.value_or(m_indexEnd), unreadable);
    m_offset = resumed.value_or(m_indexEnd);
    return resumed.has_value();
}

bool BlockFrames::Next(PlacedFrame& frame, bool& lost) {
    for (;;) {
        Found found = ReadAt(m_offset, m_next);
        if (found == Found::Damage) {
            if (PassDamage()) {
                continue;
            }
            found = Found::End;
        }
        const bool deliver = m_hasPending;
        if (deliver) {
            std::swap(frame, m_pending);
            lost = m_pendingLost;
            m_delivered = frame.head.pts;
        }
        m_hasPending = found == Found::Frame;
        if (m_hasPending) {
            std::swap(m_pending, m_next);
            m_pendingLost = std::exchange(m_nextLost, false);
            m_offset += static_cast<uint32_t>(SpanOf(m_pending.head));
            if (IsMedia(m_pending.head)) {
                m_newest = std::max(m_newest, SecondsOf(m_pending.head));
            }
            if (m_pendingLost) {
                m_losses.back().behind = m_pending.head.pts;
            }
        } else {
            m_ended = true;
        }
        if (deliver) {
            return true;
        }
        if (m_ended) {
            lost = std::exchange(m_nextLost, false);
            return false;
        }
    }
}

} // namespace diskaccess
