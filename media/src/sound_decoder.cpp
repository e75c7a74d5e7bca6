#include "sound_decoder.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <utility>

#include "child.h"
#include "libav.h"
#include "media/error.h"
#include "sound_converter.h"
#include "stream_parameters.h"

namespace media {

namespace {

/// No camera makes larger pieces of sound.
constexpr uint32_t kLargestFrame = 1 << 20;
/// Nor longer ones.
constexpr uint32_t kLongestSeconds = 10;
/// Children that frames may end, before sound is given up.
constexpr uint32_t kMostEnded = 16;

ChildLimits LimitsOfChild() {
    ChildLimits limits;
    limits.seconds = 0; // it works as long as the export does
    limits.memory = uint64_t{1} << 28;
    return limits;
}

/// What a child is asked. The payload follows.
struct Question {
    uint32_t stream;
    int32_t codec; ///< libavcodec's number
    uint32_t rate; ///< samples a second
    uint32_t size; ///< of the payload, bytes
};

/// What it answers. The samples follow.
struct Answer {
    uint32_t decoded; ///< 0: the frame cannot be decoded
    uint32_t samples;
};

// ---- in the child

/// A stream's decoder, and what makes its samples those that are answered.
class Stream {
public:
    explicit Stream(const Question& question) : m_rate(question.rate), m_frame(av_frame_alloc()) {
        const auto id = static_cast<AVCodecID>(question.codec);
        Track track;
        track.audio.sampleRate = question.rate;
        m_codec = OpenDecoder(*AudioParameters(id, track));
    }

    std::optional<std::vector<float>> Decode(const std::vector<uint8_t>& payload) {
        const Packet packet(av_packet_alloc());
        if (!m_codec || !m_frame || !packet ||
            av_new_packet(packet.get(), static_cast<int>(payload.size())) < 0) {
            return std::nullopt;
        }
        std::copy(payload.begin(), payload.end(), packet->data);
        std::vector<float> samples;
        const bool decoded = avcodec_send_packet(m_codec.get(), packet.get()) >= 0 && Receive(samples);
        if (!decoded) {
            avcodec_flush_buffers(m_codec.get());
            return std::nullopt;
        }
        return samples;
    }

private:
    /// @return whether there is sound, and not more of it than there can be
    bool Receive(std::vector<float>& samples) {
        while (avcodec_receive_frame(m_codec.get(), m_frame.get()) >= 0) {
            const bool fits =
                m_frame->nb_samples > 0 &&
                samples.size() + static_cast<size_t>(m_frame->nb_samples) <= size_t{kLongestSeconds} * m_rate;
            if (!fits || !m_converter.Convert(*m_frame, m_rate, samples)) {
                return false;
            }
        }
        return !samples.empty();
    }

    uint32_t m_rate;
    FramePointer m_frame;
    Codec m_codec;
    SoundConverter m_converter;
};

bool AnswerOne(const Question& question, const std::vector<uint8_t>& payload, int answers,
               std::map<uint32_t, Stream>& streams) {
    Stream& stream = streams.try_emplace(question.stream, question).first->second;
    const std::optional<std::vector<float>> samples = stream.Decode(payload);
    const Answer answer = {samples ? 1u : 0u, samples ? static_cast<uint32_t>(samples->size()) : 0u};
    return WriteAll(answers, &answer, sizeof answer) &&
           (!samples || WriteAll(answers, samples->data(), samples->size() * sizeof(float)));
}

bool AnswerAll(int questions, int answers) {
    SilenceDecoders();
    std::map<uint32_t, Stream> streams;
    std::vector<uint8_t> payload;
    for (Question question = {}; ReadAll(questions, &question, sizeof question);) {
        payload.resize(question.size);
        if (!ReadAll(questions, payload.data(), payload.size()) ||
            !AnswerOne(question, payload, answers, streams)) {
            return false;
        }
    }
    return true;
}

/// What a child answers may be anything.
float Sound(float sample) {
    return std::isfinite(sample) ? std::clamp(sample, -1.0f, 1.0f) : 0.0f;
}

} // namespace

// ---- in the parent

class SoundDecoder::Child {
public:
    explicit Child(const std::function<void()>& meanwhile) : m_child(AnswerAll, LimitsOfChild(), meanwhile) {}

    /// @param samples set when the frame was decoded
    /// @return false when the child is of no use any more
    bool Ask(const Question& question, const uint8_t* payload, std::optional<std::vector<float>>& samples) {
        Answer answer = {};
        if (!m_child.Send(&question, sizeof question) || !m_child.Send(payload, question.size) ||
            !m_child.Receive(&answer, sizeof answer) || answer.samples / kLongestSeconds > question.rate) {
            return false;
        }
        std::vector<float> received(answer.samples);
        if (!m_child.Receive(received.data(), received.size() * sizeof(float))) {
            return false;
        }
        if (answer.decoded != 0) {
            std::transform(received.begin(), received.end(), received.begin(), Sound);
            samples = std::move(received);
        }
        return true;
    }

private:
    AskedChild m_child;
};

SoundDecoder::SoundDecoder(std::function<void()> meanwhile) : m_meanwhile(std::move(meanwhile)) {}

SoundDecoder::~SoundDecoder() = default;

std::optional<std::vector<float>> SoundDecoder::Decode(uint32_t stream, const AudioCodec& codec,
                                                       const recordings::Frame& frame) {
    Track track;
    track.isVideo = false;
    track.audio = codec;
    const AVCodecID id = CodecOf(track);
    if (id == AV_CODEC_ID_NONE || frame.size > kLargestFrame || m_ended == kMostEnded) {
        return std::nullopt;
    }
    if (!m_child) {
        m_child = std::make_unique<Child>(m_meanwhile);
    }
    std::optional<std::vector<float>> samples;
    if (!m_child->Ask({stream, id, codec.sampleRate, frame.size}, frame.data, samples)) {
        m_child.reset();
        ++m_ended;
    }
    return samples;
}

} // namespace media
