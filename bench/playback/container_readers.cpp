#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "playback/container_file.h"
#include "playback/reader.h"

extern "C" {
#include <libavcodec/packet.h>
}

namespace playback_bench {

namespace {

class AvReader : public Reader {
public:
    AvReader(const FrameSet& set, Order order, std::string ending, bool parsers)
        : m_path(set.File(ending)), m_streams(set.Streams()), m_order(order), m_ending(std::move(ending)),
          m_parsers(parsers) {}

    void Prepare() override {
        if (m_order == Order::AsRecorded) {
            m_files.emplace_back(m_path, m_parsers, std::nullopt);
        } else {
            for (size_t stream = 0; stream < m_streams.size(); ++stream) {
                m_files.emplace_back(m_path, m_parsers, stream);
            }
        }
    }

    void ReadAll(FrameSink& sink) override {
        for (ContainerFile& file : m_files) {
            while (const AVPacket* packet = file.Next()) {
                const Stream& stream = m_streams.at(static_cast<size_t>(packet->stream_index));
                sink.Take({stream.channel, stream.audio, packet->data, static_cast<size_t>(packet->size)});
            }
        }
    }

    NalForm Form() const override { return m_ending == "ts" ? NalForm::StartCodes : NalForm::Lengths; }

private:
    std::string m_path;
    std::vector<Stream> m_streams;
    Order m_order;
    std::string m_ending;
    bool m_parsers;
    std::vector<ContainerFile> m_files;
};

} // namespace

ReaderPtr ContainerReader(const FrameSet& set, Order order, const std::string& ending, bool parsers) {
    return std::make_unique<AvReader>(set, order, ending, parsers);
}

} // namespace playback_bench
