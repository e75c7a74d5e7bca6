#ifndef DISK_ACCESS_SEARCH_DISK_H
#define DISK_ACCESS_SEARCH_DISK_H

/// @file search_disk.h
/// Finds what is on a partition: the search interface for applications.

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
/// Lists belong to the caller; searches append to them and never empty them. A list must not be null unless
/// the operation says that it may be. If there is no memory for a list element, std::bad_alloc is thrown;
/// what was appended before stays in the list.
///
/// Every operation returns -1 before Init() and after Quit() (MixBuildList(): 0). If the partition could not
/// be opened, operations that count return 0 and the others -1. Use an object from one thread at a time.
class DISK_ACCESS_API CSearchDisk {
public:
    /// Makes an object without a partition.
    CSearchDisk();
    /// Calls Quit().
    virtual ~CSearchDisk();

    CSearchDisk(const CSearchDisk&) = delete;
    CSearchDisk& operator=(const CSearchDisk&) = delete;

    /// Opens a partition. @p part is copied. The result is 0 also when the path cannot be opened or is not a
    /// recording partition: searches then find nothing, and GetEncryptInfo() fails. No channel is hidden
    /// until CheckEncryptInfo() refuses a password.
    /// @return 0; -1: already initialised, @p part is null, or no memory
    int Init(PartAccess_t* part);

    /// Closes the partition and releases everything. Lists that were filled stay valid.
    /// @return 0; -1: not initialised
    int Quit();

    /// Appends the records of a request, oldest block first. Channels that the access lock hides are left
    /// out.
    ///
    /// With an alarm mask of 0 these are the record segments that overlap the request, clipped to it.
    ///
    /// With any other mask they are the parts of those records around events of these types. The window of an
    /// event begins at its pre-record time before it and ends at its alarm delay after it. If a window begins
    /// inside the one before it, the two become one, which ends where the later one ends. Each record is cut
    /// to each window that it overlaps; the mask becomes its alarm type, and its size is not changed. For the
    /// last window, each coarse record (flag 1) is appended a second time: cut if it overlaps that window,
    /// else whole. Parts of one second or less are left out. Without such events nothing is appended.
    /// @return the number appended; -1: not initialised, or @p param is null
    int SearchMedia(SearchParam_t* param, CCommList<RecordItem_t>* out);

    /// Appends the records and events of block @p unit. Records of channels that the access lock hides are
    /// left out.
    /// @param events may be null
    /// @return the number of records appended
    int SearchUnitMedia(unsigned int unit, CCommList<RecordItem_t>* recs, CCommList<EventItem_t>* events);

    /// Appends the events of a request: those of blocks that were closed, later than its start and earlier
    /// than its end, whose type has a bit of its mask. A request that starts after the newest block's start
    /// finds none.
    /// @param param its channel is not used
    /// @return the number appended
    int SearchEvent(SearchParam_t* param, CCommList<EventItem_t>* out);

    /// Appends the records of a request, oldest block first, each cut where alarms begin and end. Around
    /// every event is a period, which begins, ends and is joined as the windows of SearchMedia(). A piece
    /// inside a period gets the types of all events of the period, a piece outside gets 0.
    ///
    /// With a nonzero alarm mask, only pieces inside periods whose types have a bit of the mask are appended.
    /// Outside periods, only the channels of the block's extension parameter are appended (BlkExtHead_t; all
    /// if it is not set). Records of one second or less are left out. The same segment of several channels of
    /// a block is cut by the time span of the first channel.
    /// @return the number appended; -1: not initialised, or @p param is null
    int MixSearch(SearchParam_t* param, CCommList<RecordItem_t>* out);

    /// Appends all events of block @p unit to @p evOut, and its records to @p out, with alarm type 0.
    /// @param evOut may be null
    /// @return the number of records appended
    int MixSearchUnit(unsigned int unit, CCommList<RecordItem_t>* out, CCommList<EventItem_t>* evOut);

    /// Does the cutting of MixSearch(): empties @p recs and @p events, and appends the pieces to @p out.
    /// @pre @p recs and @p out are different lists
    /// @param param only its alarm mask is used
    /// @return the number appended; 0 also when not initialised or when an argument is null
    int MixBuildList(CCommList<RecordItem_t>* recs, CCommList<EventItem_t>* events, SearchParam_t* param,
                     CCommList<RecordItem_t>* out);

    /// Appends the days that have recordings, each as its first second in UTC plus one. A day that is in the
    /// list already is not added again.
    /// @return the number of days in the list; 0 if nothing was recorded
    int GetDateInfo(CCommList<unsigned int>* days);

    /// Appends the blocks that have recordings, oldest first.
    /// @return the number appended
    int GetUnitInfo(CCommList<UnitItem_t>* units);

    /// Appends the blocks that cannot be used: bad or suspect ones (with time 0), and those without data.
    /// @return the number appended
    int GetInvalidUnit(CCommList<UnitItem_t>* units);

    /// Gets the size of the ring and of the part that was never written, in bytes.
    /// @return 0; -1: failure, or @p info is null
    int GetSpaceInfo(DiskSpaceInfo_t* info);

    /// Gets the mode of the access lock, PartHead_t::Encrypt; 0 and 2 mean that there is no lock.
    /// @return 0; -1: failure, or @p encrypt is null
    int GetEncryptInfo(unsigned int* encrypt);

    /// Checks the disk's password. After a wrong one, media searches leave out the locked channels
    /// (EncryptMap in the partition head); after the right one they find all channels again.
    /// @param password NUL-terminated text
    /// @return 0: accepted, or there is no lock; -1: refused
    int CheckEncryptInfo(unsigned char* password);

    /// Finds the block that was recorded last.
    /// @return its number; 0 also when there is none
    int GetLastRecBlockId();

    /// Answers one of two questions.
    /// @param what 0: number of channels recorded in block @p unit; 1: number of blocks in the ring
    /// @return the number; 0 for other values of @p what; -1: it cannot be read
    int GetBlockRecMap(unsigned int unit, int what);

private:
    struct DiskSearchState_t* m_pState = nullptr;
};

/// Computes the intersection of [@p a0, @p a1] and [@p b0, @p b1]. Both ends belong to an interval;
/// comparisons are unsigned.
/// @param o0, o1 get the intersection; unchanged if there is none
/// @return 0; -1: the first interval is after the second; 1: it is before the second
DISK_ACCESS_API int IntervalIntersection(unsigned int a0, unsigned int a1, unsigned int b0, unsigned int b1,
                                         unsigned int* o0, unsigned int* o1);

#endif // DISK_ACCESS_SEARCH_DISK_H
