#ifndef MEDIA_PICTURE_CHECK_H
#define MEDIA_PICTURE_CHECK_H

/// @file picture_check.h
/// Whether the pictures of a disk decode.

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <utility>
#include <vector>

#include "media/track.h"
#include "recordings/health.h"

namespace media {

/// Decodes the pictures of a check, from each key frame to the next of its channel. Pictures in a row that do not decode, or
/// not whole, are a problem.
///
/// What a disk holds may be made to break a decoder. So child processes decode, without privileges and without a way to
/// anything but a pipe, with bounded time and memory a picture. No other thread of the process may be decoding at the same
/// time. Some pictures are left out: those whose key frame is not there, video that is neither H.264 nor H.265, and what
/// follows a key frame for longer than any camera goes without another.
/// @throws Error from its functions when no child can be started
class PictureCheck : public recordings::PayloadCheck {
public:
    /// @param meanwhile called several times a second while pictures are decoded; what it throws ends the check
    explicit PictureCheck(std::function<void()> meanwhile = {}) : m_meanwhile(std::move(meanwhile)) {}

    void Take(const recordings::Frame& frame, bool afterLoss,
              const recordings::ProblemSink& problems) override;
    void Finish(const recordings::ProblemSink& problems) override;

    uint64_t Decoded() const { return m_decoded; } ///< pictures, also those that do not decode
    uint64_t LeftOut() const { return m_leftOut; } ///< pictures

private:
    struct Place {
        uint32_t block = 0;
        uint32_t offset = 0;
        int64_t time = 0;
    };
    /// A key frame and the pictures after it.
    struct Group {
        VideoCodec codec =
            VideoCodec::Unknown; ///< of the key frames before too: this one's head may be damaged
        std::vector<std::vector<uint8_t>> frames;
        std::vector<Place> places;
        size_t bytes = 0;
    };

    void Begin(Group& group, const recordings::Frame& frame);
    void Decode(uint32_t channel, const recordings::ProblemSink& problems);

    std::function<void()> m_meanwhile;
    std::array<Group, recordings::kChannels> m_groups;
    size_t m_bytes = 0; ///< of all groups
    uint64_t m_decoded = 0;
    uint64_t m_leftOut = 0;
};

} // namespace media

#endif // MEDIA_PICTURE_CHECK_H
