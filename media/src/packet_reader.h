#ifndef MEDIA_SRC_PACKET_READER_H
#define MEDIA_SRC_PACKET_READER_H

#include <cstddef>
#include <cstdint>
#include <memory>

#include "container_rules.h"
#include "media/sink.h"
#include "recordings/source.h"

namespace media {

/// Reads the packets of a Matroska or MP4 file, as they lie in it. Nothing is decoded, and no other file is opened,
/// whatever the file says.
class PacketReader {
public:
    /// @param file must outlive the object
    /// @throws Error (CannotReadBack) when it is no such container; (NoContainers)
    PacketReader(const recordings::Source& file, Container container);
    ~PacketReader();
    PacketReader(const PacketReader&) = delete;
    PacketReader& operator=(const PacketReader&) = delete;

    /// Streams of video and audio. Others are passed by.
    size_t Streams() const;
    /// Whether the stream has a length before each NAL unit, in place of a start code.
    bool HasLengths(size_t stream) const;
    /// In which the times of a stream's packets are counted.
    ClockUnit Unit(size_t stream) const;

    struct Packet {
        size_t stream = 0;
        const uint8_t* data = nullptr; ///< valid until the next one is read
        size_t size = 0;
        int64_t time = 0; ///< in units; INT64_MIN where the file tells none
    };
    /// @return false at the end
    /// @throws Error (CannotReadBack)
    bool Next(Packet& packet);

private:
    class Impl;
    std::unique_ptr<Impl> m_impl;
};

} // namespace media

#endif // MEDIA_SRC_PACKET_READER_H
