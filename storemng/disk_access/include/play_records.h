#ifndef DISK_ACCESS_PLAY_RECORDS_H
#define DISK_ACCESS_PLAY_RECORDS_H

/// @file play_records.h
/// The records of the playback interface. Layouts are the same on every target, except for the pointer in
/// PartReadHandle_st.

#include <stdint.h>

#include "search_records.h"

#pragma pack(push, 4)

/// A frame that was read: its FrameHead_t (disk_format.h) without the sync word.
struct FrameInfo_t {
    uint64_t pts;  ///< time stamp, microseconds since 1970-01-01 UTC
    uint32_t type; ///< 0 to 2: media (1: video I-frame); 4: event; any other value: other data
    uint32_t chn;  ///< channel, 0 to 31
    uint32_t len;  ///< payload bytes
};

/// The encoding parameters of a record's channel, and the vehicle, from the head of the record's block. The
/// codes are the recorder's.
struct EncodeParam_t {
    uint32_t pre_RecTime;     ///< seconds recorded before an alarm, BlockHead_t::pre_RecTime
    uint32_t AlmDelayTime;    ///< seconds recorded after an alarm, BlockHead_t::AlmDelayTime
    uint32_t chn;             ///< channel, from the record's id
    uint32_t VType;           ///< ChnProp_t::VType
    uint32_t FrameRate;       ///< frames per second, ChnProp_t::FrameRate
    uint32_t AType;           ///< ChnProp_t::AType
    uint32_t Bitrate;         ///< ChnProp_t::Bitrate
    uint32_t gop;             ///< frames from one I-frame to the next, ChnProp_t::gop
    uint32_t Sample;          ///< audio samples per second, ChnProp_t::Sample
    uint32_t BitWidth;        ///< bits per audio sample, ChnProp_t::BitWidth
    uint32_t audio_frame_len; ///< bytes per audio frame, ChnProp_t::audio_frame_len
    uint32_t propRes;         ///< ChnProp_t::propRes
    uint32_t Resolution;      ///< ChnProp_t::Resolution
    char VehicleNum[16];      ///< as in the block head; no terminating NUL when the field is full
    char VehicleID[32];       ///< as in the block head; no terminating NUL when the field is full
};

#pragma pack(pop)

class CReadBlock;

/// One playback reader of a partition. CReadPart::BeginReader() makes it; only CReadPart::EndReader()
/// releases it. Read the fields if you need them, but do not change them.
struct PartReadHandle_st {
    int ChnType;                     ///< 1: reads deliver every channel; 0: only the record's channel
    alignas(8) RecordItem_t RecItem; ///< the record being played
    uint32_t BlockNum;               ///< the block being read: the record's block, or the one after it
    CReadBlock* pBlockObj;           ///< reads that block; owned by this handle
};

#endif // DISK_ACCESS_PLAY_RECORDS_H
