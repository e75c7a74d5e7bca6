#ifndef TESTS_MEDIA_HEARD_SOUND_H
#define TESTS_MEDIA_HEARD_SOUND_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace media_test {

/// The sound of a file, as a player makes it: each sample at its time.
class HeardSound {
public:
    /// @param stream of the file
    /// @throws std::runtime_error when it is no sound that can be heard
    HeardSound(const std::string& path, size_t stream);

    int Rate() const { return m_rate; }
    /// The loudest sample of a stretch, from -1 to 1; 0 where there is none.
    double Peak(double from, double to) const;
    /// How loud a tone is in a stretch: the amplitude of that frequency.
    double Tone(double frequency, double from, double to) const;
    /// Seconds from a time on up to the first sample that is louder than that; -1: there is none.
    double FirstLouder(double than, double from) const;
    /// The same up to the last one before a time.
    double LastLouder(double than, double before) const;

private:
    /// Samples that follow each other.
    struct Piece {
        int64_t time = 0; ///< in samples
        std::vector<float> samples;
    };
    template <typename Each>
    void ForEach(double from, double to, Each each) const;

    int m_rate = 0;
    std::vector<Piece> m_pieces;
};

} // namespace media_test

#endif // TESTS_MEDIA_HEARD_SOUND_H
