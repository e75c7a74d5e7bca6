#ifndef DISK_ACCESS_READ_DISK_H
#define DISK_ACCESS_READ_DISK_H

/// @file read_disk.h
/// Plays what a search found: the playback interface for applications.

#include "dev_io.h"
#include "play_records.h"

/// Plays the recordings of a partition.
///
///     CReadDisk disk;
///     disk.Init(&part);
///     void* reader = disk.StartRead(0, &record);
///     void* payload = nullptr;
///     FrameInfo_t frame;
///     while (disk.ReadFrame(reader, &frame, &payload) == 0) {
///         Show(frame, payload); // frame.len bytes
///     }
///     free(payload);
///     disk.StopRead(reader);
///     disk.Quit();
///
/// Any number of readers may be open; they are independent of each other. Use an object and its readers from
/// one thread at a time.
///
/// Frame reads return 0: a frame was read; 1: the end of the recording, or no I-frame is left to step to; 2:
/// no further frame in the block (only from I-frame steps); -1: failure, or a null argument. Stop at the
/// first result that is not 0. The frame and payload are valid only after 0.
///
/// The payload buffer belongs to the caller. @p *payload must be null or a buffer from malloc(). A read
/// resizes the buffer to the frame's length and stores the pointer back. After every result it can be passed
/// to the next read or to free(). Free it after the last read.
class DISK_ACCESS_API CReadDisk {
public:
    /// Makes an object without a partition.
    CReadDisk();
    /// Releases nothing.
    /// @pre Quit() was called, if Init() was
    virtual ~CReadDisk();

    CReadDisk(const CReadDisk&) = delete;
    CReadDisk& operator=(const CReadDisk&) = delete;

    /// Opens a partition. @p part is copied. The result is 0 also when the path cannot be opened or is not a
    /// recording partition: no reader then delivers a frame.
    /// @return 0; -1: already initialised, @p part is null, or no memory
    int Init(PartAccess_t* part);

    /// Closes the partition. Stop every reader before. A reader that is stopped later still releases
    /// everything, but its reads give -1.
    /// @return 0; -1: not initialised
    int Quit();

    /// Opens a reader at the start of a record: at an I-frame with one channel; at the first frame with all
    /// channels (but at an I-frame if the record begins later than its segment, or has flag 2).
    /// @param ChnType 0: the record's channel, and on into the block that continues its recording; 1: every
    ///                channel of the record's block
    /// @param record  from a search; it is copied
    /// @return a handle that the caller must release with StopRead(), also when nothing can be read with it;
    ///         null: not initialised, @p record is null, or no memory
    void* StartRead(int ChnType, RecordItem_t* record);

    /// Closes a reader; the handle is invalid afterwards. Null is allowed.
    /// @return 0
    int StopRead(void* handle);

    /// Gets the encoding parameters of a record's channel, and the vehicle, from the head of the record's
    /// block. On success also sets the record's channel field from its id.
    /// @param rebuild 1: if the block was never closed, reads through its frames first (the result is the
    ///                same)
    /// @return 0; -1: not initialised, an argument is null, or the block cannot be read or does not contain
    ///         the channel
    int GetInfo(EncodeParam_t* out, RecordItem_t* record, int rebuild);

    /// Moves a reader to the first I-frame of its record at or after @p time, or to the last if all are
    /// earlier. Searches only the block that the reader is in. After a failure the reader has not moved, and
    /// reads deliver frames of any time.
    /// @param time signed 32-bit seconds since 1970-01-01 UTC
    /// @return 0 or -1
    int SeekTime(void* handle, long* time);

    /// Moves a reader to the first I-frame at or after byte @p pos of its record's payloads. Searches only
    /// the block that the reader is in. If there is none the reader has not moved, and reads deliver frames
    /// of any time.
    /// @return 0, also if there is none; -1: a null argument, or a reader of a partition that could not be
    ///         opened
    int SeekPos(void* handle, unsigned int* pos);

    /// Reads the next frame.
    int ReadFrame(void* handle, FrameInfo_t* info, void** payload);

    /// Reads the next I-frame in the record's block. A reader of all channels finds none if time stamps count
    /// from 1970 (see CReadBlock::ReadNextIFrame()).
    int ReadNextIFrame(void* handle, FrameInfo_t* info, void** payload);

    /// Reads the previous I-frame in the record's block. The first step after a seek or a ReadFrame() reads
    /// the first I-frame after that place. The first step after a change of direction still goes the old way.
    int ReadPrevIFrame(void* handle, FrameInfo_t* info, void** payload);

    /// Opens a reader for a whole block and all its channels. It starts at the first I-frame of the lowest
    /// channel that has a record segment, or at the block's first frame if there is none.
    /// @param unit block number, 0 to 65,535
    /// @return as StartRead(); release the handle with StopUnitRead()
    void* StartUnitRead(int unit);

    /// Closes a block's reader; the handle is invalid afterwards. Null is allowed.
    /// @return 0
    int StopUnitRead(void* handle);

    /// Reads the block's next frame.
    /// @return 0; 1: the end of the block's frames; -1
    int ReadUnitFrame(void* handle, FrameInfo_t* info, void** payload);

    /// Checks the disk's password. Readers work with or without it.
    /// @param password NUL-terminated text
    /// @return 0: accepted, or there is no lock; -1: refused, or the partition is not open
    int CheckEncryptInfo(unsigned char* password);

private:
    struct ReadDiskState_st* m_pState = nullptr;
};

#endif // DISK_ACCESS_READ_DISK_H
