#include <fmt/format.h>

#include "output_file.h"
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

class RawSink : public Sink {
public:
    RawSink(std::string name, bool replace) : m_name(std::move(name)), m_replace(replace) {}

    bool Add(Track& track, const PlacedFrame& /*first*/, std::string& /*why*/) override {
        track.output = m_files.size();
        const std::string path = fmt::format("{}-ch{}.{}", m_name, track.channel, Ending(track));
        m_files.push_back(std::make_unique<OutputFile>(path, m_replace));
        return true;
    }

    void Write(size_t index, const PlacedFrame& frame) override {
        m_files[index]->Write(frame.payload.Data(), frame.head.len);
    }

    std::vector<Exported> Finish() override {
        std::vector<Exported> outputs;
        for (const auto& file : m_files) {
            file->Finish();
            outputs.push_back({file->Path(), file->Size(), file->Sha256()});
        }
        return outputs;
    }

private:
    std::string m_name;
    bool m_replace;
    std::vector<std::unique_ptr<OutputFile>> m_files;
};

} // namespace

std::unique_ptr<Sink> MakeRawSink(const std::string& name, bool replace) {
    return std::make_unique<RawSink>(name, replace);
}

} // namespace diskaccess
