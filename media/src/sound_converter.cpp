#include "sound_converter.h"

namespace media {

Resampler OpenResampler(const AVChannelLayout& channels, AVSampleFormat format, uint32_t from, uint32_t to) {
    AVChannelLayout one = AV_CHANNEL_LAYOUT_MONO;
    AVChannelLayout given = channels; // what it leads to stays the caller's
    SwrContext* made = nullptr;
    const int allocated = swr_alloc_set_opts2(&made, &one, AV_SAMPLE_FMT_FLT, static_cast<int>(to), &given,
                                              format, static_cast<int>(from), 0, nullptr);
    Resampler resampler(made);
    if (allocated < 0 || swr_init(resampler.get()) < 0) {
        resampler.reset();
    }
    return resampler;
}

bool SoundConverter::Convert(const AVFrame& frame, uint32_t rate, std::vector<float>& samples) {
    if (frame.format != m_format || frame.ch_layout.nb_channels != m_channels) {
        m_resampler = OpenResampler(frame.ch_layout, static_cast<AVSampleFormat>(frame.format), rate, rate);
        m_format = frame.format;
        m_channels = frame.ch_layout.nb_channels;
    }
    if (!m_resampler) {
        return false;
    }
    const size_t before = samples.size();
    samples.resize(before + static_cast<size_t>(frame.nb_samples));
    auto* out = reinterpret_cast<uint8_t*>(samples.data() + before);
    const int made = swr_convert(m_resampler.get(), &out, frame.nb_samples,
                                 const_cast<const uint8_t**>(frame.extended_data), frame.nb_samples);
    return made == frame.nb_samples;
}

} // namespace media
