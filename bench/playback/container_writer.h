#ifndef BENCH_PLAYBACK_CONTAINER_WRITER_H
#define BENCH_PLAYBACK_CONTAINER_WRITER_H

#include <memory>
#include <string>
#include <vector>

#include "sample_recorder/frame.h"

struct AVCodecParameters;
struct AVFormatContext;
struct AVPacket;

namespace playback_bench {

/// The encoding of a clip's video or audio, as a container wants to know it.
class Codec {
public:
    /// @throws sample_recorder::Error when the file cannot be read
    explicit Codec(const std::string& path);

    const AVCodecParameters& Parameters() const { return *m_parameters; }

private:
    struct Free {
        void operator()(AVCodecParameters* parameters) const;
    };
    std::unique_ptr<AVCodecParameters, Free> m_parameters;
};

/// Writes frames into a file of libavformat's, as they are.
class ContainerWriter {
public:
    /// @param path    its ending names the container
    /// @param streams what the streams hold, in the order of their numbers
    ContainerWriter(const std::string& path, const std::vector<const Codec*>& streams);

    /// @param start    time stamp that the file begins with
    /// @param duration of the frame; microseconds, both
    void Write(size_t stream, sample_recorder::Frame& frame, int64_t start, int64_t duration);

    /// Completes the file; the last call.
    void Finish();

private:
    struct Close {
        void operator()(AVFormatContext* output) const;
    };
    struct Free {
        void operator()(AVPacket* packet) const;
    };

    void Check(int result) const;

    std::string m_path;
    std::unique_ptr<AVFormatContext, Close> m_output;
    std::unique_ptr<AVPacket, Free> m_packet;
};

} // namespace playback_bench

#endif // BENCH_PLAYBACK_CONTAINER_WRITER_H
