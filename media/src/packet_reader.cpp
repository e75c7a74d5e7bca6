#include "packet_reader.h"

#include <cstdio>
#include <limits>
#include <new>
#include <string>
#include <utility>

#include "libav.h"
#include "media/error.h"
#include "stream_parameters.h"

namespace media {

namespace {

constexpr int kIoBufferSize = 0x10000;

/// A container may name other files: none of them is opened.
int RefuseToOpen(AVFormatContext* /*context*/, AVIOContext** /*io*/, const char* /*url*/, int /*flags*/,
                 AVDictionary** /*options*/) {
    return AVERROR(EACCES);
}

} // namespace

class PacketReader::Impl {
public:
    Impl(const recordings::Source& file, Container container)
        : m_file(file), m_isMp4(container == Container::Mp4), m_packet(av_packet_alloc()),
          m_context(avformat_alloc_context()) {
        auto* const buffer = static_cast<unsigned char*>(av_malloc(kIoBufferSize));
        m_io = avio_alloc_context(buffer, kIoBufferSize, 0, this, ReadBytes, nullptr, Seek);
        if (!m_packet || m_context == nullptr || buffer == nullptr || m_io == nullptr) {
            throw std::bad_alloc();
        }
        m_context->pb = m_io;
        m_context->io_open = RefuseToOpen;
        // Packets as they lie in the file.
        m_context->flags |= AVFMT_FLAG_CUSTOM_IO | AVFMT_FLAG_NOPARSE | AVFMT_FLAG_NOFILLIN;
        const AVInputFormat* const format = av_find_input_format(m_isMp4 ? "mov" : "matroska");
        if (avformat_open_input(&m_context, nullptr, format, nullptr) < 0) { // it frees the context then
            FreeIo();
            throw Error(ErrorKind::CannotReadBack,
                        m_file.Name() + ": is no " + NameOf(container) + " file that can be read");
        }
    }
    ~Impl() {
        avformat_close_input(&m_context);
        FreeIo();
    }
    Impl(const Impl&) = delete;
    Impl& operator=(const Impl&) = delete;

    size_t Streams() const {
        size_t count = 0;
        for (unsigned int i = 0; i < m_context->nb_streams; ++i) {
            count += IsMedia(i) ? 1u : 0u;
        }
        return count;
    }
    bool HasLengths(size_t stream) const {
        const AVStream* const found = Find(stream);
        return found != nullptr && WantsLengths(*found->codecpar);
    }
    ClockUnit Unit(size_t stream) const {
        const AVStream* const found = Find(stream);
        return found == nullptr ? ClockUnit() : ClockUnit{found->time_base.num, found->time_base.den};
    }

    bool Next(PacketReader::Packet& packet) {
        do {
            av_packet_unref(m_packet.get());
            const int result = av_read_frame(m_context, m_packet.get());
            if (result == AVERROR_EOF) {
                return false;
            }
            if (result < 0 || m_packet->size < 0) {
                throw Error(ErrorKind::CannotReadBack, m_file.Name() + ": cannot be read to its end");
            }
        } while (!IsMedia(Stream()) && !IsText(Stream()));
        packet = {IsText(Stream()), Place(),           m_packet->data, static_cast<size_t>(m_packet->size),
                  m_packet->pts,    m_packet->duration};
        return true;
    }

    ClockUnit TextUnit() const {
        for (unsigned int i = 0; i < m_context->nb_streams; ++i) {
            if (IsText(i)) {
                return {m_context->streams[i]->time_base.num, m_context->streams[i]->time_base.den};
            }
        }
        return {};
    }

    FileFacts Facts() const {
        FileFacts facts;
        facts.title = TextOf(m_context->metadata, "title");
        facts.comment = TextOf(m_context->metadata, "comment");
        facts.startTime = TextOf(m_context->metadata, "creation_time");
        if (facts.startTime.empty()) {
            facts.startTime = TextOf(m_context->metadata, "date");
        }
        bool anyText = false;
        for (unsigned int i = 0; i < m_context->nb_streams; ++i) {
            const std::string title = TextOf(m_context->streams[i]->metadata, "title");
            if (IsMedia(i)) {
                facts.trackTitles.push_back(title);
            } else if (IsText(i) && !std::exchange(anyText, true)) {
                facts.textTitle = title;
            } else if (!HoldsChapters(i)) {
                ++facts.others;
            }
        }
        for (unsigned int i = 0; i < m_context->nb_chapters; ++i) {
            const AVChapter& chapter = *m_context->chapters[i];
            facts.chapters.push_back({av_rescale_q(chapter.start, chapter.time_base, kMicroseconds),
                                      TextOf(chapter.metadata, "title")});
        }
        return facts;
    }

private:
    /// @param place among the streams of media
    const AVStream* Find(size_t place) const {
        for (unsigned int i = 0; i < m_context->nb_streams; ++i) {
            if (IsMedia(i) && place-- == 0) {
                return m_context->streams[i];
            }
        }
        return nullptr;
    }

    AVMediaType TypeOf(unsigned int stream) const {
        return stream < m_context->nb_streams ? m_context->streams[stream]->codecpar->codec_type
                                              : AVMEDIA_TYPE_UNKNOWN;
    }
    /// Whether it is video or audio.
    bool IsMedia(unsigned int stream) const {
        return TypeOf(stream) == AVMEDIA_TYPE_VIDEO || TypeOf(stream) == AVMEDIA_TYPE_AUDIO;
    }
    bool IsText(unsigned int stream) const { return TypeOf(stream) == AVMEDIA_TYPE_SUBTITLE; }
    /// MP4 has its chapters in a stream as well, the last one.
    bool HoldsChapters(unsigned int stream) const {
        return m_isMp4 && TypeOf(stream) == AVMEDIA_TYPE_DATA && stream + 1 == m_context->nb_streams;
    }

    static std::string TextOf(const AVDictionary* texts, const char* key) {
        const AVDictionaryEntry* const entry = av_dict_get(texts, key, nullptr, 0);
        return entry == nullptr ? "" : entry->value;
    }

    unsigned int Stream() const { return static_cast<unsigned int>(m_packet->stream_index); }

    /// The place of the packet's stream among those of media.
    size_t Place() const {
        size_t place = 0;
        for (unsigned int i = 0; i < Stream(); ++i) {
            place += IsMedia(i) ? 1u : 0u;
        }
        return place;
    }

    void FreeIo() {
        if (m_io != nullptr) {
            av_freep(&m_io->buffer);
            avio_context_free(&m_io);
        }
    }

    static int ReadBytes(void* reader, uint8_t* data, int size) {
        auto& self = *static_cast<Impl*>(reader);
        const size_t got = self.m_file.Read(self.m_at, data, static_cast<size_t>(size));
        self.m_at += got;
        return got == 0 ? AVERROR_EOF : static_cast<int>(got);
    }

    static int64_t Seek(void* reader, int64_t offset, int whence) {
        auto& self = *static_cast<Impl*>(reader);
        const auto size = static_cast<int64_t>(self.m_file.Size());
        if ((whence & AVSEEK_SIZE) != 0) {
            return size;
        }
        const int how = whence & ~AVSEEK_FORCE;
        const int64_t from = how == SEEK_SET ? 0 : how == SEEK_CUR ? static_cast<int64_t>(self.m_at) : size;
        if (offset > std::numeric_limits<int64_t>::max() - from || from + offset < 0) {
            return AVERROR(EINVAL);
        }
        self.m_at = static_cast<uint64_t>(from + offset);
        return from + offset;
    }

    const recordings::Source& m_file;
    bool m_isMp4;
    uint64_t m_at = 0;
    media::Packet m_packet;
    AVFormatContext* m_context;
    AVIOContext* m_io = nullptr;
};

PacketReader::PacketReader(const recordings::Source& file, Container container)
    : m_impl(std::make_unique<Impl>(file, container)) {}

PacketReader::~PacketReader() = default;

size_t PacketReader::Streams() const {
    return m_impl->Streams();
}

bool PacketReader::HasLengths(size_t stream) const {
    return m_impl->HasLengths(stream);
}

ClockUnit PacketReader::Unit(size_t stream) const {
    return m_impl->Unit(stream);
}

ClockUnit PacketReader::TextUnit() const {
    return m_impl->TextUnit();
}

FileFacts PacketReader::Facts() const {
    return m_impl->Facts();
}

bool PacketReader::Next(Packet& packet) {
    return m_impl->Next(packet);
}

} // namespace media
