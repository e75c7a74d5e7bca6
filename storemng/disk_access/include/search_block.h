#ifndef DISK_ACCESS_SEARCH_BLOCK_H
#define DISK_ACCESS_SEARCH_BLOCK_H

/// @file search_block.h
/// One block of the ring, as a search sees it: its head and tail, its index, and the lists made from them.

#include "dev_io.h"
#include "disk_format.h"
#include "play_records.h"
#include "search_records.h"

/// Reads the heads, tails and indexes of blocks, and turns an index into records and events.
///
/// The object keeps the index tables of one block, the current one. Loading a table of the current block
/// again overwrites that table alone; loading from another block makes that one current and first empties the
/// counts of all tables, though not their memory. An object belongs to one thread at a time.
///
/// Times given as `long` are signed 32-bit seconds, as on the recorder, whatever a `long` is on this host.
/// Operations on an object that could not allocate its state return -1; CheckAlarmContition() tells of no
/// alarm.
class DISK_ACCESS_API CSearchBlock {
public:
    /// @param dev        the open partition; not owned, must outlive the object
    /// @param blkSize    bytes a block, PartHead_t::BlkSize
    /// @param baseOffs   device offset of block 0, BLOCK_BASE_OFFSET
    /// @param fmtVersion PartHead_t::FmtVersion; 1 selects the extended layout
    CSearchBlock(dev_op_st* dev, unsigned int blkSize, unsigned int baseOffs, unsigned int fmtVersion);
    /// Frees the tables. The device stays open.
    virtual ~CSearchBlock();

    CSearchBlock(const CSearchBlock&) = delete;
    CSearchBlock& operator=(const CSearchBlock&) = delete;

    /// Reads the parts of @p block asked for: head, extended head, tail, extended tail, in this order. A null
    /// pointer skips its part. Nothing read is checked. In the normal layout @p extHead gets {0, 0xFFFFFFFF}
    /// as its first two words without a read, and @p tailEx is left alone.
    /// @return 0, or -1 after the message "GetBlockInfo : LINE, Failed": parts read before stay in the
    ///         buffers, the part that failed and those after it are left as they were
    int GetBlockInfo(unsigned int block, BlockHead_t* head, BlockTail_t* tail, BlkExtHead_t* extHead,
                     BlockTailEx_t* tailEx);

    /// Loads index tables of @p block into the object.
    /// @param flags sum of 1 (record segments), 2 (events), 4 (I-frames); the event count is taken over
    ///              always
    /// @return 1: the index is complete; 2: complete by the extended tail; 0: the recorder never finished it
    ///         and nothing was loaded; -1: a read or an allocation failed, or a table would not end within
    ///         the block. No memory for the event table alone is no failure: the block then shows no events
    int ReadBlockIndexList(unsigned int block, unsigned int flags);

    /// Prints the tables held, on standard output.
    /// @return 0, or -1
    int PrintIndex();

    /// Counts the channels recorded in @p block. Makes the block current without emptying the counts: until
    /// its tables are loaded, those of the block before stand in their place.
    /// @return 0 to 32, or -1 when its head or tail cannot be read
    int GetUnitRecMap(unsigned int block);

    /// Makes the index of a block that was never closed from its frames, up to the first that is none or that
    /// is left over from the ring's previous turn, and prints the record segments that each channel then has.
    /// Adds to the tables held: ReadBlockIndexList() on the block, which empties them when another block was
    /// current, comes first.
    /// @param flags as of ReadBlockIndexList(); for mode 2 only
    /// @param mode  2: loads the index once more and goes on behind the last I-frame held; frames between
    ///              that and the end of an earlier rebuild count again. Any other value: from the first frame
    /// @return 0; -1 when a read failed, or the block cannot hold its own areas
    int RebuildRecSegInfo(unsigned int block, unsigned int flags, unsigned int mode);

    /// Adds one frame to the tables held, as the recorder does when it writes one: an I-frame or an event
    /// meant for the index becomes an entry; a media frame extends its channel's last record segment, or
    /// begins another after a pause of 16 seconds. What memory is short for is left out.
    /// @param pos       the frame's position in the frame area, bytes
    /// @param eventHead of an event frame: the start of its payload
    /// @return 0; -1 when @p info is null
    int RefreshRecSegInfo(FrameInfo_t* info, unsigned int pos, EventHead_t* eventHead);

    /// The alarm type of a time span: the type bits of the first event held, in table order, whose time lies
    /// in [@p start, @p end] and whose type meets the mask (the low 32 bits when @p alarmMask is 0).
    /// @return the type; with none, 0 for mask 0 and -1 for any other
    long long CheckAlarmContition(long start, long end, long long alarmMask);

    /// Appends the events of @p block strictly between @p start and @p end whose type meets @p alarmMask.
    /// Replaces the event table held.
    /// @return the number appended; -1: bad arguments (mask 0, null list, start not before end), a block that
    ///         cannot be read, an incomplete index, or no events at all in the block
    int GetEventList(unsigned int block, long start, long end, long long alarmMask,
                     CCommList<EventItem_t>* list);

    /// Appends the records of @p block that overlap [@p start, @p end], clipped to it: a segment that ends
    /// one second after the search keeps its end, and a piece of one second or less is left out. From a block
    /// without a complete index comes one coarse record a channel, whatever the span.
    /// @param chn         channel 0 to 31, or 0xFFFFFFFF for all
    /// @param skipChnMask channels to leave out, bit n for channel n
    /// @param alarmMask   nonzero keeps only segments that hold such an event; the events looked at are those
    ///                    held, which are the block's own when @p evList is given
    /// @param evList      gets the events strictly between start and end whose type meets a nonzero mask;
    ///                    null: no events
    /// @return the number of records appended, or -1
    int GetMediaList(unsigned int block, long start, long end, unsigned int chn, unsigned int skipChnMask,
                     long long alarmMask, CCommList<RecordItem_t>* recList, CCommList<EventItem_t>* evList);

    /// GetMediaList() for one channel of the tables held; loads nothing.
    /// @param offsetMode nonzero: records carry the segment's start position as their size; stored as their
    ///                   flag
    /// @return the number of records appended; -1 when the channel never had a table in this object
    int GetSigleChnMediaList(unsigned int block, long start, long end, unsigned int chn,
                             unsigned int skipChnMask, long long alarmMask, unsigned int offsetMode,
                             CCommList<RecordItem_t>* recList, CCommList<EventItem_t>* evList);

    /// GetMediaList() for all channels of the tables held; loads nothing. Segment 0 of every channel comes
    /// first, then segment 1 of every channel, and so on.
    /// @return the number of records appended, or -1
    int GetAllChnMediaList(unsigned int block, long start, long end, unsigned int skipChnMask,
                           long long alarmMask, unsigned int offsetMode, CCommList<RecordItem_t>* recList,
                           CCommList<EventItem_t>* evList);

    /// Appends one coarse record a channel (flag 1) from the head of a block without a usable index: from its
    /// start for twelve hours, or to the next midnight UTC if that comes first.
    /// @return the number of records appended, or -1 when the head cannot be read
    int GetNoIndexMediaList(unsigned int block, unsigned int chn, unsigned int skipChnMask,
                            CCommList<RecordItem_t>* recList);

private:
    struct BlockIndexCache_t* m_pCache;
};

#endif // DISK_ACCESS_SEARCH_BLOCK_H
