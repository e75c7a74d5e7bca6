#ifndef DISK_ACCESS_DISK_FORMAT_H
#define DISK_ACCESS_DISK_FORMAT_H

/// @file disk_format.h
/// The structures on a recording partition: the partition head, and the parts of one block.
///
///     device  0            PartHead_t
///             BBTabOffs    bad-block bits, (BlkCount + 7) / 8 bytes, block n in bit n % 8 of byte n / 8
///             BBCounterOffs  suspect counters, one byte per block
///             0x800000     block 0, block 1, ... block BlkCount - 1, BlkSize bytes each
///
///     block   0            BlockHead_t, then BlkExtHead_t (extended layout)
///             head area    frames, each a FrameHead_t and its payload, packed
///             index area   BlkIndexHead_t, then the I-frame, record-segment and event tables, packed
///             tail area    BlockTail_t, then BlockTailEx_t (extended layout)
///
/// FmtVersion 1 is the extended layout (head area 2048 bytes, tail area 512), every other value the normal
/// one (840 and 20). Everything is little-endian. Times are seconds since 1970-01-01 UTC; time stamps are
/// microseconds since then. Positions (pos, spos, epos) are byte offsets from the start of the frame area. A
/// text field that is full has no terminating NUL.

#include <stdint.h>

#if !defined(__BYTE_ORDER__) || __BYTE_ORDER__ != __ORDER_LITTLE_ENDIAN__
#error "libDiskAccess reads little-endian structures in place: it needs a little-endian target"
#endif

/// Device offset of block 0. A constant of the format, not a field of the head.
static const uint32_t BLOCK_BASE_OFFSET = 0x800000u;
/// BlockHead_t::ValidFlag of a block that holds data, and FrameHead_t::sync of every frame.
static const uint32_t BLOCK_MAGIC = 0xAA55AA55u;
/// PartHead_t::FormatFlag for most disk types.
static const uint32_t PART_MAGIC = 0xAA55AA55u;
/// PartHead_t::FormatFlag for disk types 52, 19 and 34.
static const uint32_t PART_MAGIC_ALT = 0xAA55AA50u;
/// RecordItem_t::size of a record that was made without an index.
static const uint32_t NO_INDEX_RECORD_SIZE = 0x3C00000u;

#pragma pack(push, 4)

/// The partition head, at device offset 0.
struct PartHead_t {
    uint32_t FormatFlag;       ///< PART_MAGIC or PART_MAGIC_ALT
    uint32_t FmtVersion;       ///< 1: extended block layout; any other value: normal
    uint32_t BlkCount;         ///< blocks in the ring
    uint32_t BlkSize;          ///< bytes per block
    uint32_t BBTabOffs;        ///< device offset of the bad-block bits
    uint32_t BBCounterOffs;    ///< device offset of the suspect counters
    uint32_t BBTabBakOffs;     ///< device offset of the backup of the bad-block bits
    uint32_t BBCounterBakOffs; ///< device offset of the backup of the suspect counters
    char Description[32];      ///< free text
    uint32_t Encrypt;          ///< access lock: active when any bit other than that of value 2 is set
    uint32_t EncryptMap;       ///< channels that the lock hides, bit n for channel n
    char CipherCode[128];      ///< the lock's password; only the first 127 characters are used
};

/// The encoding parameters of one channel. The codes are the recorder's; the library passes them through.
struct ChnProp_t {
    uint32_t Bitrate;         ///< video bit rate
    uint8_t VType;            ///< video encoding
    uint8_t FrameRate;        ///< frames per second
    uint8_t Resolution;       ///< picture size
    uint8_t gop;              ///< frames from one I-frame to the next
    uint32_t Sample;          ///< audio samples per second
    uint32_t BitWidth;        ///< bits per audio sample
    uint32_t audio_frame_len; ///< bytes per audio frame
    uint8_t AType;            ///< audio encoding
    uint8_t propRes;          ///< another code
    uint8_t Reserved[2];      ///< not used
};

/// The block head, at block offset 0.
struct BlockHead_t {
    uint32_t ValidFlag;        ///< BLOCK_MAGIC; with any other value the block is invalid
    uint32_t RecTime;          ///< start of the block's recording; 0: formatted, never recorded
    uint32_t RecSeq;           ///< sequence number: one higher in each block recorded; 0: never written
    uint32_t pre_RecTime;      ///< seconds recorded before an alarm
    uint32_t AlmDelayTime;     ///< seconds recorded after an alarm
    char VehicleNum[16];       ///< text
    char VehicleID[32];        ///< text
    uint32_t media_chn_bitmap; ///< bit n set: channel n is present in the block
    ChnProp_t prop[32];        ///< one per channel
};

/// The extended block head, at block offset 840 (extended layout only).
struct BlkExtHead_t {
    uint32_t ExtParaValid; ///< nonzero: ExtPara is set
    uint32_t ExtPara;      ///< the record's extension parameter, a channel set
    uint8_t Reserved[56];  ///< not used
};

/// The block tail, at the start of the tail area; written when the block is closed.
struct BlockTail_t {
    uint32_t Reserved;   ///< not used
    uint32_t CloseState; ///< closing state; CReadPart::IsValidBlock() compares it with 0 and 1
    uint32_t RecSeq;     ///< copy of the head's: the index is complete when the two are equal
    uint32_t StartTime;  ///< start of the block's media
    uint32_t EndTime;    ///< time of the block's last media frame
};

/// The extended block tail, directly after the block tail (extended layout only).
struct BlockTailEx_t {
    uint32_t RecSeq;    ///< copy of the head's: the index is complete also when these two are equal
    uint32_t StartTime; ///< as BlockTail_t::StartTime; searches do not use it
    uint32_t EndTime;   ///< as BlockTail_t::EndTime; searches do not use it
};

/// The head of the index area. Only channels present in BlockHead_t::media_chn_bitmap have tables.
struct BlkIndexHead_t {
    uint32_t iframeCount[32]; ///< I-frame entries of each channel
    uint32_t recSegCount[32]; ///< record segments of each channel
    uint32_t eventCount;      ///< events of the block
};

/// An I-frame of a channel.
struct IFrameItem_t {
    int64_t pts;       ///< time stamp
    uint32_t pos;      ///< position of its frame head
    uint32_t Reserved; ///< not used; zero in an entry rebuilt from frames
};

/// A record segment: one continuous part of one channel's recording inside the block.
struct RecSegItem_t {
    uint32_t s;         ///< start time
    uint32_t e;         ///< end time
    uint32_t spos;      ///< position of its first frame head
    uint32_t epos;      ///< position where it ends
    uint32_t totalsize; ///< its size in bytes
};

/// An event of the block.
struct EventIndexItem_t {
    uint64_t type;     ///< type bits, as in EventHead_t
    int64_t pts;       ///< time stamp
    uint32_t pos;      ///< position of its frame head
    uint32_t Reserved; ///< not used; zero in an entry rebuilt from frames
};

/// The head of every frame. The next one follows at pos + 24 + len.
struct FrameHead_t {
    int64_t pts;   ///< time stamp
    uint32_t sync; ///< BLOCK_MAGIC
    uint32_t type; ///< 0 to 2: media (1: video I-frame); 4: event; any other value: other data
    uint32_t chn;  ///< channel, 0 to 31
    uint32_t len;  ///< payload bytes
};

/// The start of an event frame's payload.
struct EventHead_t {
    uint64_t type;        ///< one bit per kind of alarm or event
    uint8_t Reserved1;    ///< not used
    uint8_t Indexed;      ///< 1: the block's event table has an entry for the frame
    uint8_t Reserved2[6]; ///< not used
};

#pragma pack(pop)

#endif // DISK_ACCESS_DISK_FORMAT_H
