// Matroska and MP4 files, by libavformat. Payloads are copied, never transcoded.

#include <algorithm>
#include <functional>
#include <utility>

#include "byte_stream.h"
#include "clock_text.h"
#include "container_clock.h"
#include "container_rules.h"
#include "media/sink.h"
#include "muxer.h"
#include "predicted_head.h"
#include "stream_parameters.h"

namespace media {

namespace {

class ContainerSink : public Sink {
public:
    ContainerSink(const std::string& path, Container container, Outputs& outputs, size_t output)
        : m_path(path), m_output(output), m_container(container), m_file(&outputs.Make(path).Bytes()),
          m_muxer(m_path, m_container, m_file), m_predictor(MakeHeadPredictor(container)) {}

    /// A stream's.
    ContainerSink(std::string name, FileWriter& stream)
        : m_path(std::move(name)), m_output(0), m_container(Container::Matroska), m_streamed(true),
          m_file(&stream), m_muxer(m_path, m_container, m_file, m_streamed), m_predictor(MakeStreamHead()) {}

    std::optional<LeftOutReason> Refusal(const Track& track, const recordings::Frame& frame) const override {
        return RefusalOf(m_container, track, frame);
    }

    std::optional<LeftOutReason> Add(Track& track, const recordings::Frame& first) override {
        if (m_clock) {
            return LeftOutReason::TrackBegunTooLate;
        }
        Parameters parameters;
        const std::optional<LeftOutReason> refusal = Examine(m_container, track, first, parameters);
        if (!refusal) {
            track.output = m_output;
            m_muxer.AddStream(*parameters, track.channel);
            m_wantsLengths.push_back(WantsLengths(*parameters));
        }
        return refusal;
    }

    bool Continues(size_t index, const Track& now, const recordings::Frame& frame) const override {
        const AVCodecParameters& before = m_muxer.StreamParameters(index);
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
        LengthPrefixer::Bytes bytes = {frame.data, frame.size};
        if (m_wantsLengths[index]) {
            bytes = m_prefixer.Convert(frame.data, frame.size);
        }
        const ContainerClock::Spot spot = m_clock->Take(index, frame);
        if (spot.text) {
            m_muxer.WriteText(spot.text->text, spot.text->place, spot.text->end);
        }
        // In MP4 each frame lasts until the next one. The last one must be told to last at all, or players leave it out.
        const int64_t duration = m_container == Container::Mp4 ? m_clock->Time().IntervalOf(index) : 0;
        m_muxer.Write(index, bytes.data, bytes.size, spot.place, frame.type != recordings::kPictureFrame,
                      duration);
    }

    const std::vector<ClockSegment>& Segments() const override { return m_clock->Time().Segments(); }

    void Finish() override {
        m_predictor->Finish(m_muxer, m_file, m_clock->Place(m_chapters, m_clock->Time().Latest()));
        m_file.Finish();
    }

private:
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
    bool m_streamed = false;
    std::optional<ContainerClock> m_clock; ///< once it is started
    MuxedFile m_file;
    Muxer m_muxer;
    std::unique_ptr<HeadPredictor> m_predictor;
    LengthPrefixer m_prefixer;
    std::vector<bool> m_wantsLengths; ///< of each track
    std::vector<Chapter> m_chapters;
};

} // namespace

bool ContainersSupported() {
    return true;
}

std::unique_ptr<Sink> MakeContainerSink(const std::string& path, Container container, Outputs& outputs,
                                        size_t output) {
    return std::make_unique<ContainerSink>(path, container, outputs, output);
}

std::unique_ptr<Sink> MakeStreamSink(const std::string& name, int stream, Outputs& outputs) {
    return std::make_unique<ContainerSink>(name, outputs.MakeStream(name, stream));
}

void QuietContainers() {
    av_log_set_level(AV_LOG_FATAL);
}

} // namespace media
