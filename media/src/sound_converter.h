#ifndef MEDIA_SRC_SOUND_CONVERTER_H
#define MEDIA_SRC_SOUND_CONVERTER_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "libav.h"

extern "C" {
#include <libswresample/swresample.h>
}

namespace media {

struct FreeResampler {
    void operator()(SwrContext* resampler) const { swr_free(&resampler); }
};
using Resampler = std::unique_ptr<SwrContext, FreeResampler>;

/// Makes samples that go from one rate to another, one channel of numbers.
/// @return null when there is no such conversion
Resampler OpenResampler(const AVChannelLayout& channels, AVSampleFormat format, uint32_t from, uint32_t to);

/// Makes decoded samples, of any kind, one channel of numbers from -1 to 1.
class SoundConverter {
public:
    /// @param rate of the samples, which stays
    /// @param samples are added to
    bool Convert(const AVFrame& frame, uint32_t rate, std::vector<float>& samples);

private:
    Resampler m_resampler;
    int m_format = -1;
    int m_channels = 0;
};

} // namespace media

#endif // MEDIA_SRC_SOUND_CONVERTER_H
