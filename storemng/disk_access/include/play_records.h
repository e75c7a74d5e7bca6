#ifndef DISK_ACCESS_PLAY_RECORDS_H
#define DISK_ACCESS_PLAY_RECORDS_H

/// @file play_records.h
/// The records that cross the playback interface. Layouts are the same on every target, but for the pointer in
/// PartReadHandle_st.

#include <stdint.h>

#include "search_records.h"

#pragma pack(push, 4)

/// A frame as delivered: its FrameHead_t (disk_format.h) without the sync word.
struct FrameInfo_t {
    uint64_t pts;  ///< time stamp, microseconds since 1970-01-01 UTC
    uint32_t type; ///< 0 to 2: media (1: video I-frame); 4: event; others: other data
    uint32_t chn;  ///< channel, 0 to 31
    uint32_t len;  ///< payload bytes
};

/// The encoding parameters of a record's channel, and the vehicle. The codes are the recorder's own.
struct EncodeParam_t {
    uint32_t pre_RecTime;     ///< seconds recorded before an alarm, BlockHead_t::pre_RecTime
    uint32_t AlmDelayTime;    ///< seconds recorded after an alarm, BlockHead_t::AlmDelayTime
    uint32_t chn;             ///< channel, from the record's id
    uint32_t VType;           ///< ChnProp_t::VType
    uint32_t FrameRate;       ///< frames a second, ChnProp_t::FrameRate
    uint32_t AType;           ///< ChnProp_t::AType
    uint32_t Bitrate;         ///< ChnProp_t::Bitrate
    uint32_t gop;             ///< frames from one I-frame to the next, ChnProp_t::gop
    uint32_t Sample;          ///< audio samples a second, ChnProp_t::Sample
    uint32_t BitWidth;        ///< bits an audio sample, ChnProp_t::BitWidth
    uint32_t audio_frame_len; ///< bytes an audio frame, ChnProp_t::audio_frame_len
    uint32_t propRes;         ///< ChnProp_t::propRes
    uint32_t Resolution;      ///< ChnProp_t::Resolution
    char VehicleNum[16];      ///< as in the block head; not terminated when it fills the field
    char VehicleID[32];       ///< as in the block head; not terminated when it fills the field
};

#pragma pack(pop)

class CReadBlock;

/// One playback reader of a partition. Made by CReadPart::BeginReader(), released by CReadPart::EndReader().
struct PartReadHandle_st {
    int ChnType;                     ///< 1: every channel of the block is delivered; 0: the record's alone
    alignas(8) RecordItem_t RecItem; ///< the record being played
    uint32_t BlockNum;               ///< the block being read: the record's own, or the one that continues it
    CReadBlock* pBlockObj;           ///< its reader; owned
};

#endif // DISK_ACCESS_PLAY_RECORDS_H
