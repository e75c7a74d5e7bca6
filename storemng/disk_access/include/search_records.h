#ifndef DISK_ACCESS_SEARCH_RECORDS_H
#define DISK_ACCESS_SEARCH_RECORDS_H

/// @file search_records.h
/// The records of the search interface. They contain no pointers and can be copied and zeroed; their layout
/// is the same on every target. Times are seconds since 1970-01-01 UTC.

#include <stdint.h>

#include "comm_list"
#include "disk_access_api.h"

#pragma pack(push, 4)

/// A search request.
struct SearchParam_t {
    uint64_t alarmMask; ///< event type bits. For a media search 0 asks for plain records, any other value for
                        ///< those around events of these types. For an event search it selects the events
    uint32_t startTime; ///< first second
    uint32_t endTime;   ///< last second, at most 0x7FFFFFFF. Blocks compare seconds as signed numbers: with a
                        ///< later end, nothing that was recorded before 0x80000000 is found
    uint32_t chn;       ///< channel 0 to 31, or 0xFFFFFFFF for all
};

/// A record segment found.
struct RecordItem_t {
    uint64_t alarmType; ///< type bits of an event inside the segment; 0: a plain record
    uint32_t recId; ///< block number in bits 16-31, channel in bits 9-15, segment of the channel in bits 0-8
    uint32_t chn;   ///< channel, 0 to 31
    uint32_t startTime; ///< start, clipped to the search
    uint32_t endTime;   ///< end, clipped to the search
    uint32_t size; ///< bytes of the segment's part inside the search; cuts around alarms do not change it.
                   ///< NO_INDEX_RECORD_SIZE for a record made without an index
    uint32_t flag; ///< 0: from a block's index; 1: made from the head of a block without a usable index;
                   ///< 2: has its own time window, with @c size as its start position
};

/// An event found.
struct EventItem_t {
    uint64_t alarmType; ///< type bits
    uint32_t eventId;   ///< block number in bits 16-31, low 16 bits of the entry in the block's event table
    uint32_t time;      ///< the event's time
};

/// A period of one event, or of several whose periods overlap.
struct EventPeriodItem_t {
    uint64_t alarmType; ///< type bits of all events joined
    uint32_t startTime; ///< the first event, less its pre-record time
    uint32_t endTime;   ///< the last event, plus its alarm delay time
};

/// One block of a unit list.
struct UnitItem_t {
    uint32_t unitId;  ///< block number
    uint32_t recTime; ///< start of its recording; 0 for a bad or suspect block, whose head is not read
};

/// A block with its time span.
struct UnitTimeItem_t {
    uint32_t unitId;    ///< block number
    uint32_t startTime; ///< start of its recording
    uint32_t endTime;   ///< end of its recording; the start again if the block was never closed
};

/// The input for a search region.
struct InputTime_t {
    uint32_t startTime;  ///< the request's start
    uint32_t endTime;    ///< the request's end
    uint32_t oldestTime; ///< start of the oldest block
    uint32_t newestTime; ///< start (not end) of the newest block
};

/// A search region.
struct OutputTime_t {
    uint32_t startTime; ///< first second; not before the oldest block's start
    uint32_t endTime; ///< last second; not after the newest block's start, unless the region begins after it
};

/// The space report.
struct DiskSpaceInfo_t {
    uint64_t totalSize; ///< bytes of the ring
    uint64_t freeSize;  ///< bytes never written; 0 after the ring has wrapped
};

#pragma pack(pop)

// The instances are in the library, so that callers and the library share one copy of each.
extern template class DISK_ACCESS_API CCommList<RecordItem_t>;
extern template class DISK_ACCESS_API CCommList<EventItem_t>;
extern template class DISK_ACCESS_API CCommList<EventPeriodItem_t>;
extern template class DISK_ACCESS_API CCommList<UnitItem_t>;
extern template class DISK_ACCESS_API CCommList<unsigned int>;

#endif // DISK_ACCESS_SEARCH_RECORDS_H
