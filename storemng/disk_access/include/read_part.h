#ifndef DISK_ACCESS_READ_PART_H
#define DISK_ACCESS_READ_PART_H

/// @file read_part.h
/// Plays the recordings of one partition. CReadDisk (read_disk.h) is the interface for applications.

#include "dev_io.h"
#include "play_records.h"
#include "read_block.h"

/// A partition open for playback, and the readers on it.
///
/// The device is held open only while its head or tables are read; each reader opens its own block windows.
/// The destructor does not close anything: call EndReader() and Quit() first. Frame reads return what
/// CReadBlock's return; payload buffers belong to the caller as there. An object and its readers belong to one
/// thread at a time.
class DISK_ACCESS_API CReadPart {
public:
    /// A closed object.
    CReadPart();
    /// Releases nothing: call EndReader() and Quit() first.
    virtual ~CReadPart();

    CReadPart(const CReadPart&) = delete;
    CReadPart& operator=(const CReadPart&) = delete;

    /// Opens a partition: reads its head. A wrong magic is no failure here; it shows in PrintInitInfo(), and
    /// the ring then has no blocks. A partition that is open is closed first.
    /// @return 0; -1: no argument, no memory, or the head cannot be read
    int Init(PartAccess_t* part);

    /// Closes the partition. Readers stay, and can do nothing but seek and end.
    /// @return 0
    int Quit();

    /// Prints the partition's name, geometry and status (2: wrong magic) on standard output.
    /// @return 0
    int PrintInitInfo();

    /// Loads the bad-block bits, again if they are loaded. The suspect counters do not matter to playback.
    /// @return 0; -1: the table kept, if any, is the one loaded before
    int GetBadBlockTab();

    /// Tells whether playback may use a block: it is not marked bad, it can be opened, it bears the magic, and
    /// it passes the mode's test. Without a table no block is marked bad.
    /// @param mode 0: its closing state is not 1; 1: that, or its RecSeq is at least @p seq; 2: mode 0, and it
    ///             was recorded; 3: its closing state is not 0, and it was recorded; 4: its head and tail bear
    ///             the same RecSeq; others: no test
    /// @return 1: usable; 0: not
    int IsValidBlock(unsigned int block, unsigned int mode, unsigned int seq);

    /// Finds the first usable block from @p from backwards round the ring to @p to, both included.
    /// @return 0 with the block in @p out; -1
    int GetPrevValidBlock(unsigned int mode, unsigned int seq, unsigned int from, unsigned int to,
                          unsigned int* out);

    /// Finds the first usable block from @p from forwards round the ring to @p to, both included.
    /// @return 0 with the block in @p out; -1
    int GetNextValidBlock(unsigned int mode, unsigned int seq, unsigned int from, unsigned int to,
                          unsigned int* out);

    /// Opens a reader for a record and moves it to the record's start: with one channel to an I-frame, with
    /// all channels to the first frame. A reader whose block cannot be opened is returned too: its reads give
    /// -1. One whose start is not found reads from the block's first frame, at any time.
    /// @param ChnType 1: every channel; 0: the record's alone
    /// @return a handle that the caller releases with EndReader(); null: not initialised, no record, no memory
    PartReadHandle_st* BeginReader(int ChnType, RecordItem_t* record);

    /// Closes a reader.
    /// @return 0; -1 for null
    int EndReader(PartReadHandle_st* reader);

    /// CReadBlock::SeekTime() within the block that the reader is in.
    /// @param time signed 32-bit seconds
    int SeekTime(PartReadHandle_st* reader, long* time);

    /// CReadBlock::SeekOffs() to an I-frame within the block that the reader is in.
    /// @param pos payload bytes from the record's start
    /// @return 0, whatever the seek found; -1 for a null argument
    int SeekPos(PartReadHandle_st* reader, unsigned int* pos);

    /// Reads the next frame. A reader of one channel that has come to its block's end goes on in the block
    /// that continues the recording, up to that block's first I-frame.
    /// @return 0; 1: the end; -1
    int ReadFrame(PartReadHandle_st* reader, FrameInfo_t* info, void** payload);

    /// CReadBlock::ReadNextIFrame(); 1 once the reader has left the record's block.
    int ReadNextIFrame(PartReadHandle_st* reader, FrameInfo_t* info, void** payload);

    /// CReadBlock::ReadPrevIFrame(); 1 once the reader has left the record's block.
    int ReadPrevIFrame(PartReadHandle_st* reader, FrameInfo_t* info, void** payload);

    /// Reads the next frame of the block, whatever its channel and time.
    /// @return 0; 1: the block's end; -1
    int ReadUnitFrame(PartReadHandle_st* reader, FrameInfo_t* info, void** payload);

    /// Gives the encoding parameters of a record's channel, and the vehicle. Also sets the record's channel
    /// field from its id.
    /// @param rebuild as of CReadBlock::OpenBlock()
    /// @return 0; -1: @p out is zero then, unless it or @p record is null
    int GetRecInfo(EncodeParam_t* out, RecordItem_t* record, int rebuild);

    /// Gives the access lock's settings, as they stand in the partition head.
    /// @param map      channels that the lock hides; 0 when there is no lock
    /// @param encrypt  lock mode; 0 and 2: no lock
    /// @param password gets @p length characters, filled up with zeros; terminated only if it is shorter
    /// @return 0 or -1
    int GetEncrypt(unsigned int* map, unsigned int* encrypt, unsigned char* password, int length);

    /// Checks a password against the access lock.
    /// @param password NUL-terminated text
    /// @return 0: right, or no lock; -1: wrong, or not initialised
    int CheckEncrypt(unsigned char* password);

private:
    struct ReadPartState_st* m_pState = nullptr;
};

/// Does nothing. Callers that trace through it stay silent.
/// @return 0
DISK_ACCESS_API int DebugLog(const char* format, ...);

#endif // DISK_ACCESS_READ_PART_H
