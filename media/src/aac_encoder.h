#ifndef MEDIA_SRC_AAC_ENCODER_H
#define MEDIA_SRC_AAC_ENCODER_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "libav.h"
#include "sound_converter.h"

namespace media {

/// What a container must know of sound of one channel that is encoded.
/// @param encodedRate samples a second: one that AAC knows
/// @return null when libavcodec has no encoder
Parameters AacParameters(uint32_t encodedRate);

/// "aac of libavcodec 59.37.100"
std::string AacEncoderName();

/// Encodes a stretch of sound without a pause.
class AacEncoder {
public:
    using Emit = std::function<void(const uint8_t* data, size_t size)>;

    /// @param emit takes the packets, as they are made
    /// @throws Error when libavcodec does not encode
    AacEncoder(uint32_t rate, uint32_t encodedRate, Emit emit);

    void Add(const std::vector<float>& samples);
    /// Ends the stretch.
    /// @param total of the stretch, samples as they are encoded: whole packets. What is missing is filled with silence
    void Finish(int64_t total);

private:
    void Resample(const float* samples, size_t count);
    void EncodeWhole();
    void Encode(const AVFrame* frame);

    Emit m_emit;
    Codec m_codec;
    Resampler m_resampler; ///< null: the rate stays
    FramePointer m_frame;
    Packet m_packet;
    std::vector<float> m_waiting; ///< less than a packet
    int64_t m_encoded = 0;        ///< samples
};

} // namespace media

#endif // MEDIA_SRC_AAC_ENCODER_H
