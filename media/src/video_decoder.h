#ifndef MEDIA_SRC_VIDEO_DECODER_H
#define MEDIA_SRC_VIDEO_DECODER_H

#include <cstdint>
#include <functional>
#include <vector>

#include "picture_codec.h"

namespace media {

/// Decodes the frames of one camera, the first of them a key frame. For a child process: what it is given may break it, and
/// it takes all messages of libav to itself.
class VideoDecoder {
public:
    /// A picture that has come out: of which frame, counted from 0.
    using Taker = std::function<void(const AVFrame& picture, int64_t number)>;

    explicit VideoDecoder(VideoCodec codec);

    bool Ready() const { return m_codec != nullptr; }

    /// Hands the next frame over. Its picture may come out now or later.
    /// @return false when the decoder has met an error in it
    bool Take(const std::vector<uint8_t>& payload, const Taker& take);
    /// Has the pictures come out that are still to come.
    void Finish(const Taker& take);

    /// Whether the decoder has made up parts of a picture, or left them out.
    static bool Damaged(const AVFrame& picture);

private:
    void Receive(const Taker& take);

    Codec m_codec;
    int64_t m_sent = 0;
};

} // namespace media

#endif // MEDIA_SRC_VIDEO_DECODER_H
