#ifndef DISK_ACCESS_SEARCH_BLOCK_H
#define DISK_ACCESS_SEARCH_BLOCK_H

/// @file search_block.h
/// Searches one block of the ring: its head and tail, its index, and the lists made from them.

#include "dev_io.h"
#include "disk_format.h"
#include "play_records.h"
#include "search_records.h"

/// Reads the heads, tails and indexes of blocks, and turns an index into records and events.
///
/// The object keeps the index tables of one block, the current block. Loading a table of the current block
/// again replaces that table only. Loading from another block makes that block current and first sets the
/// counts of all tables to 0; their memory is kept for reuse.
///
/// Times given as `long` are signed 32-bit seconds, whatever the width of `long` on this host. Lists belong
/// to the caller; operations append to them. If the object has no memory for its state, every operation
/// returns -1 (except CheckAlarmContition(): no alarm). Use an object from one thread at a time.
class DISK_ACCESS_API CSearchBlock {
public:
    /// Makes an object without a current block.
    /// @pre @p dev stays open as long as the object exists; the object does not close it
    /// @param dev        the open partition
    /// @param blkSize    bytes per block, PartHead_t::BlkSize
    /// @param baseOffs   device offset of block 0, BLOCK_BASE_OFFSET
    /// @param fmtVersion PartHead_t::FmtVersion; 1 selects the extended layout
    CSearchBlock(dev_op_st* dev, unsigned int blkSize, unsigned int baseOffs, unsigned int fmtVersion);
    /// Frees the tables. The device stays open.
    virtual ~CSearchBlock();

    CSearchBlock(const CSearchBlock&) = delete;
    CSearchBlock& operator=(const CSearchBlock&) = delete;

    /// Reads the parts of @p block that are asked for: head, extended head, tail, extended tail, in this
    /// order. Parts whose pointer is null are skipped. What is read is not checked. In the normal layout the
    /// first two words of @p extHead become {0, 0xFFFFFFFF} without a read, and @p tailEx is unchanged.
    /// @return 0; -1: a read failed, and "GetBlockInfo : LINE, Failed" was printed. Parts read before it are
    ///         in the buffers; the failed part and those after it are unchanged
    int GetBlockInfo(unsigned int block, BlockHead_t* head, BlockTail_t* tail, BlkExtHead_t* extHead,
                     BlockTailEx_t* tailEx);

    /// Loads index tables of @p block into the object. If the tail does not have the head's RecSeq, this
    /// prints "Block N Not complete" and compares the extended tail's (0 in the normal layout).
    /// @param flags sum of 1 (record segments), 2 (events), 4 (I-frames). The event count is
    ///              taken from the index head in every case
    /// @return 1: complete by the tail; 2: complete by the extended tail; 0: incomplete, nothing was loaded;
    ///         -1: a read failed, there is no memory, a table would not end within the block, or the block
    ///         size cannot hold a block's own areas. If there is no memory only for the events, the result is
    ///         1 or 2 and the block shows no events
    int ReadBlockIndexList(unsigned int block, unsigned int flags);

    /// Prints the tables in memory on standard output.
    /// @return 0 or -1
    int PrintIndex();

    /// Counts the channels recorded in @p block. Makes it the current block but does not reset the counts:
    /// until its tables are loaded, the object still has those of the previous block.
    /// @return 0 to 32; -1: its head or tail cannot be read
    int GetUnitRecMap(unsigned int block);

    /// Builds the index of a block that was never closed from its frames, and prints how many record segments
    /// each channel then has. Stops at the first head that is not a frame, or at a media frame that is left
    /// over from the ring's previous turn. Adds to the tables in memory.
    /// @pre ReadBlockIndexList() was called for @p block, which empties the tables of another block
    /// @param flags as for ReadBlockIndexList(); only used in mode 2
    /// @param mode  2: loads the index again and starts after the last I-frame in memory; frames after that
    ///              I-frame which an earlier rebuild added are added again. Any other value: starts at the
    ///              first frame
    /// @return 0; -1: a read failed, or the block size cannot hold a block's own areas
    int RebuildRecSegInfo(unsigned int block, unsigned int flags, unsigned int mode);

    /// Adds one frame to the tables in memory, as the recorder does when it writes the frame. An I-frame, or
    /// an event that is marked for the index, becomes an entry. A media frame extends the last record segment
    /// of its channel, or begins a new one after a pause of 16 seconds. An entry for which there is no memory
    /// is left out.
    /// @param pos       the frame's position in the frame area, bytes
    /// @param eventHead for an event frame: the start of its payload; other frames do not need it
    /// @return 0; -1: @p info is null
    int RefreshRecSegInfo(FrameInfo_t* info, unsigned int pos, EventHead_t* eventHead);

    /// Finds the alarm type of a time span: the type bits of the first event in memory, in table order, with
    /// a time from @p start to @p end, both included, and a type that has a bit of @p alarmMask (of the low
    /// 32 bits if the mask is 0).
    /// @return the type; if there is none, 0 for mask 0 and -1 for any other mask
    long long CheckAlarmContition(long start, long end, long long alarmMask);

    /// Appends the events of @p block that are later than @p start and earlier than @p end and whose type has
    /// a bit of @p alarmMask. Replaces the event table in memory.
    /// @return the number appended; -1: the mask is 0, @p list is null, start is not before end, the block
    ///         cannot be read, its index is not complete by the tail, or it has no events at all
    int GetEventList(unsigned int block, long start, long end, long long alarmMask,
                     CCommList<EventItem_t>* list);

    /// Appends the records of @p block that overlap [@p start, @p end], clipped to it. A segment that ends
    /// one second after @p end keeps its own end. Records of one second or less are left out. If the index is
    /// not complete by the tail, one coarse record per channel is appended, whatever the time span.
    /// @param chn         channel 0 to 31, or 0xFFFFFFFF for all
    /// @param skipChnMask channels to leave out, bit n for channel n
    /// @param alarmMask   nonzero: only segments that contain an event with a bit of it. The events are those
    ///                    in memory; they are the block's own if @p evList is given
    /// @param evList      gets the events between start and end, both excluded (with a nonzero mask, only
    ///                    those with a bit of it); may be null
    /// @return the number of records appended; -1: start is after end, @p recList is null, no such channel,
    ///         or the block cannot be read
    int GetMediaList(unsigned int block, long start, long end, unsigned int chn, unsigned int skipChnMask,
                     long long alarmMask, CCommList<RecordItem_t>* recList, CCommList<EventItem_t>* evList);

    /// As GetMediaList() for one channel of the tables in memory; loads nothing.
    /// @pre @p recList is not null
    /// @param offsetMode stored as the records' flag. Nonzero: the records' size is the segment's start
    ///                   position
    /// @return the number of records appended; -1: the channel never had a table in this object
    int GetSigleChnMediaList(unsigned int block, long start, long end, unsigned int chn,
                             unsigned int skipChnMask, long long alarmMask, unsigned int offsetMode,
                             CCommList<RecordItem_t>* recList, CCommList<EventItem_t>* evList);

    /// As GetMediaList() for all channels of the tables in memory; loads nothing. Segment 0 of every channel
    /// comes first, then segment 1 of every channel, and so on.
    /// @pre @p recList is not null
    /// @return the number of records appended, or -1
    int GetAllChnMediaList(unsigned int block, long start, long end, unsigned int skipChnMask,
                           long long alarmMask, unsigned int offsetMode, CCommList<RecordItem_t>* recList,
                           CCommList<EventItem_t>* evList);

    /// Appends one coarse record (flag 1) per channel from the head of a block without a usable index. It
    /// begins at the block's start and ends twelve hours later, or at the next midnight UTC if that is
    /// earlier.
    /// @pre @p recList is not null
    /// @return the number of records appended; -1: the head cannot be read, or the block size cannot hold a
    ///         block's own areas
    int GetNoIndexMediaList(unsigned int block, unsigned int chn, unsigned int skipChnMask,
                            CCommList<RecordItem_t>* recList);

private:
    struct BlockIndexCache_t* m_pCache;
};

#endif // DISK_ACCESS_SEARCH_BLOCK_H
