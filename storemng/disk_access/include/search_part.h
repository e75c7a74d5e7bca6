#ifndef DISK_ACCESS_SEARCH_PART_H
#define DISK_ACCESS_SEARCH_PART_H

/// @file search_part.h
/// Searches a whole partition: where its ring begins and ends, and what is in between.

#include "dev_io.h"
#include "disk_format.h"
#include "search_records.h"

/// Searches one partition.
///
/// Open it with Init() and close it with Quit(). The bad-block tables are read once, when they are needed
/// first; everything else is read from the disk by every search, so a search sees what the recorder has
/// written since the last one.
///
/// Pointers must not be null unless the operation says what it does then. Lists belong to the caller;
/// operations append to them. On a closed object operations that count return 0, and the others say what they
/// return. Use an object from one thread at a time.
class DISK_ACCESS_API CSearchPart {
public:
    /// Makes a closed object.
    CSearchPart();
    /// Releases nothing.
    /// @pre Quit() was called
    virtual ~CSearchPart();

    CSearchPart(const CSearchPart&) = delete;
    CSearchPart& operator=(const CSearchPart&) = delete;

    /// Opens @p part read-only. A partition that is open is closed first. The head must have the magic of the
    /// disk type: PART_MAGIC_ALT for 52, 19 and 34, PART_MAGIC for all others.
    /// @return 0; -1: @p part is null, the partition cannot be opened or read, or its magic is wrong. The
    ///         object is closed after -1 (unchanged if @p part was null)
    int Init(PartAccess_t* part);

    /// Closes the partition and releases everything.
    /// @return 0
    int Quit();

    /// Reads both bad-block tables, unless they were read already.
    /// @return 0; -1: not open, or a table cannot be read or would reach beyond the device. No table is kept
    ///         then
    int GetBadBlockTab();

    /// Tells whether a block is usable. Note that the name says the opposite.
    /// @return 1: usable; 0: marked bad or suspect, outside the ring, or the tables cannot be read
    int IsBadBlock(unsigned int block);

    /// Tells whether a block is usable and has data, and reads its head. Prints "IsValidBlock: invalid block
    /// N" for a usable block without data. If the head cannot be read, the previous contents of @p head
    /// decide: initialise it.
    /// @param mode, seq not used
    /// @return 1: valid; 0: not valid
    int IsValidBlock(unsigned int block, unsigned int mode, unsigned int seq, BlockHead_t* head);

    /// Finds the first valid block, going backwards around the ring from @p from to @p limit, both included.
    /// @param mode, seq not used
    /// @param out  the block found; unchanged if there is none
    /// @param head gets the head of the last block that was tested
    /// @return 0; -1: none
    int GetPrevValidBlock(unsigned int mode, unsigned int seq, unsigned int from, unsigned int limit,
                          unsigned int* out, BlockHead_t* head);

    /// As GetPrevValidBlock(), but going forwards.
    int GetNextValidBlock(unsigned int mode, unsigned int seq, unsigned int from, unsigned int limit,
                          unsigned int* out, BlockHead_t* head);

    /// Gets the mode of the access lock, PartHead_t::Encrypt.
    /// @return 0; -1: not open, or @p encrypt is null
    int GetEncrypt(unsigned int* encrypt);

    /// Checks a password against the access lock. There is no lock if its mode is 0 or 2: every password is
    /// then accepted.
    /// @param password  NUL-terminated text; null counts as a wrong password
    /// @param lockedMap gets the channels to leave out of media searches: PartHead_t::EncryptMap if the
    ///                  password is refused, else 0
    /// @return 0: accepted; -1: refused, or not open
    int CheckEncrypt(const char* password, unsigned int* lockedMap);

    /// Gets the pre-record and alarm delay times (seconds) from the head of the block that an event or record
    /// id names; 0 and 0 if it cannot be read.
    /// @return 0
    int GetEventPara(unsigned int eventId, unsigned int* preTime, unsigned int* delayTime);

    /// Gets the extension parameter from the extended head of the block that an id names; 0xFFFFFFFF if it is
    /// not set or cannot be read.
    /// @return 0
    int GetRecordExtPara(unsigned int recId, unsigned int* value);

    /// Prints nothing.
    /// @return 0
    int PrintInitInfo();

    /// Finds the newest block, which has the highest sequence number, by a binary search of the ring.
    /// @return its number; -1: no block is valid, or not open
    int GetLastBlock();

    /// Clips a request to the recorded time span, which goes from the start of the oldest block to the start
    /// of the newest.
    /// @param out the region; unchanged after -1
    /// @return the region's code. 1: (oldest, end); 2: (start, end); 3: (oldest, newest); 4: (start, newest);
    ///         0: the request starts after the newest block's start, (start, end); -1: it ends at or before
    ///         the oldest
    int GetSearchRegion(InputTime_t in, OutputTime_t* out);

    /// Finds the oldest and the newest block and clips a request to them.
    /// @param out the region. Initialise it: it is printed also when it is left unchanged
    /// @return the result of GetSearchRegion(); -1 also when not open, or when an argument is null
    int InitSearch(SearchParam_t* param, OutputTime_t* out);

    /// Finds the block at which a forward search begins.
    /// @pre InitSearch() was called
    /// @param time the region's start
    /// @param code the region's code
    /// @return a block number; -1: not open
    int GetSearchStartBlock(unsigned int time, unsigned int code);

    /// Finds the block that was being recorded at @p time, by a binary search from @p lo to @p hi.
    /// @pre @p lo is not greater than @p hi
    /// @param seq not used
    /// @return a block number; @p lo if there is none, or if the search has narrowed to one block
    int BinSearchStartBlock(unsigned int lo, unsigned int hi, unsigned int time, unsigned int seq);

    /// Gets the size of the ring and of the part that was never written, in bytes.
    /// @return 0; -1: not open, or @p info is null
    int GetSpace(DiskSpaceInfo_t* info);

    /// Appends the records of a request, oldest block first. If @p param or @p out is null nothing is found.
    /// @param skipChnMask channels to leave out, bit n for channel n
    /// @return the number appended
    int SearchMedia(SearchParam_t* param, unsigned int skipChnMask, CCommList<RecordItem_t>* out);

    /// Appends the events of a request. A request that starts after the newest block's start finds none. If
    /// @p param or @p out is null nothing is found.
    /// @return the number appended
    int SearchEvent(SearchParam_t* param, CCommList<EventItem_t>* out);

    /// Walks over the ring for SearchMedia().
    /// @pre InitSearch() was called
    /// @param code the region's code
    /// @return the number appended
    int SearchNormalMedia(unsigned int start, unsigned int end, unsigned int chn, unsigned int skipChnMask,
                          long long alarmMask, unsigned int code, CCommList<RecordItem_t>* out);

    /// Walks over the ring for SearchEvent().
    /// @pre InitSearch() was called
    /// @param code the region's code
    /// @return the number appended
    int SearchNormalEvent(unsigned int start, unsigned int end, long long alarmMask, unsigned int code,
                          CCommList<EventItem_t>* out);

    /// Appends the records and events of one block.
    /// @param events may be null
    /// @return the number of records appended; -1: not open, @p recs is null, or the block cannot be read
    int SearchUnitMedia(unsigned int unit, unsigned int skipChnMask, CCommList<RecordItem_t>* recs,
                        CCommList<EventItem_t>* events);

    /// Appends {@p unit, RecTime of @p head}.
    /// @return @p count + 1
    int AddUnitToList(unsigned int unit, BlockHead_t* head, CCommList<UnitItem_t>* list, int count);

    /// Appends the unusable blocks: bad and suspect ones with time 0, those without data with the time in
    /// their head, those that cannot be read with time 0. If the bad-block tables cannot be read, these are
    /// all blocks that begin inside the device.
    /// @return the number appended; -1: not open
    int GetBadUnitList(CCommList<UnitItem_t>* list);

    /// Appends the recorded blocks from the start block of a region to the newest block.
    /// @pre InitSearch() was called
    /// @param start the region's start
    /// @param end   not used: the walk always ends at the newest block
    /// @param code  the region's code
    /// @return the number appended
    int SearchUnitList(unsigned int start, unsigned int end, unsigned int code, CCommList<UnitItem_t>* list);

    /// Appends all recorded blocks, oldest first.
    /// @return the number appended
    int GetUnitList(CCommList<UnitItem_t>* list);

    /// Answers one of two questions.
    /// @param what 0: number of channels recorded in block @p unit; 1: number of blocks in the ring
    /// @return the number; 0 for other values of @p what; -1: not open, or it cannot be read
    int GetUnitRecMap(unsigned int unit, int what);

    /// Appends the day of @p t, as its first second in UTC plus one, unless the list has it already.
    /// @return 0: @p t is 0, nothing appended; else 1
    int AddDate2List(CCommList<unsigned int>* list, unsigned int t);

    /// Appends a block's start and end times if their local day of the month differs from @p lastDay. The
    /// date map does not use this.
    /// @param lastDay the day of the month that was appended last; updated
    /// @return @p count plus the number appended
    int AddDateToList(BlockHead_t* head, BlockTail_t* tail, CCommList<unsigned int>* list, int count,
                      unsigned int* lastDay);

    /// Appends the days from block @p a to block @p b of the ring, by halving. If both ends of a part are on
    /// the same day, the blocks in between are not read.
    /// @return the number of days in the list
    int BinGetDataMap(UnitTimeItem_t* a, UnitTimeItem_t* b, CCommList<unsigned int>* list);

    /// Appends the days from the oldest block to the newest.
    /// @pre InitSearch() was called
    /// @param start, end, code not used
    /// @return the number of days in the list; 0 when not open
    int SearchDataMap(unsigned int start, unsigned int end, unsigned int code, CCommList<unsigned int>* list);

    /// Appends the days that have recordings, each as its first second in UTC plus one.
    /// @return the number of days in the list; 0 when nothing was recorded
    int GetDateMap(CCommList<unsigned int>* list);

private:
    struct PartSearchState_t* m_pState = nullptr;
};

#endif // DISK_ACCESS_SEARCH_PART_H
