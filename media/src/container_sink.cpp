// Matroska and MP4 files, by libavformat. Payloads are copied, never transcoded.

#include <algorithm>
#include <limits>
#include <utility>

#include "byte_stream.h"
#include "chapter_places.h"
#include "clock_text.h"
#include "container_rules.h"
#include "media/sink.h"
#include "muxer.h"
#include "predicted_head.h"
#include "stream_parameters.h"
#include "timeline.h"

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
        if (m_timeline) {
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
        if (facts.clockText) {
            AddClockText(facts);
        }
        m_muxer.Start(facts);
        m_timeline.emplace(facts.start, m_muxer.LargestGap());
        for (size_t track = 0; track < tracks; ++track) {
            m_timeline->AddTrack();
        }
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
        const int64_t place = m_timeline->PlaceOf(index, frame.time);
        m_chapterPlaces.Note(frame, m_timeline->Segments().size());
        if (m_clockText && m_timeline->IsInNewest(index)) {
            WriteClockText(frame.time, place);
        }
        // In MP4 each frame lasts until the next one. The last one must be told to last at all, or players leave it out.
        const int64_t duration = m_container == Container::Mp4 ? m_timeline->IntervalOf(index) : 0;
        m_muxer.Write(index, bytes.data, bytes.size, place, frame.type != recordings::kPictureFrame,
                      duration);
    }

    const std::vector<ClockSegment>& Segments() const override { return m_timeline->Segments(); }

    void Finish() override {
        m_predictor->Finish(m_muxer, m_file, Placed(m_chapters, m_timeline->Latest()));
        m_file.Finish();
    }

private:
    /// Whether the clock was set will be known when they are long gone.
    void AddChaptersToHead(const ContainerFacts& facts, const std::optional<Estimate>& estimate) {
        m_timeline.emplace(facts.start);
        m_muxer.AddChapters(Placed(facts.chapters, LatestOf(estimate.value_or(Estimate()))));
    }

    /// The place of the last frame that is to come, if the clock is not set.
    int64_t LatestOf(const Estimate& estimate) const {
        int64_t latest = 0;
        for (const std::optional<LastFrame>& last : estimate.lastFrames) {
            latest = std::max(latest, last ? m_timeline->PlaceOf(last->time) : 0);
        }
        return latest;
    }

    /// Has a track of texts say when each second was recorded, of what vehicle and which channels.
    void AddClockText(const ContainerFacts& facts) {
        std::string channels;
        std::optional<uint32_t> last;
        for (size_t stream = 0; stream < m_muxer.Streams(); ++stream) {
            const uint32_t channel = m_muxer.StreamChannel(stream);
            channels += channel == last ? "" : (last ? ", " : "") + std::to_string(channel);
            last = channel;
        }
        const bool isOne = channels.find(',') == std::string::npos;
        m_clockText.emplace([words = facts.clockText,
                             suffix = (isOne ? ", channel " : ", channels ") + channels](int64_t time) {
            return words(time) + suffix;
        });
        m_muxer.AddStream(*TextParameters(m_container), 0);
    }

    void WriteClockText(int64_t time, int64_t place) {
        if (const auto cue = m_clockText->Next(time, place, m_timeline->Segments().size())) {
            m_muxer.WriteText(cue->text, cue->place, cue->end);
        }
    }

    /// The chapters with places as times.
    /// @param latest place of the last frame. After a pause that the file cannot show, another one goes on.
    std::vector<Chapter> Placed(const std::vector<Chapter>& chapters, int64_t latest) const {
        std::vector<Chapter> placed = m_chapterPlaces.Place(chapters, m_timeline->Segments());
        const int64_t reach = std::min(kChapterReach, m_muxer.LargestGap());
        while (!placed.empty() && placed.back().time - latest > reach) {
            placed.pop_back();
        }
        placed.resize(std::min(placed.size(), kMostChapters));
        if (m_container == Container::Mp4 && !placed.empty() && placed.front().time > 0) {
            // Many players of MP4 take the first chapter for one that begins with the file.
            placed.insert(placed.begin(), Chapter{0, "beginning"});
        }
        return placed;
    }

    std::optional<Bytes> Predict(const ContainerFacts& facts, const Estimate& estimate) {
        ContainerFacts placed = facts;
        placed.chapters = Placed(facts.chapters, LatestOf(estimate));
        Estimate places = estimate;
        for (std::optional<LastFrame>& last : places.lastFrames) {
            if (last) {
                last->time = m_timeline->PlaceOf(last->time);
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
        if (m_clockText && last) {
            constexpr size_t kAround = 20; // what containers put round a text
            places.bytes += places.seconds * (m_clockText->TextOf(*last).size() + kAround);
            places.keyFrames += places.seconds; // Matroska's index has the texts as well
            places.textEnd = ClockText::EndOf(*last, m_timeline->PlaceOf(*last));
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
    std::optional<Timeline> m_timeline; ///< once it is started
    MuxedFile m_file;
    Muxer m_muxer;
    std::unique_ptr<HeadPredictor> m_predictor;
    LengthPrefixer m_prefixer;
    std::vector<bool> m_wantsLengths; ///< of each track
    std::vector<Chapter> m_chapters;
    ChapterPlaces m_chapterPlaces;
    std::optional<ClockText> m_clockText;
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
