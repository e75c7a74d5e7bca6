#include "muxer.h"

#include <algorithm>
#include <array>
#include <limits>
#include <new>
#include <utility>

#include <fmt/format.h>

#include "container_rules.h"
#include "media/error.h"

namespace media {

namespace {

/// For what a muxer writes in small pieces. Payloads pass by it.
constexpr int kIoBufferSize = 0x10000;

std::string ErrorText(int error) {
    std::array<char, AV_ERROR_MAX_STRING_SIZE> text = {};
    av_strerror(error, text.data(), text.size());
    return text.data();
}

void SetText(AVDictionary** texts, const char* key, const std::string& value) {
    if (av_dict_set(texts, key, value.c_str(), 0) < 0) {
        throw std::bad_alloc();
    }
}

ClockUnit UnitOf(AVRational unit) {
    return {unit.num, unit.den};
}

} // namespace

void Muxer::FreeContext::operator()(AVFormatContext* context) const {
    if (context->pb != nullptr) {
        av_freep(&context->pb->buffer);
        avio_context_free(&context->pb);
    }
    avformat_free_context(context);
}

Muxer::Muxer(std::string path, Container container, MuxTarget& target, bool streamed)
    : m_path(std::move(path)), m_container(container), m_target(target), m_packet(av_packet_alloc()) {
    AVFormatContext* context = nullptr;
    Check(avformat_alloc_output_context2(&context, nullptr, NameOf(container), nullptr));
    m_context.reset(context);
    auto* const buffer = static_cast<unsigned char*>(av_malloc(kIoBufferSize));
    context->pb = avio_alloc_context(buffer, kIoBufferSize, 1, this, nullptr, WritePacket, Seek);
    if (!m_packet || buffer == nullptr || context->pb == nullptr) {
        throw std::bad_alloc();
    }
    context->pb->direct = 1;
    context->pb->seekable = streamed ? 0 : AVIO_SEEKABLE_NORMAL;
    // Bit-exact: no random identifiers, no versions. The same recording gives the same bytes.
    context->flags |= AVFMT_FLAG_CUSTOM_IO | AVFMT_FLAG_BITEXACT;
}

Muxer::~Muxer() = default;

void Muxer::AddStream(const AVCodecParameters& parameters, uint32_t channel) {
    AVStream* const stream = avformat_new_stream(m_context.get(), nullptr);
    if (stream == nullptr || avcodec_parameters_copy(stream->codecpar, &parameters) < 0) {
        throw std::bad_alloc();
    }
    const bool isText = parameters.codec_type == AVMEDIA_TYPE_SUBTITLE;
    stream->time_base = isText ? kMilliseconds : kMicroseconds;
    stream->id = static_cast<int>(channel);
    SetText(&stream->metadata, "title", isText ? kTitleOfTexts : TitleOfTracks(channel));
    m_lastTime.push_back(-1);
}

const AVCodecParameters& Muxer::StreamParameters(size_t stream) const {
    return *m_context->streams[stream]->codecpar;
}

uint32_t Muxer::StreamChannel(size_t stream) const {
    return static_cast<uint32_t>(m_context->streams[stream]->id);
}

void Muxer::AddChapters(const std::vector<Chapter>& chapters) {
    for (size_t i = 0; i < chapters.size(); ++i) {
        const int64_t start = chapters[i].time;
        AddChapter(chapters[i], start,
                   i + 1 < chapters.size() ? chapters[i + 1].time : start + kMicroseconds.den);
    }
}

void Muxer::AddChapter(const Chapter& chapter, int64_t start, int64_t end) {
    auto** const list = static_cast<AVChapter**>(
        av_realloc_array(m_context->chapters, m_context->nb_chapters + 1, sizeof(AVChapter*)));
    if (list == nullptr) {
        throw std::bad_alloc();
    }
    m_context->chapters = list;
    auto* const made = static_cast<AVChapter*>(av_mallocz(sizeof(AVChapter)));
    if (made == nullptr) {
        throw std::bad_alloc();
    }
    list[m_context->nb_chapters++] = made;
    made->id = m_context->nb_chapters;
    made->time_base = kMicroseconds;
    made->start = start;
    made->end = end;
    SetText(&made->metadata, "title", chapter.title);
}

void Muxer::Start(const ContainerFacts& facts) {
    SetText(&m_context->metadata, "title", facts.title);
    SetText(&m_context->metadata, "comment", facts.comment);
    SetText(&m_context->metadata, KeyOfStart(m_container, facts.startTime), facts.startTime);
    AVDictionary* options = nullptr;
    // Checksums of every cluster take longer than everything else, and the whole file has a better one.
    SetText(&options, "write_crc32", "0");
    // MP4 counts what a frame lasts in 31 bits: in milliseconds, that is 24 days; in microseconds, half an hour.
    if (m_container == Container::Mp4) {
        SetText(&options, "video_track_timescale", "1000");
    }
    const int started = avformat_write_header(m_context.get(), &options);
    av_dict_free(&options);
    Check(started);
    avio_flush(m_context->pb);
    Check(m_context->pb->error);
}

int64_t Muxer::LargestGap() const {
    int64_t largest = std::numeric_limits<int64_t>::max();
    for (size_t stream = 0; stream < Streams(); ++stream) {
        largest = std::min(largest, LargestGapOf(m_container, UnitOf(m_context->streams[stream]->time_base)));
    }
    return largest;
}

void Muxer::Write(size_t stream, const uint8_t* data, size_t size, int64_t micros, bool key,
                  int64_t duration) {
    const AVRational unit = m_context->streams[stream]->time_base;
    int64_t& last = m_lastTime[stream];
    last = NextTime(UnitOf(unit), last, micros);
    m_packet->duration =
        duration == 0 ? 0 : std::max<int64_t>(av_rescale_q(duration, kMicroseconds, unit), 1);
    Send(stream, data, size, last, key);
}

void Muxer::WriteSound(size_t stream, const uint8_t* data, size_t size, int64_t time, int64_t samples) {
    const AVRational unit = m_context->streams[stream]->time_base;
    const AVRational sample = {1, StreamParameters(stream).sample_rate};
    m_lastTime[stream] = av_rescale_q(time, sample, unit);
    m_packet->duration = av_rescale_q(samples, sample, unit);
    Send(stream, data, size, m_lastTime[stream], true);
}

void Muxer::WriteText(const std::string& text, int64_t micros, int64_t end) {
    const size_t stream = Streams() - 1;
    std::vector<uint8_t> bytes = TextPayload(m_container, text);
    const ClockUnit unit = UnitOf(m_context->streams[stream]->time_base);
    int64_t& last = m_lastTime[stream];
    last = NextTime(unit, last, micros);
    m_packet->duration = DurationUntil(unit, last, end);
    Send(stream, bytes.data(), bytes.size(), last, true);
}

void Muxer::Send(size_t stream, const uint8_t* data, size_t size, int64_t time, bool key) {
    // No memory of its own: the muxer copies what it must keep.
    m_packet->data = const_cast<uint8_t*>(data);
    m_packet->size = static_cast<int>(size);
    m_packet->stream_index = static_cast<int>(stream);
    m_packet->flags = key ? AV_PKT_FLAG_KEY : 0;
    m_packet->pts = time;
    m_packet->dts = time;
    const int written = av_write_frame(m_context.get(), m_packet.get());
    m_packet->data = nullptr;
    m_packet->size = 0;
    Check(written);
}

void Muxer::WriteHeldBack() {
    for (size_t stream = 0; stream < Streams(); ++stream) {
        // An audio packet is held back until the next packet comes; an empty one is not kept itself.
        if (StreamParameters(stream).codec_type == AVMEDIA_TYPE_AUDIO && m_lastTime[stream] >= 0) {
            m_packet->stream_index = static_cast<int>(stream);
            m_packet->pts = m_lastTime[stream];
            m_packet->dts = m_lastTime[stream];
            Check(av_write_frame(m_context.get(), m_packet.get()));
        }
    }
    Check(av_write_frame(m_context.get(), nullptr));
    avio_flush(m_context->pb);
    Check(m_context->pb->error);
}

uint64_t Muxer::Position() const {
    return static_cast<uint64_t>(avio_tell(m_context->pb));
}

void Muxer::SkipTo(uint64_t offset) {
    Check(static_cast<int>(
        std::min<int64_t>(avio_seek(m_context->pb, static_cast<int64_t>(offset), SEEK_SET), 0)));
}

void Muxer::Put(const uint8_t* data, size_t size) {
    avio_write(m_context->pb, data, static_cast<int>(size));
    Check(m_context->pb->error);
}

void Muxer::Finish() {
    Check(av_write_trailer(m_context.get()));
    avio_flush(m_context->pb);
    Check(m_context->pb->error);
}

void Muxer::Check(int result) {
    if (m_targetError) {
        std::rethrow_exception(std::exchange(m_targetError, nullptr));
    }
    if (result < 0) {
        throw Error(ErrorKind::CannotWrite,
                    fmt::format("{}: cannot be written: {}; nothing was kept", m_path, ErrorText(result)));
    }
}

int Muxer::WritePacket(void* muxer, uint8_t* data, int size) {
    auto& self = *static_cast<Muxer*>(muxer);
    try {
        self.m_target.Write(data, static_cast<size_t>(size));
        return size;
    } catch (...) {
        self.m_targetError = std::current_exception();
        return AVERROR(EIO);
    }
}

int64_t Muxer::Seek(void* muxer, int64_t offset, int whence) {
    auto& self = *static_cast<Muxer*>(muxer);
    if (whence != SEEK_SET) {
        return -1;
    }
    self.m_target.Seek(static_cast<uint64_t>(offset));
    return offset;
}

} // namespace media
