#ifndef DISK_ACCESS_SEARCH_DISK_H
#define DISK_ACCESS_SEARCH_DISK_H

/// @file search_disk.h
/// What is on this partition? The search interface that applications use.

#include "dev_io.h"
#include "search_records.h"

/// Searches a recording partition.
///
///     PartAccess_t part = {};
///     snprintf(part.PartName, sizeof part.PartName, "/dev/sda5");
///     CSearchDisk disk;
///     disk.Init(&part);
///     SearchParam_t request = {0, from, to, 0xFFFFFFFF};
///     CCommList<RecordItem_t> records;
///     int found = disk.SearchMedia(&request, &records);
///
/// Lists belong to the caller; searches append to them and never empty them. Every operation but the
/// constructor and Init() returns -1 when the object is not initialised. An object belongs to one thread at a
/// time.
class DISK_ACCESS_API CSearchDisk {
public:
    /// An object without a partition.
    CSearchDisk();
    /// Calls Quit().
    virtual ~CSearchDisk();

    CSearchDisk(const CSearchDisk&) = delete;
    CSearchDisk& operator=(const CSearchDisk&) = delete;

    /// Opens @p part, which is copied. A partition that cannot be opened, or is none, does not fail here:
    /// searches then find nothing. No channel is hidden until CheckEncryptInfo() says so.
    /// @return 0; -1: initialised already, no argument, or no memory
    int Init(PartAccess_t* part);

    /// Closes the partition and releases everything.
    int Quit();

    /// Appends the records of a request, oldest block first, without the channels that the access lock hides.
    ///
    /// With an alarm mask of 0 these are the record segments that overlap the request, clipped to it. With
    /// any other, windows are laid around the events of these types (from the pre-record time before the
    /// event to the alarm delay after it, overlapping ones joined), and each record is cut to each window it
    /// meets, with the mask as its alarm type and its size unchanged. With the last window each coarse record
    /// (flag 1) comes once more, as cut if it met that window, else whole. Pieces of one second or less are
    /// left out.
    /// @return the number appended; -1 also without a request
    int SearchMedia(SearchParam_t* param, CCommList<RecordItem_t>* out);

    /// Appends all records and events of block @p unit.
    /// @param events may be null
    /// @return the number of records appended
    int SearchUnitMedia(unsigned int unit, CCommList<RecordItem_t>* recs, CCommList<EventItem_t>* events);

    /// Appends the events strictly between the request's start and end whose type meets its mask.
    /// @return the number appended
    int SearchEvent(SearchParam_t* param, CCommList<EventItem_t>* out);

    /// Appends the records of a request, oldest block first, each cut where alarms begin and end. Around every
    /// event lies a period, from the pre-record time before it to the alarm delay after it; periods that run
    /// into each other are one. A piece inside a period carries the types of all its events, a piece outside
    /// carries none.
    ///
    /// With a nonzero alarm mask only pieces come whose types meet it. Outside periods, only the channels come
    /// that the block's extended head lets show (all without one), and records of one second or less do not.
    /// The same segment of several channels of a block is cut by the span of the first.
    /// @return the number appended; -1 also without a request
    int MixSearch(SearchParam_t* param, CCommList<RecordItem_t>* out);

    /// Appends all events of block @p unit to @p evOut, and all its records, as plain ones, to @p out.
    /// @param evOut may be null
    /// @return the number of records appended
    int MixSearchUnit(unsigned int unit, CCommList<RecordItem_t>* out, CCommList<EventItem_t>* evOut);

    /// The cutting of MixSearch(): empties @p recs and @p events, and appends the pieces to @p out, which must be
    /// another list than @p recs.
    /// @param param only its alarm mask counts
    /// @return the number appended; 0 when not initialised, or without one of the arguments
    int MixBuildList(CCommList<RecordItem_t>* recs, CCommList<EventItem_t>* events, SearchParam_t* param,
                     CCommList<RecordItem_t>* out);

    /// Adds the days that hold recordings: each the day's first second UTC, plus one.
    /// @return the number of days in the list
    int GetDateInfo(CCommList<unsigned int>* days);

    /// Appends the blocks that hold recordings, oldest first.
    /// @return the number appended
    int GetUnitInfo(CCommList<UnitItem_t>* units);

    /// Appends the blocks that cannot be used: bad, suspect, or without data.
    /// @return the number appended
    int GetInvalidUnit(CCommList<UnitItem_t>* units);

    /// Reports the ring's size and the part of it that was never written.
    /// @return 0, or -1
    int GetSpaceInfo(DiskSpaceInfo_t* info);

    /// Gives the access lock's mode; 0 and 2 mean that there is no lock.
    /// @return 0, or -1
    int GetEncryptInfo(unsigned int* encrypt);

    /// Checks the disk's password. A wrong one hides the locked channels from media searches from now on, the
    /// right one shows them again.
    /// @param password NUL-terminated text
    /// @return 0: accepted, or no lock; -1: refused
    int CheckEncryptInfo(unsigned char* password);

    /// Finds the block recorded last.
    /// @return its number; 0 also when there is none
    int GetLastRecBlockId();

    /// @param what 0: number of channels recorded in block @p unit; 1: number of blocks in the ring
    /// @return the number asked for, 0 for any other question; -1 when it cannot be read
    int GetBlockRecMap(unsigned int unit, int what);

private:
    struct DiskSearchState_t* m_pState = nullptr;
};

/// Intersects [@p a0, @p a1] with [@p b0, @p b1] (unsigned; touching intervals meet in one point).
/// @param o0, o1 the intersection; left alone when there is none
/// @return 0; -1 when a lies after b; 1 when b lies after a
DISK_ACCESS_API int IntervalIntersection(unsigned int a0, unsigned int a1, unsigned int b0, unsigned int b1,
                                         unsigned int* o0, unsigned int* o1);

#endif // DISK_ACCESS_SEARCH_DISK_H
