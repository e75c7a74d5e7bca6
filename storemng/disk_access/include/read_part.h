#ifndef DISK_ACCESS_READ_PART_H
#define DISK_ACCESS_READ_PART_H

/// @file read_part.h
/// Plays the recordings of one partition. CReadDisk (read_disk.h) is the interface for applications.

#include "dev_io.h"
#include "play_records.h"
#include "read_block.h"

/// A partition open for playback, and the readers of it.
///
/// The device is open only while its head or tables are read, or blocks are looked for; each reader opens its
/// own block window. Frame reads return the results of CReadBlock's, and payload buffers belong to the caller
/// as there. Every operation returns -1 if a pointer that it needs is null. Use an object and its readers
/// from one thread at a time.
class DISK_ACCESS_API CReadPart {
public:
    /// Makes a closed object.
    CReadPart();
    /// Releases nothing.
    /// @pre every reader was ended and Quit() was called
    virtual ~CReadPart();

    CReadPart(const CReadPart&) = delete;
    CReadPart& operator=(const CReadPart&) = delete;

    /// Opens a partition: reads its head. @p part is copied. A partition that is open is closed first. A
    /// wrong magic is not a failure here: PrintInitInfo() shows it, and the ring then has no blocks.
    /// @return 0; -1: @p part is null, no memory, or the head cannot be read
    int Init(PartAccess_t* part);

    /// Closes the partition. Readers stay open, but only SeekTime(), SeekPos() and EndReader() work with
    /// them.
    /// @return 0
    int Quit();

    /// Prints the partition's path, geometry and status (2: wrong magic) on standard output, if it is open.
    /// @return 0
    int PrintInitInfo();

    /// Loads the bad-block bits, also if they are loaded already. Playback does not use the suspect counters.
    /// @return 0; -1: failed, and a table that was loaded before is kept
    int GetBadBlockTab();

    /// Tells whether playback may use a block: it is not marked bad, it can be opened, it has the magic, and
    /// it passes the test of @p mode. If the bad-block bits cannot be loaded, no block is marked bad.
    /// @param mode 0: its closing state is not 1; 1: the same, or its RecSeq is at least @p seq; 2: its
    ///             closing state is not 1 and its RecSeq not 0; 3: its closing state is not 0 and its RecSeq
    ///             not 0; 4: its head and tail have the same RecSeq; others: no test
    /// @return 1: usable; 0: not usable, or not open
    int IsValidBlock(unsigned int block, unsigned int mode, unsigned int seq);

    /// Finds the first usable block, going backwards around the ring from @p from to @p to, both included.
    /// @return 0 with the block in @p out; -1: none, and @p out is unchanged
    int GetPrevValidBlock(unsigned int mode, unsigned int seq, unsigned int from, unsigned int to,
                          unsigned int* out);

    /// Finds the first usable block, going forwards around the ring from @p from to @p to, both included.
    /// @return 0 with the block in @p out; -1: none, and @p out is unchanged
    int GetNextValidBlock(unsigned int mode, unsigned int seq, unsigned int from, unsigned int to,
                          unsigned int* out);

    /// Opens a reader for a record and moves it to the record's start, as CReadDisk::StartRead(). @p record
    /// is copied; its flag must be 0, 1 or 2. If the block cannot be opened, the reads of the reader give -1.
    /// If the start is not found, the reader begins at the block's first frame and accepts every time.
    /// @param ChnType 0: only the record's channel; 1: every channel
    /// @return a handle that the caller must release with EndReader(); null: not initialised, @p record is
    ///         null, or no memory
    PartReadHandle_st* BeginReader(int ChnType, RecordItem_t* record);

    /// Closes a reader; the handle is invalid afterwards. The partition need not be open.
    /// @return 0; -1: @p reader is null
    int EndReader(PartReadHandle_st* reader);

    /// CReadBlock::SeekTime() in the block that the reader is in.
    /// @param time signed 32-bit seconds
    int SeekTime(PartReadHandle_st* reader, long* time);

    /// CReadBlock::SeekOffs() to an I-frame, in the block that the reader is in.
    /// @param pos payload bytes from the record's start
    /// @return 0, whatever the seek found; -1: a null argument
    int SeekPos(PartReadHandle_st* reader, unsigned int* pos);

    /// Reads the next frame. At the end of its block, a reader of one channel goes on in the block that
    /// continues the recording, up to that block's first I-frame. Stop at the first result that is not 0:
    /// after 1 the reader may be in the block of another recording.
    /// @return 0; 1: the end; -1
    int ReadFrame(PartReadHandle_st* reader, FrameInfo_t* info, void** payload);

    /// CReadBlock::ReadNextIFrame(). After the reader has left the record's block the result is 1.
    int ReadNextIFrame(PartReadHandle_st* reader, FrameInfo_t* info, void** payload);

    /// CReadBlock::ReadPrevIFrame(). After the reader has left the record's block the result is 1.
    int ReadPrevIFrame(PartReadHandle_st* reader, FrameInfo_t* info, void** payload);

    /// Reads the next frame of the block, of any channel and time.
    /// @return 0; 1: the end of the block's frames; -1
    int ReadUnitFrame(PartReadHandle_st* reader, FrameInfo_t* info, void** payload);

    /// Gets the encoding parameters of a record's channel, and the vehicle, from the head of the record's
    /// block. On success also sets the record's channel field from its id.
    /// @param rebuild as for CReadBlock::OpenBlock()
    /// @return 0; -1: @p out is then zero, unless an argument was null
    int GetRecInfo(EncodeParam_t* out, RecordItem_t* record, int rebuild);

    /// Gets the settings of the access lock from the partition head.
    /// @pre @p password has room for @p length characters
    /// @param map      channels that the lock hides; 0 if there is no lock
    /// @param encrypt  lock mode; 0 and 2: no lock
    /// @param password gets @p length characters, padded with zeros; NUL-terminated only if it is shorter
    /// @return 0 or -1
    int GetEncrypt(unsigned int* map, unsigned int* encrypt, unsigned char* password, int length);

    /// Checks a password against the access lock.
    /// @param password NUL-terminated text
    /// @return 0: correct, or there is no lock; -1: wrong, or not initialised
    int CheckEncrypt(unsigned char* password);

private:
    struct ReadPartState_st* m_pState = nullptr;
};

/// Does nothing. Applications that trace through it print nothing.
/// @return 0
DISK_ACCESS_API int DebugLog(const char* format, ...);

#endif // DISK_ACCESS_READ_PART_H
