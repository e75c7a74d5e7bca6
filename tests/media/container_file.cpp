#include "media/container_file.h"

#include <memory>
#include <stdexcept>

extern "C" {
#include <libavformat/avformat.h>
}

namespace media_test {

namespace {

constexpr AVRational kMicroseconds = {1, 1000000};

struct CloseInput {
    void operator()(AVFormatContext* input) const { avformat_close_input(&input); }
};
struct FreePacket {
    void operator()(AVPacket* packet) const { av_packet_free(&packet); }
};
using Input = std::unique_ptr<AVFormatContext, CloseInput>;

Input Open(const std::string& path) {
    AVFormatContext* context = nullptr;
    if (avformat_open_input(&context, path.c_str(), nullptr, nullptr) < 0) {
        throw std::runtime_error(path + " is no container");
    }
    return Input(context);
}

std::map<std::string, std::string> TagsOf(const AVDictionary* tags) {
    std::map<std::string, std::string> found;
    for (const AVDictionaryEntry* tag = nullptr;
         (tag = av_dict_get(tags, "", tag, AV_DICT_IGNORE_SUFFIX)) != nullptr;) {
        found[tag->key] = tag->value;
    }
    return found;
}

bool ReadPacket(const Input& input, ContainerFile::Packet& packet) {
    const std::unique_ptr<AVPacket, FreePacket> read(av_packet_alloc());
    if (av_read_frame(input.get(), read.get()) < 0) {
        return false;
    }
    packet.stream = static_cast<size_t>(read->stream_index);
    packet.micros = av_rescale_q(read->pts, input->streams[read->stream_index]->time_base, kMicroseconds);
    packet.duration =
        av_rescale_q(read->duration, input->streams[read->stream_index]->time_base, kMicroseconds);
    packet.key = (read->flags & AV_PKT_FLAG_KEY) != 0;
    packet.data.assign(read->data, read->data + read->size);
    return true;
}

} // namespace

ContainerFile ContainerFile::Read(const std::string& path) {
    const Input input = Open(path);
    ContainerFile file;
    file.format = input->iformat->name;
    file.duration = input->duration;
    file.tags = TagsOf(input->metadata);
    for (unsigned int i = 0; i < input->nb_streams; ++i) {
        const AVCodecParameters& parameters = *input->streams[i]->codecpar;
        file.streams.push_back({avcodec_get_name(parameters.codec_id),
                                parameters.width,
                                parameters.sample_rate,
                                {parameters.extradata, parameters.extradata + parameters.extradata_size},
                                TagsOf(input->streams[i]->metadata)});
    }
    for (unsigned int i = 0; i < input->nb_chapters; ++i) {
        const AVChapter& chapter = *input->chapters[i];
        file.chapters.push_back({av_rescale_q(chapter.start, chapter.time_base, kMicroseconds),
                                 av_rescale_q(chapter.end, chapter.time_base, kMicroseconds),
                                 TagsOf(chapter.metadata)["title"]});
    }
    for (Packet packet; ReadPacket(input, packet);) {
        file.packets.push_back(packet);
    }
    return file;
}

ContainerFile::Packet ContainerFile::After(const std::string& path, size_t stream, int64_t micros) {
    const Input input = Open(path);
    const int64_t time = av_rescale_q(micros, kMicroseconds, input->streams[stream]->time_base);
    if (av_seek_frame(input.get(), static_cast<int>(stream), time, AVSEEK_FLAG_BACKWARD) < 0) {
        throw std::runtime_error(path + ": cannot be sought in");
    }
    Packet packet;
    while (ReadPacket(input, packet) && packet.stream != stream) {
    }
    return packet;
}

} // namespace media_test
