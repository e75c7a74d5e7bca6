// The dump of blocks: heads, channel properties, index tables and tails.

#include "dump/print_block.h"

#include <ctime>

#include "format/channels.h"
#include "format/field_text.h"

namespace disk_access {

namespace {

static_assert(sizeof(time_t) >= 8, "times of the disk are unsigned: a 32-bit time_t ends in 2038");

/// Adds the counts of all channels, also of those that are not in the block's channel set. In 64 bits: a
/// count may have any value.
uint64_t Sum(const uint32_t (&counts)[kChannels]) {
    uint64_t sum = 0;
    for (const uint32_t count : counts) {
        sum += count;
    }
    return sum;
}

} // namespace

void* ScratchBuffer::Get(size_t size) {
    if (size > m_size) {
        void* const grown = std::realloc(m_memory, size);
        if (grown == nullptr) {
            std::free(m_memory);
        }
        m_memory = grown;
        m_size = grown == nullptr ? 0 : size;
    }
    return m_memory;
}

void BlockPrinter::Print(uint32_t block) {
    const uint64_t start = m_geometry.BlockStart(BLOCK_BASE_OFFSET, block);
    m_out.print(m_out.ctx, "\n\n");
    m_out.print(m_out.ctx, "[NUM] : %d, %lld\n", Decimal(block), static_cast<long long>(start));
    m_out.print(m_out.ctx, "*********************BLOCK HEAD********************** \n");
    BlockHead_t head = {};
    if (!m_device.ReadAt(start, &head, sizeof head)) {
        return;
    }
    PrintHead(head);
    if (head.RecSeq == 0) {
        return; // never written: the data after the head is not valid
    }
    if (m_detailed) {
        PrintDetail(head);
        if (!PrintIndex(start)) {
            return;
        }
    }
    PrintTails(start);
}

void BlockPrinter::PrintHead(const BlockHead_t& head) const {
    m_out.print(m_out.ctx, "ValidFlag : 0x%08x\n", head.ValidFlag);
    m_out.print(m_out.ctx, "RecSeq : %d\n", Decimal(head.RecSeq));
    m_out.print(m_out.ctx, "RecTime : %d, ", Decimal(head.RecTime));
    PrintTime(head.RecTime);
}

void BlockPrinter::PrintDetail(const BlockHead_t& head) const {
    m_out.print(m_out.ctx, "*********************BLOCK DETAIL********************** \n");
    m_out.print(m_out.ctx, "pre_RecTime : %d\n", Decimal(head.pre_RecTime));
    m_out.print(m_out.ctx, "AlmDelayTime : %d\n", Decimal(head.AlmDelayTime));
    m_out.print(m_out.ctx, "VehicleID : %s\n", FieldText(head.VehicleID).chars);
    m_out.print(m_out.ctx, "VehicleNum : %s\n", FieldText(head.VehicleNum).chars);
    m_out.print(m_out.ctx, "media_chn_bitmap : 0x%08x\n", head.media_chn_bitmap);
    for (uint32_t chn = 0; chn < kChannels; ++chn) {
        if (HasChannel(head.media_chn_bitmap, chn)) {
            PrintProperties(Decimal(chn), head.prop[chn]);
        }
    }
}

void BlockPrinter::PrintProperties(int chn, const ChnProp_t& prop) const {
    m_out.print(m_out.ctx, "prop[%d] : VType = %d\n", chn, int{prop.VType});
    m_out.print(m_out.ctx, "prop[%d] : FrameRate = %d\n", chn, int{prop.FrameRate});
    m_out.print(m_out.ctx, "prop[%d] : Resolution = %d\n", chn, int{prop.Resolution});
    m_out.print(m_out.ctx, "prop[%d] : AType = %d\n", chn, int{prop.AType});
    m_out.print(m_out.ctx, "prop[%d] : Bitrate = %d\n", chn, Decimal(prop.Bitrate));
    m_out.print(m_out.ctx, "prop[%d] : gop = %d\n", chn, int{prop.gop});
    m_out.print(m_out.ctx, "prop[%d] : Sample = %d\n", chn, Decimal(prop.Sample));
    m_out.print(m_out.ctx, "prop[%d] : BitWidth = %d\n", chn, Decimal(prop.BitWidth));
    m_out.print(m_out.ctx, "prop[%d] : audio_frame_len = %d\n", chn, Decimal(prop.audio_frame_len));
}

bool BlockPrinter::PrintIndex(uint64_t start) {
    // The area ends at the block's end, also if a forged block is smaller than the area.
    const uint64_t end = start + m_geometry.blkSize;
    const uint64_t indexStart = end - m_geometry.IndexAreaSize();
    BlkIndexHead_t index = {};
    if (!m_device.ReadAt(indexStart, &index, sizeof index)) {
        return false;
    }
    const uint64_t segments = Sum(index.recSegCount);
    const uint64_t segmentStart = indexStart + sizeof index + Sum(index.iframeCount) * sizeof(IFrameItem_t);
    const uint64_t eventStart = segmentStart + segments * sizeof(RecSegItem_t);
    if (eventStart + uint64_t{index.eventCount} * sizeof(EventIndexItem_t) > end) {
        return false;
    }
    return PrintSegments(segmentStart, static_cast<uint32_t>(segments)) &&
           PrintEvents(eventStart, index.eventCount);
}

bool BlockPrinter::PrintSegments(uint64_t offset, uint32_t count) {
    if (count == 0) {
        return true;
    }
    const auto* const segments = Load<RecSegItem_t>(offset, count);
    if (segments == nullptr) {
        return false;
    }
    m_out.print(m_out.ctx, "Rec Seg : count = %d\n", Decimal(count));
    for (uint32_t i = 0; i < count; ++i) {
        const RecSegItem_t& segment = segments[i];
        m_out.print(m_out.ctx, "  s = %d, e = %d, spos = %d, epos = %d, totalsize = %d\n", Decimal(segment.s),
                    Decimal(segment.e), Decimal(segment.spos), Decimal(segment.epos),
                    Decimal(segment.totalsize));
    }
    return true;
}

bool BlockPrinter::PrintEvents(uint64_t offset, uint32_t count) {
    if (count == 0) {
        return true;
    }
    const auto* const events = Load<EventIndexItem_t>(offset, count);
    if (events == nullptr) {
        return false;
    }
    m_out.print(m_out.ctx, "Event : count = %d\n", Decimal(count));
    for (uint32_t i = 0; i < count; ++i) {
        const EventIndexItem_t& event = events[i];
        m_out.print(m_out.ctx, "  info : pts = %lld, pos = %d, type = %lld\n",
                    static_cast<long long>(event.pts), Decimal(event.pos),
                    static_cast<long long>(event.type));
    }
    return true;
}

void BlockPrinter::PrintTails(uint64_t start) const {
    m_out.print(m_out.ctx, "*******************BLOCK TAIL******************* \n");
    const uint64_t tailStart = start + m_geometry.blkSize - m_geometry.tailAreaSize;
    BlockTail_t tail = {};
    if (!m_device.ReadAt(tailStart, &tail, sizeof tail)) {
        return;
    }
    m_out.print(m_out.ctx, "RecSeq : %d\n", Decimal(tail.RecSeq));
    m_out.print(m_out.ctx, "StartTime : %d, ", Decimal(tail.StartTime));
    PrintTime(tail.StartTime);
    m_out.print(m_out.ctx, "EndTime : %d, ", Decimal(tail.EndTime));
    PrintTime(tail.EndTime);

    // The normal layout has no extended tail: the beginning of the next block is printed instead.
    BlockTailEx_t tailEx = {};
    if (!m_device.ReadAt(tailStart + sizeof tail, &tailEx, sizeof tailEx)) {
        return;
    }
    m_out.print(m_out.ctx, "Ex RecSeq : %d\n", Decimal(tailEx.RecSeq));
    m_out.print(m_out.ctx, "Ex StartTime : %d, ", Decimal(tailEx.StartTime));
    PrintTime(tailEx.StartTime);
    m_out.print(m_out.ctx, "Ex EndTime : %d, ", Decimal(tailEx.EndTime));
    PrintTime(tailEx.EndTime);
}

void BlockPrinter::PrintTime(uint32_t seconds) const {
    const time_t time = seconds;
    std::tm local = {};
    char line[32];
    const bool known = localtime_r(&time, &local) != nullptr &&
                       std::strftime(line, sizeof line, "[%Y.%m.%d %H:%M:%S]\n", &local) != 0;
    m_out.Text(known ? line : "\n");
}

template <typename Entry>
const Entry* BlockPrinter::Load(uint64_t offset, uint32_t count) {
    const uint64_t bytes = uint64_t{count} * sizeof(Entry);
    if (offset + bytes > m_deviceSize) {
        return nullptr; // it cannot be read: no memory is allocated
    }
    void* const entries = m_scratch.Get(static_cast<size_t>(bytes));
    const bool read = entries != nullptr && m_device.ReadAt(offset, entries, static_cast<size_t>(bytes));
    return read ? static_cast<const Entry*>(entries) : nullptr;
}

} // namespace disk_access
