// Matroska and MP4 files, by libavformat. Payloads are copied; only sound that MP4 cannot hold is encoded, if that is asked
// for.

#include <algorithm>
#include <functional>
#include <mutex>
#include <utility>

#include "byte_stream.h"
#include "clock_text.h"
#include "container_clock.h"
#include "container_rules.h"
#include "media/sink.h"
#include "muxer.h"
#include "predicted_head.h"
#include "sound_track.h"
#include "stream_parameters.h"

namespace media {

namespace {

class ContainerSink : public Sink {
public:
    ContainerSink(const std::string& path, Container container, Outputs& outputs, size_t output,
                  SoundDecoder* decoder)
        : m_path(path), m_output(output), m_container(container), m_decoder(decoder),
          m_file(&outputs.Make(path).Bytes()), m_muxer(m_path, m_container, m_file),
          m_predictor(MakeHeadPredictor(container)) {}

    /// A stream's.
    ContainerSink(std::string name, FileWriter& stream)
        : m_path(std::move(name)), m_output(0), m_container(Container::Matroska), m_streamed(true),
          m_file(&stream), m_muxer(m_path, m_container, m_file, m_streamed), m_predictor(MakeStreamHead()) {}

    std::optional<LeftOutReason> Refusal(const Track& track, const recordings::Frame& frame) const override {
        const std::optional<LeftOutReason> refusal = RefusalOf(m_container, track, frame);
        return refusal && EncodingOf(track, *refusal) ? std::nullopt : refusal;
    }

    std::optional<LeftOutReason> Add(Track& track, const recordings::Frame& first) override {
        if (m_clock) {
            return LeftOutReason::TrackBegunTooLate;
        }
        Parameters parameters;
        const std::optional<LeftOutReason> refusal = Examine(m_container, track, first, parameters);
        if (refusal) {
            track.encoded = EncodingOf(track, *refusal);
            parameters = track.encoded ? AacParameters(track.encoded->sampleRate) : nullptr;
        }
        if (!parameters) {
            return refusal;
        }
        track.output = m_output;
        m_muxer.AddStream(*parameters, track.channel);
        m_wantsLengths.push_back(WantsLengths(*parameters));
        m_sounds.push_back(track.encoded ? EncoderOf(track) : nullptr);
        return std::nullopt;
    }

    bool Continues(size_t index, const Track& now, const recordings::Frame& frame) const override {
        const AVCodecParameters& before = m_muxer.StreamParameters(index);
        if (m_sounds[index]) {
            return now.audio == m_sounds[index]->track.Recorded();
        }
        if (!now.isVideo) {
            return CodecOf(now) == before.codec_id &&
                   static_cast<int>(now.audio.sampleRate) == before.sample_rate;
        }
        Parameters parameters;
        return Examine(m_container, now, frame, parameters) ||
               (parameters->codec_id == before.codec_id && parameters->width == before.width &&
                parameters->height == before.height);
    }

    void Start(const ContainerFacts& facts, const std::optional<Estimate>& estimate) override {
        m_chapters = facts.chapters;
        if (m_streamed) {
            AddChaptersToHead(facts, estimate);
        }
        const size_t tracks = m_muxer.Streams();
        const std::function<std::string(int64_t)> words = AddClockText(facts);
        m_muxer.Start(facts);
        m_clock.emplace(m_container, facts.start, m_muxer.LargestGap(), tracks, words);
        m_file.CloseHead(estimate || m_streamed ? Predict(facts, estimate.value_or(Estimate()))
                                                : std::nullopt);
    }

    int64_t LargestGap() const override { return m_muxer.LargestGap(); }

    uint32_t LargestFrame() const override { return 0x40000000; } // libavformat counts with signed numbers

    void Write(size_t index, const recordings::Frame& frame) override {
        if (frame.size == 0) {
            return; // containers have no empty frames
        }
        if (m_sounds[index]) {
            WriteSound(index, frame);
            return;
        }
        LengthPrefixer::Bytes bytes = {frame.data, frame.size};
        if (m_wantsLengths[index]) {
            bytes = m_prefixer.Convert(frame.data, frame.size);
        }
        const int64_t place = Place(index, frame);
        // In MP4 each frame lasts until the next one. The last one must be told to last at all, or players leave it out.
        const int64_t duration = m_container == Container::Mp4 ? m_clock->Time().IntervalOf(index) : 0;
        m_muxer.Write(index, bytes.data, bytes.size, place, frame.type != recordings::kPictureFrame,
                      duration);
    }

    const std::vector<ClockSegment>& Segments() const override { return m_clock->Time().Segments(); }

    std::vector<NotedFrames> NotDecoded() const override {
        std::vector<NotedFrames> all;
        for (const auto& sound : m_sounds) {
            if (sound && sound->notDecoded.count != 0) {
                all.push_back(sound->notDecoded);
            }
        }
        return all;
    }

    void Finish() override {
        for (const auto& sound : m_sounds) {
            if (sound) {
                sound->track.Finish();
            }
        }
        m_predictor->Finish(m_muxer, m_file, m_clock->Place(m_chapters, m_clock->Time().Latest()));
        m_file.Finish();
    }

private:
    /// A track whose sound is encoded.
    struct Sound {
        SoundTrack track;
        NotedFrames notDecoded;
    };

    /// How a track is encoded that the container cannot hold as it was recorded, if that is asked for.
    std::optional<Encoding> EncodingOf(const Track& track, LeftOutReason refusal) const {
        return m_decoder != nullptr ? EncodingFor(m_container, track, refusal) : std::nullopt;
    }

    std::unique_ptr<Sound> EncoderOf(const Track& track) {
        const auto emit = [this, index = m_sounds.size()](const uint8_t* data, size_t size, int64_t time) {
            m_muxer.WriteSound(index, data, size, time, kAacSamples);
        };
        return std::make_unique<Sound>(
            Sound{SoundTrack(track.audio, track.encoded->sampleRate, *m_decoder, emit), {}});
    }

    void WriteSound(size_t index, const recordings::Frame& frame) {
        Sound& sound = *m_sounds[index];
        std::optional<std::vector<float>> samples = sound.track.Decode(frame);
        if (samples) {
            sound.track.Add(Place(index, frame), std::move(*samples));
        } else {
            sound.notDecoded.Add(frame);
        }
    }

    /// The place of a frame that is written next, which others follow.
    int64_t Place(size_t index, const recordings::Frame& frame) {
        const ContainerClock::Spot spot = m_clock->Take(index, frame);
        if (spot.text) {
            m_muxer.WriteText(spot.text->text, spot.text->place, spot.text->end);
        }
        return spot.place;
    }

    /// Whether the clock was set will be known when they are long gone.
    void AddChaptersToHead(const ContainerFacts& facts, const std::optional<Estimate>& estimate) {
        m_clock.emplace(m_container, facts.start, INT64_MAX, 0, nullptr);
        m_muxer.AddChapters(m_clock->Place(facts.chapters, LatestOf(estimate.value_or(Estimate()))));
    }

    /// The place of the last frame that is to come, if the clock is not set.
    int64_t LatestOf(const Estimate& estimate) const {
        int64_t latest = 0;
        for (const std::optional<LastFrame>& last : estimate.lastFrames) {
            latest = std::max(latest, last ? m_clock->Time().PlaceOf(last->time) : 0);
        }
        return latest;
    }

    /// Has a track of texts say when each second was recorded, of what vehicle and which channels.
    /// @return what it says of a time stamp; nothing when there is none
    std::function<std::string(int64_t)> AddClockText(const ContainerFacts& facts) {
        if (!facts.clockText) {
            return nullptr;
        }
        std::vector<uint32_t> channels;
        for (size_t stream = 0; stream < m_muxer.Streams(); ++stream) {
            channels.push_back(m_muxer.StreamChannel(stream));
        }
        m_muxer.AddStream(*TextParameters(m_container), 0);
        return WithChannels(facts.clockText, channels);
    }

    std::optional<Bytes> Predict(const ContainerFacts& facts, const Estimate& estimate) {
        ContainerFacts placed = facts;
        placed.chapters = m_clock->Place(facts.chapters, LatestOf(estimate));
        Estimate places = estimate;
        for (std::optional<LastFrame>& last : places.lastFrames) {
            if (last) {
                last->time = m_clock->Time().PlaceOf(last->time);
            }
        }
        AddClockTextTo(places, estimate);
        std::optional<Bytes> head = m_predictor->Predict(
            m_file.Head(), placed, places, [this](MuxTarget& target) { return Another(target); });
        return head && head->size() == m_file.Head().size() ? std::move(head) : std::nullopt;
    }

    /// @param places what is to come, with places as times
    /// @param estimate the same, with time stamps
    void AddClockTextTo(Estimate& places, const Estimate& estimate) const {
        std::optional<int64_t> last;
        for (const std::optional<LastFrame>& frame : estimate.lastFrames) {
            last = frame ? std::max(last.value_or(frame->time), frame->time) : last;
        }
        const std::optional<std::string> text = last ? m_clock->TextOf(*last) : std::nullopt;
        if (text) {
            constexpr size_t kAround = 20; // what containers put round a text
            places.bytes += places.seconds * (text->size() + kAround);
            places.keyFrames += places.seconds; // Matroska's index has the texts as well
            places.textEnd = ClockText::EndOf(*last, m_clock->Time().PlaceOf(*last));
        }
    }

    /// A muxer of the same streams.
    std::unique_ptr<Muxer> Another(MuxTarget& target) const {
        auto muxer = std::make_unique<Muxer>(m_path, m_container, target);
        for (size_t stream = 0; stream < m_muxer.Streams(); ++stream) {
            muxer->AddStream(m_muxer.StreamParameters(stream), m_muxer.StreamChannel(stream));
        }
        return muxer;
    }

    std::string m_path;
    size_t m_output;
    Container m_container;
    SoundDecoder* m_decoder = nullptr; ///< null: nothing is encoded
    bool m_streamed = false;
    std::optional<ContainerClock> m_clock; ///< once it is started
    MuxedFile m_file;
    Muxer m_muxer;
    std::unique_ptr<HeadPredictor> m_predictor;
    LengthPrefixer m_prefixer;
    std::vector<bool> m_wantsLengths;             ///< of each track
    std::vector<std::unique_ptr<Sound>> m_sounds; ///< of each track; null where nothing is encoded
    std::vector<Chapter> m_chapters;
};

/// Which of libavformat's messages are shown: a setting of the whole process.
struct Messages {
    std::mutex lock;
    int periods = 0; ///< that have begun and not ended
    int before = 0;
    int during = 0;
};
Messages g_messages;

} // namespace

bool ContainersSupported() {
    return true;
}

std::unique_ptr<Sink> MakeContainerSink(const std::string& path, Container container, Outputs& outputs,
                                        size_t output, SoundDecoder* sound) {
    return std::make_unique<ContainerSink>(path, container, outputs, output, sound);
}

std::unique_ptr<Sink> MakeStreamSink(const std::string& name, int stream, Outputs& outputs) {
    return std::make_unique<ContainerSink>(name, outputs.MakeStream(name, stream));
}

void QuietContainers() {
    av_log_set_level(AV_LOG_FATAL);
}

QuietPeriod::QuietPeriod() {
    const std::lock_guard lock(g_messages.lock);
    if (g_messages.periods++ == 0) {
        g_messages.before = av_log_get_level();
        g_messages.during = std::min(g_messages.before, AV_LOG_FATAL);
        av_log_set_level(g_messages.during);
    }
}

QuietPeriod::~QuietPeriod() {
    const std::lock_guard lock(g_messages.lock);
    // What others have chosen meanwhile stays.
    if (--g_messages.periods == 0 && av_log_get_level() == g_messages.during) {
        av_log_set_level(g_messages.before);
    }
}

} // namespace media
