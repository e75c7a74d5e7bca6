#include <fmt/format.h>

#include <limits>
#include <map>
#include <set>
#include <utility>

#include "file_writer.h"
#include "media/sink.h"

namespace media {

namespace {

std::string EndingOf(const Track& track) {
    if (track.isVideo) {
        return track.video == VideoCodec::Unknown ? "video" : NameOf(track.video);
    }
    const std::string& name = track.audio.name;
    if (name.empty()) {
        return "audio";
    }
    return name.rfind("pcm_", 0) == 0 ? name.substr(4) : name;
}

class RawSink : public Sink {
public:
    RawSink(std::string name, Outputs& outputs) : m_name(std::move(name)), m_outputs(outputs) {}

    std::optional<LeftOutReason> Refusal(const Track& /*track*/,
                                         const recordings::Frame& /*frame*/) const override {
        return std::nullopt;
    }

    std::optional<LeftOutReason> Add(Track& track, const recordings::Frame& first) override {
        track.output = m_files.size();
        const size_t number = ++m_names[RawFileName(m_name, track)];
        m_files.push_back(&m_outputs.Make(RawFileName(m_name, track, number)).Bytes());
        m_encodings.push_back({track.Codec(), track.audio.sampleRate, SetOf(first)});
        return std::nullopt;
    }

    bool Continues(size_t index, const Track& now, const recordings::Frame& frame) const override {
        const Encoding& before = m_encodings[index];
        if (!now.isVideo) {
            return now.Codec() == before.codec && now.audio.sampleRate == before.sampleRate;
        }
        const std::vector<uint8_t> set = SetOf(frame);
        return now.video == VideoCodec::Unknown || set.empty() ||
               (now.Codec() == before.codec && set == before.set);
    }

    void Write(size_t index, const recordings::Frame& frame) override {
        m_files[index]->Write(frame.data, frame.size);
    }

    void Finish() override {}

    const std::vector<ClockSegment>& Segments() const override { return m_segments; }

private:
    struct Encoding {
        std::string codec;
        uint32_t sampleRate;
        std::vector<uint8_t> set; ///< the sequence parameter set of video
    };

    static std::vector<uint8_t> SetOf(const recordings::Frame& frame) {
        return frame.type == recordings::kKeyFrame ? SequenceSet(frame.data, frame.size)
                                                   : std::vector<uint8_t>();
    }

    std::string m_name;
    std::map<std::string, size_t> m_names; ///< how often they were wanted
    std::vector<Encoding> m_encodings;
    Outputs& m_outputs;
    std::vector<FileWriter*> m_files;
    std::vector<ClockSegment> m_segments; ///< none
};

/// All that a channel can turn out to hold.
std::vector<Track> PossibleTracks(uint32_t channel, const AudioCodec& audio) {
    std::vector<Track> tracks;
    Track track;
    track.channel = channel;
    for (const VideoCodec codec : {VideoCodec::Unknown, VideoCodec::H264, VideoCodec::H265}) {
        track.video = codec;
        tracks.push_back(track);
    }
    track.isVideo = false;
    track.audio = audio;
    tracks.push_back(track);
    recordings::ChannelProperties properties;
    for (unsigned int code = 0; code <= std::numeric_limits<decltype(properties.audioCode)>::max(); ++code) {
        properties.audioCode = static_cast<decltype(properties.audioCode)>(code);
        track.audio = AudioOf(properties);
        tracks.push_back(track);
    }
    return tracks;
}

} // namespace

std::string RawFileName(const std::string& name, const Track& track, size_t number) {
    const std::string suffix = number == 1 ? "" : fmt::format("-{}", number);
    return fmt::format("{}-ch{}{}.{}", name, track.channel, suffix, EndingOf(track));
}

std::vector<std::string> PossibleRawFiles(const std::string& name, recordings::ChannelSet channels,
                                          const AudioCodecs& audio) {
    std::set<std::string> files;
    for (uint32_t channel = 0; channel < recordings::kChannels; ++channel) {
        if (channels.Has(channel)) {
            for (const Track& track : PossibleTracks(channel, audio.Of(channel))) {
                files.insert(RawFileName(name, track));
            }
        }
    }
    return {files.begin(), files.end()};
}

std::unique_ptr<Sink> MakeRawSink(const std::string& name, Outputs& outputs) {
    return std::make_unique<RawSink>(name, outputs);
}

} // namespace media
