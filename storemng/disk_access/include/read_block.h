#ifndef DISK_ACCESS_READ_BLOCK_H
#define DISK_ACCESS_READ_BLOCK_H

/// @file read_block.h
/// Plays one block of the ring: its index, and its frames one after the other.

#include "dev_io.h"
#include "disk_format.h"
#include "play_records.h"

/// Reads the frames of one block.
///
/// OpenBlock() opens the block in a window of its own. A seek then selects the channels, the time window and
/// the position, and reads deliver frames from there. Seek before the first read: until then the time window
/// is empty and media frames give 1. (ReadBlockFrame() has no time window and needs no seek.) Every operation
/// returns -1 when no block is open or a pointer that it needs is null. Frame reads return
///
///      0  a frame was read
///      1  the next frame is outside the time window
///      2  no frame follows in this block
///     -1  an argument is null, no block is open, the device failed, there is no memory, a frame does not end
///         within the block, or the position is outside the frame area or before the window's first frame
///
/// A head and payload are valid only after 0. The payload buffer belongs to the caller. @p *payload must be
/// null or a buffer from malloc(). A read resizes the buffer to the frame's length and stores the pointer
/// back; an empty payload gets a buffer too. After every result @p *payload can be passed to the next read or
/// to free(). Free it after the last read.
///
/// Frame offsets are bytes from the start of the frame area. Pointers to records are used during the call
/// only. Use an object from one thread at a time; different objects are independent.
class DISK_ACCESS_API CReadBlock {
public:
    /// Makes an object without a block.
    CReadBlock();
    /// Releases nothing.
    /// @pre no block is open: call CloseBlock() first
    virtual ~CReadBlock();

    CReadBlock(const CReadBlock&) = delete;
    CReadBlock& operator=(const CReadBlock&) = delete;

    /// Opens a block: reads its head and tails and loads its index tables. A block whose index cannot be
    /// loaded is opened with empty tables. If a block is open already, this prints a message, changes nothing
    /// and returns 0.
    /// @param block      block number
    /// @param blkSize    bytes per block, PartHead_t::BlkSize
    /// @param part       the partition
    /// @param fmtVersion PartHead_t::FmtVersion; 1 selects the extended layout
    /// @param rebuild    1: builds the index of a block that was never closed from its frames
    /// @return 0; -1: the device or its head or tails cannot be read, the block size cannot hold a block's
    ///         own areas, or there is no memory
    int OpenBlock(unsigned int block, unsigned int blkSize, PartAccess_t* part, unsigned int fmtVersion,
                  int rebuild);

    /// Closes the block and releases everything that belongs to it.
    /// @return 0; -1: no block is open
    int CloseBlock();

    /// Copies the head and tail of the open block; either pointer may be null. After a rebuild the tail is
    /// zero except for EndTime, which is the time of the last media frame.
    /// @return 0; -1: no block is open
    int GetBlockInfo(BlockHead_t* head, BlockTail_t* tail);

    /// Finds the record segment that @p item names by its id. If its channel has no segment table, @p out
    /// gets a substitute that lasts ten minutes from the time of the block's first frame (if there is a
    /// frame), and the result is -1.
    /// @return 0; -1: not found
    int GetRecSegInfo(RecordItem_t* item, RecSegItem_t* out);

    /// Loads the index of a complete block, or rebuilds that of an incomplete one. OpenBlock() calls this.
    /// @param rebuild 1: rebuild; any other value: an incomplete block keeps empty tables
    /// @return 0; -1: the block is invalid or was never written, or its index cannot be loaded
    int GetBlockIndex(int rebuild);

    /// Loads the index tables from the index area. Does not check whether the block is complete. After a
    /// failure the tables are empty.
    /// @return 0 or -1
    int ReadBlockIndex();

    /// Builds the index tables from the frames. Stops at the first head that is not a frame, or at a frame
    /// that is left over from the ring's previous turn. Adds to the tables in memory.
    /// @return 0; -1: the walk reached the end of the block, or a read failed
    int RebuiltBlockIndex();

    /// Adds one frame to the index tables. An entry for which there is no memory is left out.
    /// @param offs      the frame's offset
    /// @param eventHead for an event frame: the start of its payload; other frames do not need it
    /// @return 0 or -1
    int RefreshBlockIndex(FrameInfo_t* frame, unsigned int offs, EventHead_t* eventHead);

    /// Converts a frame offset to a position in the block's window.
    /// @return the position; -1: it is outside the frame area or before the window's first frame
    int GetOffset(unsigned int offs);

    /// Tells whether the reader wants frames of the channel of @p head.
    /// @return 0: yes; -1: no
    int CheckValidChn(FrameHead_t* head);

    /// Classifies a frame head. Media frames are accepted from 5 seconds before the time window to the end of
    /// its last second.
    /// @return 0: a wanted frame; 1: another channel; 2: the mark at the end of the frames; 3: media outside
    ///         the time window; -1: not a frame head
    int CheckFrameHead(FrameHead_t* head);

    /// Reads the first wanted frame at or after @p offs. The read position does not move.
    /// @param payload null: only the head is read
    /// @param skipped gets the bytes of other channels' frames before it; only after 0
    int GetFrame(unsigned int offs, FrameHead_t* head, void** payload, int* skipped);

    /// As ReadFrame(), but @p payload may be null: then only the head is read.
    int ForwardReadFrame(FrameHead_t* head, void** payload);

    /// Reads the next wanted frame and moves past it. After a result other than 0 the position is unchanged.
    int ReadFrame(FrameHead_t* head, void** payload);

    /// Reads the next frame of any channel and time and moves past it.
    /// @return 0; 1: no frame follows; -1
    int ReadBlockFrame(FrameHead_t* head, void** payload);

    /// Moves to the first I-frame of the record's segment at or after @p time, or to its last I-frame if all
    /// are earlier. The time window becomes the segment, clipped to the record.
    ///
    /// A failed SeekTime() or SeekOffs() does not move, but it selects the channels and accepts every time:
    /// reads continue from the old position.
    /// @param allChn  0: reads deliver the record's channel; other values: every channel, and the I-frames
    ///                are those of the lowest channel that has the segment
    /// @param record  its id names channel and segment; its start and end clip the window
    /// @param time    signed 32-bit seconds, whatever the width of `long` on this host
    /// @return 0; -1: no such segment, or no I-frame in it
    int SeekTime(int allChn, RecordItem_t* record, long time);

    /// Moves to the frame that contains byte @p pos of the record's payloads. The time window depends on the
    /// record's flag. 0: its segment, clipped to the record's end; with all channels, the segment of that
    /// number that begins first. 2: the record's own start and end, with its size as the start offset. Any
    /// other value: the whole block.
    /// @param allChn    0: reads deliver the record's channel; other values: every channel
    /// @param pos       counts the payload bytes of wanted channels from the window's start, without frame
    ///                  heads
    /// @param keyFrames 0: any frame; 1: goes on to the first I-frame from there; other values always fail
    /// @return 0; -1: no such frame in the window (see SeekTime() for what a failure changes)
    int SeekOffs(int allChn, RecordItem_t* record, unsigned int pos, int keyFrames);

    /// Reads the frame at the read position, moves past it, and finds for each wanted channel the first
    /// I-frame with a later time stamp.
    /// @return 0; -1: no channel has one, or the frame cannot be read
    int GetIFrameIndex();

    /// Reads the first wanted frame at or after @p offs, the offset of an I-frame, and moves past it.
    int ReadIFrame(unsigned int offs, FrameHead_t* head, void** payload);

    /// Reads the I-frame at the step position and moves the step position to the next one. After a seek or a
    /// plain read, GetIFrameIndex() sets the step position first: it reads, and passes, the frame at the read
    /// position.
    ///
    /// With all channels, this takes the earliest of the channels' I-frames that is before 0x7FFFFFFFFF
    /// microseconds. Time stamps that count from 1970 are always later: the result is then 1.
    /// @return as for all frame reads; 1 also when no I-frame is left
    int ReadNextIFrame(FrameHead_t* head, void** payload);

    /// Reads the I-frame at the step position and moves the step position to the previous one. So the first
    /// step after a change of direction still goes the old way. With all channels, this takes the latest of
    /// the channels' I-frames.
    /// @return as ReadNextIFrame()
    int ReadPrevIFrame(FrameHead_t* head, void** payload);

private:
    struct BlkReadState_st* m_pState = nullptr;
};

#endif // DISK_ACCESS_READ_BLOCK_H
