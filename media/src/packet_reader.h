#ifndef MEDIA_SRC_PACKET_READER_H
#define MEDIA_SRC_PACKET_READER_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "container_rules.h"
#include "media/sink.h"
#include "recordings/source.h"

namespace media {

/// What a Matroska or MP4 file says of itself; empty where it says nothing.
struct FileFacts {
    std::string title;
    std::string comment;
    std::string startTime;                ///< RFC 3339, UTC
    std::vector<std::string> trackTitles; ///< of video and audio
    std::string textTitle;                ///< of the text track
    std::vector<Chapter> chapters;        ///< with places in the file, microseconds, as times
    std::vector<Chapter> listedChapters;  ///< the same, of MP4's list of chapters
    size_t others = 0;                    ///< streams that exports do not make
};

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

    /// Streams of video and audio.
    size_t Streams() const;
    /// Whether the stream has a length before each NAL unit, in place of a start code.
    bool HasLengths(size_t stream) const;
    /// In which the times of a stream's packets are counted.
    ClockUnit Unit(size_t stream) const;

    /// Of the text track's times; its numerator is 0 where there is none.
    ClockUnit TextUnit() const;
    /// What the file says of itself.
    FileFacts Facts() const;

    struct Packet {
        bool isText = false; ///< of the text track: the number of the stream says nothing
        size_t stream = 0;
        const uint8_t* data = nullptr; ///< valid until the next one is read
        size_t size = 0;
        int64_t time = 0;     ///< in units; INT64_MIN where the file tells none
        int64_t duration = 0; ///< the same
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
