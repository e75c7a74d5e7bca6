#ifndef MEDIA_SRC_SOUND_CLOCK_H
#define MEDIA_SRC_SOUND_CLOCK_H

#include <cstdint>
#include <deque>
#include <optional>

namespace media {

/// Samples in a packet of AAC.
constexpr int64_t kAacSamples = 1024;

/// The rate that sound is encoded at: the lowest of those that AAC knows which loses nothing.
/// @param rate samples a second, as the disk states them: anything
/// @return nothing when no camera has such a rate
std::optional<uint32_t> AacRateOf(uint32_t rate);

/// Says where sound that is encoded lies in a file's time. An encoder makes one stream of the camera's pieces, so what
/// is missing between them must be put in; and after a pause the stream begins again. Files are made by this clock, and
/// verified by it.
///
/// Each stretch without a pause begins with a packet that holds nothing yet: a decoder needs it to make the next ones
/// whole. So the first packet lies before the sound, also before the file's zero.
class SoundClock {
public:
    /// @param rate of the camera's samples
    /// @param encodedRate of the encoder's, whose samples are the unit of all times that this gives
    SoundClock(uint32_t rate, uint32_t encodedRate) : m_rate(rate), m_encodedRate(encodedRate) {}

    /// Whether a piece comes after a pause, so that the stretch before it ends.
    /// @param place in the file, microseconds
    bool Pauses(int64_t place) const;
    /// Takes the next piece. Where it pauses, PacketTime() was called for all packets before, and EndStretch().
    /// @param samples that it has
    /// @return how many samples of silence go before it
    int64_t Take(int64_t place, int64_t samples);
    /// Packets of the stretch so far that PacketTime() was not called for. The last one is filled up with silence.
    int64_t PacketsLeft() const;
    /// The time of the next packet.
    int64_t PacketTime();
    /// Samples of the stretch so far as they are encoded, with what fills its last packet.
    int64_t EncodedSamples() const { return Packets() * kAacSamples; }
    void EndStretch() { m_inStretch = false; }

private:
    /// From a sample of the stretch on, the time that its first sample would have.
    struct Base {
        int64_t from = 0; ///< samples as they are encoded
        int64_t time = 0;
    };

    int64_t Encoded(int64_t samples) const;
    int64_t Packets() const;
    int64_t TimeOf(int64_t place) const;
    int64_t Late(int64_t place) const;
    void Begin(int64_t place);

    int64_t m_rate;
    int64_t m_encodedRate;
    bool m_inStretch = false;
    int64_t m_place = 0;   ///< of the stretch's first sample, microseconds
    int64_t m_samples = 0; ///< of the stretch so far
    int64_t m_packets = 0; ///< whose time was asked for
    int64_t m_last = INT64_MIN;
    std::deque<Base> m_bases;
};

} // namespace media

#endif // MEDIA_SRC_SOUND_CLOCK_H
