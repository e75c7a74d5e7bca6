#include "packet_reader.h"

#include <cstdio>
#include <limits>
#include <new>
#include <string>

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
        : m_file(file), m_packet(av_packet_alloc()), m_context(avformat_alloc_context()) {
        auto* const buffer = static_cast<unsigned char*>(av_malloc(kIoBufferSize));
        m_io = avio_alloc_context(buffer, kIoBufferSize, 0, this, ReadBytes, nullptr, Seek);
        if (!m_packet || m_context == nullptr || buffer == nullptr || m_io == nullptr) {
            throw std::bad_alloc();
        }
        m_context->pb = m_io;
        m_context->io_open = RefuseToOpen;
        // Packets as they lie in the file.
        m_context->flags |= AVFMT_FLAG_CUSTOM_IO | AVFMT_FLAG_NOPARSE | AVFMT_FLAG_NOFILLIN;
        const AVInputFormat* const format =
            av_find_input_format(container == Container::Mp4 ? "mov" : "matroska");
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
        } while (!IsMedia(static_cast<unsigned int>(m_packet->stream_index)));
        packet = {Place(), m_packet->data, static_cast<size_t>(m_packet->size), m_packet->pts};
        return true;
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

    /// Whether it is video or audio. MP4 has its chapters in a stream as well.
    bool IsMedia(unsigned int stream) const {
        const AVMediaType type = stream < m_context->nb_streams
                                     ? m_context->streams[stream]->codecpar->codec_type
                                     : AVMEDIA_TYPE_UNKNOWN;
        return type == AVMEDIA_TYPE_VIDEO || type == AVMEDIA_TYPE_AUDIO;
    }

    /// The place of the packet's stream among those of media.
    size_t Place() const {
        size_t place = 0;
        for (unsigned int i = 0; i < static_cast<unsigned int>(m_packet->stream_index); ++i) {
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

bool PacketReader::Next(Packet& packet) {
    return m_impl->Next(packet);
}

} // namespace media
