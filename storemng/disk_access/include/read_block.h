#ifndef DISK_ACCESS_READ_BLOCK_H
#define DISK_ACCESS_READ_BLOCK_H

/// @file read_block.h
/// One block of the ring, as playback sees it: its index, and its frames one after the other.

#include "dev_io.h"
#include "disk_format.h"
#include "play_records.h"

/// Reads the frames of one block.
///
/// OpenBlock() opens the block in a window of its own; a seek then chooses the channels, the time window and
/// the place to start; reads deliver frames from there on. Frame reads return
///
///      0  a frame was delivered
///      1  the next frame lies outside the time window
///      2  no frame follows in this block
///     -1  an argument is null, no block is open, the device failed, memory is short, a frame does not lie
///         within the block, or the place lies outside the frame area or before the window's first frame
///
/// A payload goes into a buffer of the caller's: *payload is null or comes from malloc(), and is resized to
/// the frame's length (an empty payload has a buffer too). After every result it is what it was or a valid
/// buffer; the caller frees it at the end.
///
/// Frame offsets count bytes from the start of the frame area. The destructor does not close the block: call
/// CloseBlock() first. An object belongs to one thread at a time; objects never disturb each other.
class DISK_ACCESS_API CReadBlock {
public:
    /// An object without a block.
    CReadBlock();
    /// Releases nothing: call CloseBlock() first.
    virtual ~CReadBlock();

    CReadBlock(const CReadBlock&) = delete;
    CReadBlock& operator=(const CReadBlock&) = delete;

    /// Opens a block: reads its head and tail, and loads its index tables. A block whose index cannot be
    /// loaded still opens; its tables are empty. With a block open already, says so and changes nothing.
    /// @param block      block number
    /// @param blkSize    bytes a block, PartHead_t::BlkSize
    /// @param part       the partition
    /// @param fmtVersion PartHead_t::FmtVersion; 1 selects the extended layout
    /// @param rebuild    1: makes the index of a block that was never closed from its frames
    /// @return 0 or -1
    int OpenBlock(unsigned int block, unsigned int blkSize, PartAccess_t* part, unsigned int fmtVersion,
                  int rebuild);

    /// Closes the block and releases all that belongs to it.
    /// @return 0; -1 when none is open
    int CloseBlock();

    /// Copies the head and tail of the open block; either pointer may be null. After a rebuild the tail is
    /// zero but for its EndTime, which is the time of the last media frame.
    /// @return 0; -1 when none is open
    int GetBlockInfo(BlockHead_t* head, BlockTail_t* tail);

    /// Finds the record segment that @p item names. When its channel has no segments, @p out becomes a
    /// stand-in of ten minutes from the block's first frame on, if there is one, and the result is still -1.
    /// @return 0 or -1
    int GetRecSegInfo(RecordItem_t* item, RecSegItem_t* out);

    /// Loads the index of a complete block, or rebuilds that of an incomplete one.
    /// @param rebuild 1: rebuild; any other value: an incomplete block keeps empty tables
    /// @return 0; -1: the block holds no recording, or its index cannot be loaded
    int GetBlockIndex(int rebuild);

    /// Loads the index tables from the index area. On failure no tables are left.
    /// @return 0 or -1
    int ReadBlockIndex();

    /// Makes the index tables from the frames, up to the first that is none or that is left over from the
    /// ring's previous turn. Adds to the tables held.
    /// @return 0; -1 when the walk ran to the block's end, or a read failed
    int RebuiltBlockIndex();

    /// Adds one frame to the index tables. What memory is short for is left out.
    /// @param offs      the frame's offset
    /// @param eventHead of an event frame: the start of its payload
    /// @return 0; -1 when no block is open or @p frame is null
    int RefreshBlockIndex(FrameInfo_t* frame, unsigned int offs, EventHead_t* eventHead);

    /// Turns a frame offset into a position in the block's window.
    /// @return the position, or -1 when it lies outside the frame area or before the window's first frame
    int GetOffset(unsigned int offs);

    /// Tells whether frames of the channel of @p head are wanted.
    /// @return 0: yes; -1: no, or no block is open
    int CheckValidChn(FrameHead_t* head);

    /// Sorts a frame head. Media frames from 5 seconds before the time window to the end of its last second
    /// pass.
    /// @return 0: deliver it; 1: another channel; 2: the mark at the end of the frames; 3: media outside the
    ///         time window; -1: no frame
    int CheckFrameHead(FrameHead_t* head);

    /// Reads the first wanted frame at or behind @p offs; the read position stays.
    /// @param payload null: the head alone is read
    /// @param skipped gets the bytes of other channels' frames stepped over
    int GetFrame(unsigned int offs, FrameHead_t* head, void** payload, int* skipped);

    /// ReadFrame() without its checks of the arguments.
    int ForwardReadFrame(FrameHead_t* head, void** payload);

    /// Reads the next wanted frame and moves behind it. Other results than 0 do not move.
    int ReadFrame(FrameHead_t* head, void** payload);

    /// Reads the next frame, whatever its channel and time, and moves behind it.
    /// @return 0; 1: no frame follows; -1
    int ReadBlockFrame(FrameHead_t* head, void** payload);

    /// Moves to the first I-frame of the record's segment at or after @p time, or to its last one when all
    /// are earlier. The time window becomes the segment, cut to the record.
    ///
    /// A failed seek, of this or the other kind, opens the window wide and does not move.
    /// @param allChn  nonzero: reads deliver every channel; the I-frames are those of the first channel that
    ///                has the segment
    /// @param record  its id names channel and segment, its start and end cut the window
    /// @param time    signed 32-bit seconds, whatever a `long` is on this host
    /// @return 0 or -1
    int SeekTime(int allChn, RecordItem_t* record, long time);

    /// Moves to the first frame of the record behind @p pos payload bytes. The time window comes from the
    /// record's flag: 0: its segment, cut to the record's end; 2: its own start, end, and size as the start
    /// offset; any other: the whole block.
    /// @param allChn    nonzero: reads deliver every channel
    /// @param pos       payload bytes, frame heads left out, from the window's start
    /// @param keyFrames 1: the frame must be an I-frame; 0: any frame
    /// @return 0 or -1
    int SeekOffs(int allChn, RecordItem_t* record, unsigned int pos, int keyFrames);

    /// Finds each wanted channel's first I-frame later than the frame at the read position, which is read
    /// and passed.
    /// @return 0; -1 when no channel has one, or the frame cannot be read
    int GetIFrameIndex();

    /// Reads the first wanted frame at or behind @p offs, an I-frame's offset, and moves behind it.
    int ReadIFrame(unsigned int offs, FrameHead_t* head, void** payload);

    /// Reads the I-frame at the step position and moves the position to the one after it. After a seek or a
    /// plain read, the step position is first taken from GetIFrameIndex().
    ///
    /// With all channels, the earliest of the channels' I-frames is taken, of those before 0x7FFFFFFFFF
    /// microseconds: with time stamps counted from 1970 there are none.
    /// @return as all reads; 1 also when no I-frame is left
    int ReadNextIFrame(FrameHead_t* head, void** payload);

    /// Reads the I-frame at the step position and moves the position to the one before it: a change of
    /// direction thus costs one step. With all channels, the latest of the channels' I-frames is taken.
    /// @return as ReadNextIFrame()
    int ReadPrevIFrame(FrameHead_t* head, void** payload);

private:
    struct BlkReadState_st* m_pState = nullptr;
};

#endif // DISK_ACCESS_READ_BLOCK_H
