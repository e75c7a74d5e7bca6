#ifndef MEDIA_SRC_MEMORY_FILE_H
#define MEDIA_SRC_MEMORY_FILE_H

#include <vector>

#include "libav.h"
#include "muxer.h"

namespace media {

/// A muxer's file in memory.
class MemoryFile : public MuxTarget {
public:
    void Write(const uint8_t* data, size_t size) override;
    void Seek(uint64_t offset) override { m_position = static_cast<size_t>(offset); }

    /// What a demuxer finds its first stream to be; null when it finds none.
    Parameters StreamParameters();

private:
    static int Read(void* file, uint8_t* data, int size);

    std::vector<uint8_t> m_bytes;
    size_t m_position = 0;
};

} // namespace media

#endif // MEDIA_SRC_MEMORY_FILE_H
