#include "sound_track.h"

#include <utility>

#include "media/error.h"

namespace media {

SoundTrack::SoundTrack(AudioCodec codec, uint32_t encodedRate, SoundDecoder& decoder, Emit emit)
    : m_codec(std::move(codec)), m_encodedRate(encodedRate), m_decoder(decoder),
      m_stream(decoder.NewStream()), m_emit(std::move(emit)), m_clock(m_codec.sampleRate, encodedRate) {}

std::optional<std::vector<float>> SoundTrack::Decode(const recordings::Frame& frame) {
    return m_decoder.Decode(m_stream, m_codec, frame);
}

void SoundTrack::Add(int64_t place, std::vector<float> samples) {
    if (m_clock.Pauses(place)) {
        EndStretch();
    }
    if (!m_encoder) {
        m_encoder = std::make_unique<AacEncoder>(
            m_codec.sampleRate, m_encodedRate,
            [this](const uint8_t* data, size_t size) { m_emit(data, size, m_clock.PacketTime()); });
    }
    m_begun = true;
    const int64_t silence = m_clock.Take(place, static_cast<int64_t>(samples.size()));
    samples.insert(samples.begin(), static_cast<size_t>(silence), 0.0f);
    m_encoder->Add(samples);
}

void SoundTrack::Finish() {
    if (!m_begun) { // MP4 leaves a track without packets out, and players and manifests would count others
        Add(0, std::vector<float>(kAacSamples));
    }
    if (m_encoder) {
        EndStretch();
    }
}

void SoundTrack::EndStretch() {
    m_encoder->Finish(m_clock.EncodedSamples());
    m_encoder.reset();
    if (m_clock.PacketsLeft() != 0) { // the times of the packets would be others than those that were given
        throw Error(ErrorKind::CannotMake,
                    "sound cannot be encoded: libavcodec has made more or less of it than it was given");
    }
    m_clock.EndStretch();
}

} // namespace media
