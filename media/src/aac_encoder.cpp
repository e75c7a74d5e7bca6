#include "aac_encoder.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <utility>

#include <fmt/format.h>

#include "media/error.h"
#include "sound_clock.h"

namespace media {

namespace {

/// Bits a sample: little less than telephones take, whose sound cameras have. AAC allows 6.
constexpr int64_t kBits = 5;
constexpr int64_t kMostBitsASecond = 128000;

Codec OpenAac(uint32_t rate) {
    const AVCodec* const encoder = avcodec_find_encoder_by_name("aac");
    Codec codec(encoder == nullptr ? nullptr : avcodec_alloc_context3(encoder));
    if (!codec) {
        return codec;
    }
    av_channel_layout_default(&codec->ch_layout, 1);
    codec->sample_rate = static_cast<int>(rate);
    codec->sample_fmt = AV_SAMPLE_FMT_FLTP;
    codec->bit_rate = std::min(kBits * rate, kMostBitsASecond);
    codec->thread_count = 1;
    codec->flags |= AV_CODEC_FLAG_GLOBAL_HEADER | AV_CODEC_FLAG_BITEXACT;
    // Noise that a camera has recorded is not to be replaced by another.
    const bool isSet = av_opt_set_int(codec->priv_data, "aac_pns", 0, 0) >= 0;
    if (!isSet || avcodec_open2(codec.get(), encoder, nullptr) < 0) {
        codec.reset();
    }
    return codec;
}

[[noreturn]] void CannotEncode() {
    throw Error(ErrorKind::CannotMake, "sound cannot be encoded: libavcodec does not make AAC of it");
}

} // namespace

Parameters AacParameters(uint32_t encodedRate) {
    const Codec codec = OpenAac(encodedRate);
    Parameters parameters(avcodec_parameters_alloc());
    if (!codec || !parameters || avcodec_parameters_from_context(parameters.get(), codec.get()) < 0) {
        return nullptr;
    }
    return parameters;
}

std::string AacEncoderName() {
    const unsigned version = avcodec_version();
    return fmt::format("aac of libavcodec {}.{}.{}", AV_VERSION_MAJOR(version), AV_VERSION_MINOR(version),
                       AV_VERSION_MICRO(version));
}

AacEncoder::AacEncoder(uint32_t rate, uint32_t encodedRate, Emit emit)
    : m_emit(std::move(emit)), m_codec(OpenAac(encodedRate)), m_frame(av_frame_alloc()),
      m_packet(av_packet_alloc()) {
    if (!m_frame || !m_packet) {
        throw std::bad_alloc();
    }
    if (rate != encodedRate) {
        constexpr AVChannelLayout one = AV_CHANNEL_LAYOUT_MONO;
        m_resampler = OpenResampler(one, AV_SAMPLE_FMT_FLT, rate, encodedRate);
    }
    if (!m_codec || m_codec->frame_size != kAacSamples || (rate != encodedRate && !m_resampler)) {
        CannotEncode();
    }
}

void AacEncoder::Add(const std::vector<float>& samples) {
    if (m_resampler) {
        Resample(samples.data(), samples.size());
    } else {
        m_waiting.insert(m_waiting.end(), samples.begin(), samples.end());
    }
    EncodeWhole();
}

/// @param samples null: those that the resampler holds back
void AacEncoder::Resample(const float* samples, size_t count) {
    const int most = swr_get_out_samples(m_resampler.get(), static_cast<int>(count));
    const size_t before = m_waiting.size();
    m_waiting.resize(before + static_cast<size_t>(std::max(most, 0)));
    auto* out = reinterpret_cast<uint8_t*>(m_waiting.data() + before);
    const auto* in = reinterpret_cast<const uint8_t*>(samples);
    const int made = swr_convert(m_resampler.get(), &out, most, samples == nullptr ? nullptr : &in,
                                 static_cast<int>(count));
    if (made < 0) {
        CannotEncode();
    }
    m_waiting.resize(before + static_cast<size_t>(made));
}

void AacEncoder::EncodeWhole() {
    size_t done = 0;
    for (; m_waiting.size() - done >= kAacSamples; done += kAacSamples) {
        m_frame->nb_samples = kAacSamples;
        m_frame->format = AV_SAMPLE_FMT_FLTP;
        av_channel_layout_default(&m_frame->ch_layout, 1);
        if (av_frame_get_buffer(m_frame.get(), 0) < 0) {
            throw std::bad_alloc();
        }
        std::memcpy(m_frame->data[0], m_waiting.data() + done, kAacSamples * sizeof(float));
        m_frame->pts = m_encoded;
        m_encoded += kAacSamples;
        Encode(m_frame.get());
        av_frame_unref(m_frame.get());
    }
    m_waiting.erase(m_waiting.begin(), m_waiting.begin() + static_cast<std::ptrdiff_t>(done));
}

/// @param frame null: what the encoder holds back
void AacEncoder::Encode(const AVFrame* frame) {
    if (avcodec_send_frame(m_codec.get(), frame) < 0) {
        CannotEncode();
    }
    while (avcodec_receive_packet(m_codec.get(), m_packet.get()) >= 0) {
        m_emit(m_packet->data, static_cast<size_t>(m_packet->size));
        av_packet_unref(m_packet.get());
    }
}

void AacEncoder::Finish(int64_t total) {
    if (m_resampler) {
        Resample(nullptr, 0);
    }
    // A resampler may make a sample more or less than asked for.
    m_waiting.resize(static_cast<size_t>(std::max<int64_t>(total - m_encoded, 0)));
    EncodeWhole();
    Encode(nullptr);
}

} // namespace media
