#ifndef DISK_ACCESS_READ_DISK_H
#define DISK_ACCESS_READ_DISK_H

/// @file read_disk.h
/// Plays back what a search found: the playback interface that applications use.

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
/// Readers are independent of each other, any number may be open. Every reader is stopped before Quit();
/// stopped later, it still releases what it holds, but delivers nothing more. The destructor does not call
/// Quit(). An object and its readers belong to one thread at a time.
///
/// Frame reads return 0: a frame; 1: the end of the recording, or nothing further to step to; 2: no further
/// frame in the block; -1: failure. The payload goes into a buffer of the caller's, null or from malloc(),
/// that every read resizes to the frame's length; the caller frees it at the end.
class DISK_ACCESS_API CReadDisk {
public:
    /// An object without a partition.
    CReadDisk();
    /// Releases nothing: call Quit() first.
    virtual ~CReadDisk();

    CReadDisk(const CReadDisk&) = delete;
    CReadDisk& operator=(const CReadDisk&) = delete;

    /// Opens @p part, which is copied. A partition that cannot be opened, or is none, does not fail here: its
    /// readers then deliver nothing.
    /// @return 0; -1: initialised already, no argument, or no memory
    int Init(PartAccess_t* part);

    /// Closes the partition.
    /// @return 0; -1 when not initialised
    int Quit();

    /// Opens a reader at a record's start: at an I-frame with one channel, at the first frame with all.
    /// @param ChnType 1: every channel of the record's block; 0: the record's channel, on into the block that
    ///                continues its recording
    /// @param record  from a search; it is copied
    /// @return a handle that the caller releases with StopRead(), also when nothing can be read through it;
    ///         null: not initialised, or no memory
    void* StartRead(int ChnType, RecordItem_t* record);

    /// Closes a reader. Null is allowed.
    /// @return 0
    int StopRead(void* handle);

    /// Gives the encoding parameters of a record's channel, and the vehicle. Also sets the record's channel
    /// field from its id.
    /// @param rebuild 1: if the record's block was never closed, goes through its frames
    /// @return 0 or -1
    int GetInfo(EncodeParam_t* out, RecordItem_t* record, int rebuild);

    /// Moves a reader to the first I-frame of its record at or after @p time, or to the last when all are
    /// earlier. Failing, it stays, and delivers frames of any time from there.
    /// @param time signed 32-bit seconds since 1970-01-01 UTC
    /// @return 0 or -1
    int SeekTime(void* handle, long* time);

    /// Moves a reader to the first I-frame behind @p pos payload bytes of its record, if there is one.
    /// @return 0, whether or not there is one; -1 for a handle through which nothing can be read
    int SeekPos(void* handle, unsigned int* pos);

    /// Reads the next frame.
    int ReadFrame(void* handle, FrameInfo_t* info, void** payload);

    /// Reads the next I-frame, within the record's block. With a reader of all channels, always 1.
    int ReadNextIFrame(void* handle, FrameInfo_t* info, void** payload);

    /// Reads the previous I-frame, within the record's block. The first step after a seek or a ReadFrame()
    /// delivers the first I-frame behind that place; a change of direction costs one step.
    int ReadPrevIFrame(void* handle, FrameInfo_t* info, void** payload);

    /// Opens a reader for a whole block, whatever its channels.
    /// @param unit block number
    /// @return as StartRead(); released with StopUnitRead()
    void* StartUnitRead(int unit);

    /// Closes a block's reader. Null is allowed.
    /// @return 0
    int StopUnitRead(void* handle);

    /// Reads the block's next frame.
    /// @return 0; 1: the block's end; -1
    int ReadUnitFrame(void* handle, FrameInfo_t* info, void** payload);

    /// Checks the disk's password. Readers do not depend on it.
    /// @param password NUL-terminated text
    /// @return 0: accepted, or no lock; -1: refused
    int CheckEncryptInfo(unsigned char* password);

private:
    struct ReadDiskState_st* m_pState = nullptr;
};

#endif // DISK_ACCESS_READ_DISK_H
