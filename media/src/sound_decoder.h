#ifndef MEDIA_SRC_SOUND_DECODER_H
#define MEDIA_SRC_SOUND_DECODER_H

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "media/track.h"
#include "recordings/frame.h"

namespace media {

/// Decodes the sound of cameras. What a disk holds may be made to break a decoder. So a child process decodes, without
/// privileges and without a way to anything but two pipes, with bounded time and memory a frame. It is started with the
/// first frame, and once more where one has ended it.
class SoundDecoder {
public:
    /// @param meanwhile called several times a second while a frame is decoded; it may throw
    explicit SoundDecoder(std::function<void()> meanwhile);
    ~SoundDecoder();
    SoundDecoder(const SoundDecoder&) = delete;
    SoundDecoder& operator=(const SoundDecoder&) = delete;

    /// Tells a stream of sound from others: what comes before a frame in it may matter.
    uint32_t NewStream() { return m_streams++; }

    /// @param frame the stream's next one
    /// @return one channel, each sample from -1 to 1; nothing when the frame cannot be decoded
    /// @throws Error when no child can be started
    std::optional<std::vector<float>> Decode(uint32_t stream, const AudioCodec& codec,
                                             const recordings::Frame& frame);

private:
    class Child;
    std::function<void()> m_meanwhile;
    std::unique_ptr<Child> m_child;
    uint32_t m_streams = 0;
    [[maybe_unused]] uint32_t m_ended = 0; ///< children that a frame has ended
};

} // namespace media

#endif // MEDIA_SRC_SOUND_DECODER_H
