#ifndef RECORDINGS_KEY_FRAME_GATE_H
#define RECORDINGS_KEY_FRAME_GATE_H

#include <array>
#include <cstdint>
#include <optional>
#include <vector>

#include "recordings/frame.h"
#include "recordings/problem.h"
#include "recordings/query.h"

namespace recordings {

/// Lets video pass from a key frame on, and counts what cannot be decoded for want of one.
class KeyFrameGate {
public:
    /// Begins again: each channel waits for a key frame.
    /// @param lost channels whose key frame was lost; with others the recording begins
    void Begin(ChannelSet lost);
    /// Something of these channels is lost: they wait for a key frame again.
    void Lose(ChannelSet channels);

    /// @param wanted whether the frame is missed when it does not pass
    /// @return whether a video frame can be decoded
    bool Passes(const Frame& frame, bool wanted);

    /// The problems of a block that has been gone through: frames that were left out, channel by channel.
    std::vector<Problem> Finish(uint32_t block);

private:
    struct Channel {
        bool waiting = true;
        bool lost = false;             ///< waits because something is lost
        uint64_t leftOut = 0;          ///< since the last problem
        bool leftOutLost = false;      ///< some of them because something is lost
        std::optional<int64_t> before; ///< time stamp of the last frame that passed
        std::optional<int64_t> after;  ///< and of the key frame after those left out
    };

    std::array<Channel, kChannels> m_channels;
};

} // namespace recordings

#endif // RECORDINGS_KEY_FRAME_GATE_H
