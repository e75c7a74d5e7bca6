#include <fmt/format.h>

#include <limits>
#include <set>

#include "outputs.h"
#include "sink.h"

namespace diskaccess {

namespace {

std::string Ending(const Track& track) {
    if (track.isVideo) {
        return track.video == VideoCodec::Unknown ? "video" : CodecName(track.video);
    }
    const std::string& name = track.audio.name;
    return name.empty() ? "audio" : name.rfind("pcm_", 0) == 0 ? name.substr(4) : name;
}

std::string FileOf(const std::string& name, const Track& track) {
    return fmt::format("{}-ch{}.{}", name, track.channel, Ending(track));
}

class RawSink : public Sink {
public:
    RawSink(std::string name, Outputs& outputs) : m_name(std::move(name)), m_outputs(outputs) {}

    bool Add(Track& track, const PlacedFrame& /*first*/, std::string& /*why*/) override {
        track.output = m_files.size();
        m_files.push_back(&m_outputs.Make(FileOf(m_name, track)));
        return true;
    }

    void Write(size_t index, const PlacedFrame& frame) override {
        m_files[index]->Write(frame.payload.Data(), frame.head.len);
    }

    std::vector<Exported> Finish() override {
        std::vector<Exported> outputs;
        for (OutputFile* const file : m_files) {
            file->Complete();
            outputs.push_back({file->Path(), file->Size(), file->Sha256()});
        }
        return outputs;
    }

private:
    std::string m_name;
    Outputs& m_outputs;
    std::vector<OutputFile*> m_files;
};

/// All that a channel can turn out to hold.
std::vector<Track> PossibleTracks(uint32_t channel, const AudioCodec& givenAudio) {
    std::vector<Track> tracks;
    Track track;
    track.channel = channel;
    for (const VideoCodec codec : {VideoCodec::Unknown, VideoCodec::H264, VideoCodec::H265}) {
        track.video = codec;
        tracks.push_back(track);
    }
    track.isVideo = false;
    track.audio = givenAudio;
    tracks.push_back(track);
    ChnProp_t properties = {};
    for (unsigned int code = 0; code <= std::numeric_limits<decltype(properties.AType)>::max(); ++code) {
        properties.AType = static_cast<decltype(properties.AType)>(code);
        track.audio = AudioOf(properties);
        tracks.push_back(track);
    }
    return tracks;
}

} // namespace

std::vector<std::string> PossibleRawFiles(const std::string& name, uint32_t channels,
                                          const AudioCodec& givenAudio) {
    std::set<std::string> files;
    for (uint32_t channel = 0; channel < 32; ++channel) {
        for (const Track& track : PossibleTracks(channel, givenAudio)) {
            if ((channels >> channel & 1) != 0) {
                files.insert(FileOf(name, track));
            }
        }
    }
    return {files.begin(), files.end()};
}

std::unique_ptr<Sink> MakeRawSink(const std::string& name, Outputs& outputs) {
    return std::make_unique<RawSink>(name, outputs);
}

} // namespace diskaccess
