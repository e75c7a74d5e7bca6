#ifndef RECORDINGS_STREAM_CHECK_H
#define RECORDINGS_STREAM_CHECK_H

#include <array>
#include <cstdint>
#include <optional>
#include <vector>

#include "recordings/frame.h"
#include "recordings/problem.h"
#include "recordings/query.h"

namespace recordings {

/// Holds the video frames of a block against what they are said to be: each the kind of picture that its type says, and
/// the key frames with the parameters that it takes to decode them. H.264 and H.265 are understood; of a channel whose
/// video is something else nothing is said.
class StreamCheck {
public:
    /// @param frame with its payload
    void Take(const Frame& frame);

    /// What is wrong with the frames taken.
    std::vector<Problem> Finish(uint32_t block) const;

private:
    /// A group of frames: how many, and the first of them.
    struct Group {
        uint64_t count = 0;
        uint32_t offset = 0;
        int64_t time = 0;

        void Add(const Frame& frame);
    };
    struct Channel {
        Group keyAsKey;     ///< key frames by their type that are key frames
        Group otherAsKey;   ///< by their type alone
        Group unknownAsKey; ///< whose payload is no video that is understood
        Group keyAsOther;
        Group otherAsOther;
        Group unknownAsOther;
        Group withParameters; ///< key frames that carry parameters
    };

    std::array<Channel, kChannels> m_channels;
};

} // namespace recordings

#endif // RECORDINGS_STREAM_CHECK_H
