#ifndef BENCH_PLAYBACK_FRAME_SET_H
#define BENCH_PLAYBACK_FRAME_SET_H

/// @file frame_set.h
/// The frames that are read: recorded by real encoders, on a partition and, the same, in files of libavformat's.

#include <cstdint>
#include <string>
#include <vector>

#include "dev_io.h"

namespace playback_bench {

/// A camera, and the stream that its frames are in a container.
struct Stream {
    uint32_t channel;
    bool audio;
};

/// What a set is made of.
struct Recipe {
    std::string name;
    uint32_t bitrate;                    ///< kbit/s of the four cameras together
    bool sound;                          ///< audio too, which MP4 and MPEG-TS cannot hold
    uint64_t leastSize;                  ///< bytes of payload that it has at least
    std::vector<std::string> containers; ///< endings of the files: mkv, mp4, ts
};

/// A set of frames on the disk.
struct FrameSet {
    std::string directory;
    Recipe recipe;

    // Known when the set was made.
    uint64_t frames = 0;
    uint64_t bytes = 0; ///< of payload
    int64_t start = 0;  ///< time stamp of the first frame
    int64_t end = 0;    ///< time stamp of the last frame

    /// The file of an ending: a container's, or img.
    std::string File(const std::string& ending) const { return directory + "/" + recipe.name + "." + ending; }
    PartAccess_t Partition() const;
    std::vector<Stream> Streams() const;
};

/// Makes a set: encodes a short clip a camera with ffmpeg, and records the clips, repeated, on a partition of
/// blocks of 8 MiB and into containers. Leaves all in the page cache, and nothing of it to be written.
void MakeSet(FrameSet& set);

} // namespace playback_bench

#endif // BENCH_PLAYBACK_FRAME_SET_H
