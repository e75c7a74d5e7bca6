#ifndef MEDIA_SRC_MUXER_H
#define MEDIA_SRC_MUXER_H

#include <cstddef>
#include <cstdint>
#include <exception>
#include <memory>
#include <string>
#include <vector>

#include "libav.h"
#include "media/sink.h"

namespace media {

/// Takes what a muxer writes.
class MuxTarget {
public:
    virtual ~MuxTarget() = default;
    /// Writes at the place that was sought, or after what was written last.
    virtual void Write(const uint8_t* data, size_t size) = 0;
    virtual void Seek(uint64_t offset) = 0;
};

/// A muxer of libavformat's. Payloads go to the target without being gathered in a buffer first.
class Muxer {
public:
    /// @param path for messages
    /// @param target must outlive the muxer
    /// @param streamed nothing can be sought in the target: the file is written from its start to its end
    Muxer(std::string path, Container container, MuxTarget& target, bool streamed = false);
    Muxer(const Muxer&) = delete;
    Muxer& operator=(const Muxer&) = delete;
    ~Muxer();

    const char* FormatName() const { return m_context->oformat->name; }
    void AddStream(const AVCodecParameters& parameters, uint32_t channel);
    size_t Streams() const { return m_context->nb_streams; }
    const AVCodecParameters& StreamParameters(size_t stream) const;
    uint32_t StreamChannel(size_t stream) const;

    /// Writes the head.
    void Start(const ContainerFacts& facts);
    /// Has chapters written: with the end of the file, or with its head when it is streamed. Call it before Finish(), or
    /// Start().
    /// @param chapters in order of time, with places in the container, microseconds, as times
    void AddChapters(const std::vector<Chapter>& chapters);
    /// The longest time from one frame of a stream to the next that the container can tell, in microseconds. Known when
    /// it is started.
    int64_t LargestGap() const;
    /// @param micros place in time; moved on where the container's clock cannot tell it from the frame before
    /// @param duration microseconds until the next frame, if that is known; else 0
    void Write(size_t stream, const uint8_t* data, size_t size, int64_t micros, bool key,
               int64_t duration = 0);
    /// Writes a packet of encoded sound.
    /// @param time place in samples of the stream's rate; may lie before the file's zero, and is after the one before
    /// @param samples that it holds
    void WriteSound(size_t stream, const uint8_t* data, size_t size, int64_t time, int64_t samples);
    /// Writes a text to the last stream, which is one of texts.
    /// @param micros place in time
    /// @param end where it is shown no more
    void WriteText(const std::string& text, int64_t micros, int64_t end);
    /// Writes what the muxer holds back of the frames.
    void WriteHeldBack();
    /// Where the next byte goes.
    uint64_t Position() const;
    /// Leaves out what lies before @p offset.
    void SkipTo(uint64_t offset);
    /// Writes bytes of the caller's own.
    void Put(const uint8_t* data, size_t size);
    /// Writes what the file ends with, and what is known of its head only now.
    void Finish();

private:
    struct FreeContext {
        void operator()(AVFormatContext* context) const;
    };

    void AddChapter(const Chapter& chapter, int64_t start, int64_t end);
    void Send(size_t stream, const uint8_t* data, size_t size, int64_t time, bool key);
    void Check(int result);
    static int WritePacket(void* muxer, uint8_t* data, int size);
    static int64_t Seek(void* muxer, int64_t offset, int whence);

    std::string m_path;
    Container m_container;
    MuxTarget& m_target;
    std::exception_ptr m_targetError; ///< libavformat is C: no exception may pass through it
    std::unique_ptr<AVFormatContext, FreeContext> m_context;
    Packet m_packet;
    std::vector<int64_t> m_lastTime; ///< of each stream, in its own units
};

} // namespace media

#endif // MEDIA_SRC_MUXER_H
