#ifndef MEDIA_SRC_SOUND_TRACK_H
#define MEDIA_SRC_SOUND_TRACK_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "aac_encoder.h"
#include "media/track.h"
#include "recordings/frame.h"
#include "sound_clock.h"
#include "sound_decoder.h"

namespace media {

/// Sound of a camera on its way to a container that cannot hold it as it was recorded.
class SoundTrack {
public:
    /// Takes a packet of AAC.
    /// @param time in the file, in samples as they are encoded
    using Emit = std::function<void(const uint8_t* data, size_t size, int64_t time)>;

    /// @param codec of the camera
    /// @param encodedRate see AacRateOf()
    /// @param decoder must outlive the object
    SoundTrack(AudioCodec codec, uint32_t encodedRate, SoundDecoder& decoder, Emit emit);

    const AudioCodec& Recorded() const { return m_codec; }
    /// @return nothing when the frame cannot be decoded
    std::optional<std::vector<float>> Decode(const recordings::Frame& frame);
    /// Takes the next frame's sound.
    /// @param place in the file, microseconds
    void Add(int64_t place, std::vector<float> samples);
    /// Encodes what is held back; without any sound, a moment of silence.
    void Finish();

private:
    void EndStretch();

    AudioCodec m_codec;
    uint32_t m_encodedRate;
    SoundDecoder& m_decoder;
    uint32_t m_stream;
    Emit m_emit;
    SoundClock m_clock;
    bool m_begun = false;                  ///< there was sound
    std::unique_ptr<AacEncoder> m_encoder; ///< of the stretch, if one has begun
};

} // namespace media

#endif // MEDIA_SRC_SOUND_TRACK_H
