#ifndef MEDIA_SRC_AREA_READER_H
#define MEDIA_SRC_AREA_READER_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>

#include "recordings/source.h"

namespace media {

/// Reads an area of a source from its start to its end, in pieces, so that memory stays flat. What the disk does not
/// deliver, down to a sector, is zeros, and so is what lies beyond the source's end.
class AreaReader {
public:
    /// Takes what is not delivered: bytes from @p from to @p to - 1 of the source. Stretches that touch come as one.
    using Unreadable = std::function<void(uint64_t from, uint64_t to)>;

    /// @param source must outlive the object
    AreaReader(const recordings::Source& source, uint64_t offset, uint64_t size, Unreadable unreadable = {});

    struct Piece {
        const uint8_t* data = nullptr;
        size_t size = 0;
    };
    /// The next piece. It stays valid until the next call; at the end it is empty.
    Piece Next();

    uint64_t UnreadableBytes() const { return m_unreadableBytes; }

private:
    void Fill(size_t size);
    void Miss(uint64_t from, uint64_t to);
    void ReportMissed();

    const recordings::Source& m_source;
    uint64_t m_at;
    uint64_t m_end;
    Unreadable m_unreadable;
    std::unique_ptr<uint8_t[]> m_bytes;
    uint64_t m_missedFrom = 0; ///< the stretch that may go on
    uint64_t m_missedTo = 0;
    uint64_t m_unreadableBytes = 0;
};

} // namespace media

#endif // MEDIA_SRC_AREA_READER_H
