#ifndef DISK_ACCESS_SEARCH_PART_H
#define DISK_ACCESS_SEARCH_PART_H

/// @file search_part.h
/// A whole partition, as a search sees it: where its ring begins and ends, and what lies between.

#include "dev_io.h"
#include "disk_format.h"
#include "search_records.h"

/// Searches one partition.
///
/// Open it with Init() and close it with Quit(): the destructor releases nothing. The bad-block tables are
/// read once, when first needed; everything else is read from the disk by every search, which therefore sees
/// what the recorder has written meanwhile. Operations on a closed object fail (-1), find nothing (0), or
/// hold a block for bad, as their results say. An object belongs to one thread at a time.
class DISK_ACCESS_API CSearchPart {
public:
    /// A closed object.
    CSearchPart();
    /// Releases nothing: call Quit() first.
    virtual ~CSearchPart();

    CSearchPart(const CSearchPart&) = delete;
    CSearchPart& operator=(const CSearchPart&) = delete;

    /// Opens @p part read-only, and first closes what was open. The partition must bear the magic of its disk
    /// type: PART_MAGIC_ALT for 52, 19 and 34, PART_MAGIC for all others.
    /// @return 0, or -1 (no argument, cannot be opened or read, wrong magic): the object is then closed
    int Init(PartAccess_t* part);

    /// Closes the partition and releases everything.
    /// @return 0
    int Quit();

    /// Reads both bad-block tables, unless they are held already.
    /// @return 0, or -1: not open, unreadable, or reaching beyond the device; none is held then
    int GetBadBlockTab();

    /// Tells whether a block may be used; reads the bad-block tables on first use.
    /// @return 1: the block is usable; 0: it is marked bad or suspect, or lies outside the ring, or the
    ///         tables cannot be read
    int IsBadBlock(unsigned int block);

    /// Tells whether a block may be used and holds data, and reads its head. When the head cannot be read,
    /// what @p head held before decides. A usable block without data prints "IsValidBlock: invalid block N".
    /// @param mode, seq accepted and ignored
    /// @return 1 or 0
    int IsValidBlock(unsigned int block, unsigned int mode, unsigned int seq, BlockHead_t* head);

    /// Finds the first valid block from @p from backwards round the ring to @p limit, both included.
    /// @param mode, seq passed on to IsValidBlock()
    /// @param out  the block found; left alone when there is none
    /// @param head the head of the last block looked at
    /// @return 0, or -1 when there is none
    int GetPrevValidBlock(unsigned int mode, unsigned int seq, unsigned int from, unsigned int limit,
                          unsigned int* out, BlockHead_t* head);

    /// GetPrevValidBlock(), forwards.
    int GetNextValidBlock(unsigned int mode, unsigned int seq, unsigned int from, unsigned int limit,
                          unsigned int* out, BlockHead_t* head);

    /// Gives the access lock's mode, PartHead_t::Encrypt.
    /// @return 0, or -1 when not open
    int GetEncrypt(unsigned int* encrypt);

    /// Checks a password against the access lock. The lock is off when its mode is 0 or 2; any password
    /// passes then.
    /// @param lockedMap gets the channels to leave out of media searches: 0, or PartHead_t::EncryptMap when
    ///                  the password is refused
    /// @return 0: passed; -1: refused, or not open
    int CheckEncrypt(const char* password, unsigned int* lockedMap);

    /// Gives the pre-record and alarm-delay times (seconds) of the block that an event or record id names,
    /// from its head; 0 and 0 when it cannot be read.
    /// @return 0
    int GetEventPara(unsigned int eventId, unsigned int* preTime, unsigned int* delayTime);

    /// Gives the extension parameter of the block that an id names, from its extended head; 0xFFFFFFFF when
    /// it has none.
    /// @return 0
    int GetRecordExtPara(unsigned int recId, unsigned int* value);

    /// Prints nothing.
    /// @return 0
    int PrintInitInfo();

    /// Finds the newest block, the one with the highest sequence number, by halving the ring.
    /// @return its number, or -1 when no block is valid, or not open
    int GetLastBlock();

    /// Clips a request to the recorded span.
    /// @param out the region; left alone when the request ends before the oldest recording
    /// @return 1: (oldest, end); 2: (start, end); 3: (oldest, newest); 4: (start, newest); 0: the request
    ///         starts after the newest block's start, (start, end); -1: it ends at or before the oldest
    int GetSearchRegion(InputTime_t in, OutputTime_t* out);

    /// Finds the ring's two ends and clips a request to them.
    /// @return the result of GetSearchRegion(); -1 also when not open, or without an argument
    int InitSearch(SearchParam_t* param, OutputTime_t* out);

    /// Finds the block at which a forward search begins. Needs InitSearch() before.
    /// @param time the region's start
    /// @param code the region's code
    /// @return a block number; -1 when not open
    int GetSearchStartBlock(unsigned int time, unsigned int code);

    /// Finds the block that was being recorded at @p time in the stretch @p lo to @p hi, which must not wrap,
    /// by halving it.
    /// @param seq passed on to the ignored argument of the valid-block walks
    /// @return a block number; @p lo when there is none, and when the stretch has narrowed to one block
    int BinSearchStartBlock(unsigned int lo, unsigned int hi, unsigned int time, unsigned int seq);

    /// Reports the ring's size and the part of it that was never written.
    /// @return 0, or -1 when not open
    int GetSpace(DiskSpaceInfo_t* info);

    /// Appends the records of a request, oldest block first.
    /// @param skipChnMask channels to leave out, bit n for channel n
    /// @return the number appended
    int SearchMedia(SearchParam_t* param, unsigned int skipChnMask, CCommList<RecordItem_t>* out);

    /// Appends the events of a request. A request that starts after the newest block's start finds none.
    /// @return the number appended
    int SearchEvent(SearchParam_t* param, CCommList<EventItem_t>* out);

    /// The walk of SearchMedia() over the ring. Needs InitSearch() before.
    /// @param code the region's code
    /// @return the number appended
    int SearchNormalMedia(unsigned int start, unsigned int end, unsigned int chn, unsigned int skipChnMask,
                          long long alarmMask, unsigned int code, CCommList<RecordItem_t>* out);

    /// The walk of SearchEvent() over the ring. Needs InitSearch() before.
    /// @param code the region's code
    /// @return the number appended
    int SearchNormalEvent(unsigned int start, unsigned int end, long long alarmMask, unsigned int code,
                          CCommList<EventItem_t>* out);

    /// Appends every record and event of one block.
    /// @param events may be null
    /// @return the number of records appended, or -1
    int SearchUnitMedia(unsigned int unit, unsigned int skipChnMask, CCommList<RecordItem_t>* recs,
                        CCommList<EventItem_t>* events);

    /// Appends {@p unit, RecTime of @p head}.
    /// @return @p count + 1
    int AddUnitToList(unsigned int unit, BlockHead_t* head, CCommList<UnitItem_t>* list, int count);

    /// Appends the unusable blocks: bad ones with time 0, those that hold no data with whatever time their
    /// head bears, those that cannot be read with time 0. Where the bad-block tables cannot be read that is
    /// every block, as far as they begin inside the device.
    /// @return the number appended, or -1 when not open
    int GetBadUnitList(CCommList<UnitItem_t>* list);

    /// Appends the recorded blocks from the start block of a region to the newest. Needs InitSearch() before.
    /// @param start the region's start
    /// @param end   not used: the walk always runs to the newest block
    /// @param code  the region's code
    /// @return the number appended
    int SearchUnitList(unsigned int start, unsigned int end, unsigned int code, CCommList<UnitItem_t>* list);

    /// Appends all recorded blocks, oldest first.
    /// @return the number appended
    int GetUnitList(CCommList<UnitItem_t>* list);

    /// @param what 0: number of channels recorded in block @p unit; 1: number of blocks in the ring
    /// @return the number asked for, 0 for any other question; -1 when not open or unreadable
    int GetUnitRecMap(unsigned int unit, int what);

    /// Adds the day of @p t (its first second, plus one) unless the list has it.
    /// @return 0 when @p t is 0, else 1
    int AddDate2List(CCommList<unsigned int>* list, unsigned int t);

    /// Appends a block's start and end times where their local day of the month differs from @p lastDay. The
    /// date map does not use it.
    /// @param lastDay the day of the month last added; updated
    /// @return @p count plus the number appended
    int AddDateToList(BlockHead_t* head, BlockTail_t* tail, CCommList<unsigned int>* list, int count,
                      unsigned int* lastDay);

    /// Collects the days from block @p a to block @p b of the ring by halving: an arc whose two ends lie on
    /// the same day needs no further look.
    /// @return the number of days in the list
    int BinGetDataMap(UnitTimeItem_t* a, UnitTimeItem_t* b, CCommList<unsigned int>* list);

    /// Collects the days from the oldest block to the newest. Needs InitSearch() before.
    /// @param start, end, code not used
    /// @return the number of days in the list
    int SearchDataMap(unsigned int start, unsigned int end, unsigned int code, CCommList<unsigned int>* list);

    /// Collects the days for which the disk holds recordings: each the day's first second UTC, plus one.
    /// @return the number of days in the list
    int GetDateMap(CCommList<unsigned int>* list);

private:
    struct PartSearchState_t* m_pState = nullptr;
};

#endif // DISK_ACCESS_SEARCH_PART_H
