#ifndef BENCH_PLAYBACK_READER_H
#define BENCH_PLAYBACK_READER_H

/// @file reader.h
/// Ways of reading all frames of a set.

#include <memory>
#include <string>

#include "playback/frame_set.h"
#include "playback/frame_sink.h"

namespace playback_bench {

/// The order in which frames are read.
enum class Order {
    AsRecorded,       ///< all channels together
    ChannelByChannel, ///< each channel from beginning to end, then the next
};

class Reader {
public:
    virtual ~Reader() = default;
    /// Opens what is to be read; not timed.
    virtual void Prepare() = 0;
    virtual void ReadAll(FrameSink& sink) = 0;
    virtual NalForm Form() const { return NalForm::StartCodes; }
};

using ReaderPtr = std::unique_ptr<Reader>;

/// CReadDisk: with all channels, a reader of all channels for each block; channel by channel, a reader of
/// one channel for each record that a search finds.
ReaderPtr LibraryReader(const FrameSet& set, Order order);

/// The same in recorded order, in a process whose player has asked the C library's allocator to keep large
/// buffers in the heap. As it comes, it maps a buffer of 128 KiB and more to pages of its own, and maps them
/// again whenever the buffer is resized: with each frame.
ReaderPtr LibraryReaderWithLargeHeap(const FrameSet& set);

/// CReadDisk's unit reads of each block.
ReaderPtr LibraryUnitReader(const FrameSet& set);

/// Repeats the calls that another reader makes of the kernel, and looks at nothing.
ReaderPtr BareCalls(const FrameSet& set, ReaderPtr reader);

/// One pread() a frame, head and payload together, from a list of where they lie.
ReaderPtr OnePread(const FrameSet& set, Order order);

/// libavformat, on the file of an ending; channel by channel, with the other streams discarded.
ReaderPtr ContainerReader(const FrameSet& set, Order order, const std::string& ending, bool parsers);

} // namespace playback_bench

#endif // BENCH_PLAYBACK_READER_H
