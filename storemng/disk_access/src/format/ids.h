#ifndef DISK_ACCESS_FORMAT_IDS_H
#define DISK_ACCESS_FORMAT_IDS_H

#include <cstdint>

namespace disk_access {

/// Record id: block number in bits 16-31, channel in bits 9-15, segment of the channel in bits 0-8.
constexpr uint32_t MakeRecordId(uint32_t block, uint32_t chn, uint32_t segment) {
    return block << 16 | chn << 9 | (segment & 0x1FF);
}

/// RecordItem_t::flag: how a record was made, and so how playback finds its frames.
constexpr uint32_t kIndexedRecord = 0;    ///< a segment of a block's index
constexpr uint32_t kWholeBlockRecord = 1; ///< a block without a usable index
constexpr uint32_t kOwnWindowRecord = 2;  ///< has its own time window

/// Event id: block number in bits 16-31, entry of the block's event table in bits 0-15.
constexpr uint32_t MakeEventId(uint32_t block, uint32_t entry) {
    return block << 16 | (entry & 0xFFFF);
}

/// The block that a record or event id names.
constexpr uint32_t BlockOfId(uint32_t id) {
    return id >> 16;
}

/// The channel that a record id names: up to 127, although channels end at 31.
constexpr uint32_t ChannelOfId(uint32_t recId) {
    return recId >> 9 & 0x7F;
}

/// The segment that a record id names, an entry of its channel's record-segment table.
constexpr uint32_t SegmentOfId(uint32_t recId) {
    return recId & 0x1FF;
}

} // namespace disk_access

#endif // DISK_ACCESS_FORMAT_IDS_H
