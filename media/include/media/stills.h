#ifndef MEDIA_STILLS_H
#define MEDIA_STILLS_H

/// @file stills.h
/// Single pictures of recordings, as files.

#include <cstdint>
#include <string>
#include <vector>

#include "media/output_file.h"
#include "recordings/blocks.h"
#include "recordings/disk.h"
#include "recordings/problem.h"
#include "recordings/query.h"

namespace media {

/// A decoded picture: rows of pixels from the top, each three bytes red, green and blue.
struct Picture {
    uint32_t width = 0;
    uint32_t height = 0;
    std::vector<uint8_t> pixels;
};

/// Why there is no picture, or not a whole one.
enum class StillState {
    Whole,
    Damaged,         ///< parts of it are made up: the frame, or one that it needs, is damaged
    NotRecorded,     ///< nothing was recorded of the channel at that time
    KeyFrameMissing, ///< frames are there, but not the key frame that they need
    NotDecodable,    ///< the frame is there, but no picture comes of it
    UnknownCodec     ///< the video is neither H.264 nor H.265
};

/// In lower case, with spaces.
const char* NameOf(StillState state);

/// What a channel showed at a time.
struct Still {
    uint32_t channel = 0;
    StillState state = StillState::NotRecorded;
    int64_t time = 0; ///< the frame's time stamp, microseconds on the recorder's clock
    uint32_t block = 0;
    uint32_t offset = 0; ///< of the frame's head in the block's frame area
    Picture picture;     ///< where the state is Whole or Damaged

    /// Whether there is a frame that a picture could come of: else time and place mean nothing.
    bool HasFrame() const { return state != StillState::NotRecorded && state != StillState::KeyFrameMissing; }
};

/// What is asked for.
struct StillQuery {
    int64_t time = 0; ///< microseconds on the recorder's clock
    recordings::ChannelSet channels = recordings::ChannelSet::All();
};

/// A frame is shown no longer than this after its time: then recording has paused.
constexpr int64_t kLongestShown = 15 * int64_t{1000000};

/// Whether the library was built with what decodes pictures.
bool StillsSupported();

/// Finds what each channel showed at a time: the last video frame at or before it, in full size. Channels of which the
/// disk never recorded video are left out.
///
/// What a disk holds may be made to break a decoder. So a child process decodes, without privileges and without a way to
/// anything but a pipe, with bounded time and memory; what it answers is not trusted. No other thread of the process may
/// be decoding at the same time.
/// @throws Error when no child can be started
/// @throws recordings::Error (Cancelled)
std::vector<Still> TakeStills(const recordings::Disk& disk, const recordings::BlockList& blocks,
                              const StillQuery& query, const recordings::ProblemSink& problems,
                              const recordings::Watch& watch = {});

enum class PictureFormat { Jpeg, Png };

/// A picture as the bytes of a file.
/// @throws Error when it cannot be encoded
std::vector<uint8_t> EncodePicture(const Picture& picture, PictureFormat format);

} // namespace media

#endif // MEDIA_STILLS_H
