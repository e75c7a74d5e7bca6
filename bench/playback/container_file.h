#ifndef BENCH_PLAYBACK_CONTAINER_FILE_H
#define BENCH_PLAYBACK_CONTAINER_FILE_H

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

struct AVFormatContext;
struct AVPacket;

namespace playback_bench {

/// A file open in libavformat.
class ContainerFile {
public:
    /// @param parsers false: packets come as they are stored, and nothing is filled in
    /// @param stream  the only stream wanted; none: all
    ContainerFile(const std::string& path, bool parsers, std::optional<size_t> stream);

    /// The next packet, or null at the end. Valid until the next call.
    const AVPacket* Next();

    /// Moves to the stream's last key frame at or before a time.
    /// @param micros time from the file's start
    /// @return false when libavformat fails
    bool Seek(size_t stream, int64_t micros);

private:
    struct Close {
        void operator()(AVFormatContext* input) const;
    };
    struct Free {
        void operator()(AVPacket* packet) const;
    };

    std::unique_ptr<AVFormatContext, Close> m_input;
    std::unique_ptr<AVPacket, Free> m_packet;
    std::optional<size_t> m_stream;
};

} // namespace playback_bench

#endif // BENCH_PLAYBACK_CONTAINER_FILE_H
