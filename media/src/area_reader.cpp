#include "area_reader.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace media {

namespace {

constexpr size_t kPiece = 0x40000;
/// What a disk loses at least.
constexpr uint64_t kSector = 512;

} // namespace

AreaReader::AreaReader(const recordings::Source& source, uint64_t offset, uint64_t size,
                       Unreadable unreadable)
    : m_source(source), m_at(offset), m_end(size > UINT64_MAX - offset ? UINT64_MAX : offset + size),
      m_unreadable(std::move(unreadable)), m_bytes(new uint8_t[kPiece]) {}

AreaReader::Piece AreaReader::Next() {
    const auto size = static_cast<size_t>(std::min<uint64_t>(m_end - m_at, kPiece));
    Fill(size);
    m_at += size;
    if (size == 0) {
        ReportMissed();
    }
    return {m_bytes.get(), size};
}

void AreaReader::Fill(size_t size) {
    const uint64_t sourceSize = m_source.Size();
    // Some sources deliver nothing of a stretch in which there is anything bad: the rest of it is read by the sector.
    bool bySector = false;
    for (size_t done = 0; done < size;) {
        const uint64_t at = m_at + done;
        const uint64_t sectorEnd = std::min((at / kSector + 1) * kSector, m_at + size);
        const size_t wanted = bySector ? static_cast<size_t>(sectorEnd - at) : size - done;
        const size_t got = at < sourceSize ? m_source.Read(at, m_bytes.get() + done, wanted) : 0;
        done += got;
        if (got < wanted && !bySector && at < sourceSize) {
            bySector = true;
        } else if (got < wanted) {
            const uint64_t from = m_at + done;
            const uint64_t to = from < sourceSize ? sectorEnd : m_at + size;
            std::memset(m_bytes.get() + done, 0, static_cast<size_t>(to - from));
            Miss(from, to);
            done += static_cast<size_t>(to - from);
        }
    }
}

void AreaReader::Miss(uint64_t from, uint64_t to) {
    m_unreadableBytes += to - from;
    if (m_missedTo != from) {
        ReportMissed();
        m_missedFrom = from;
    }
    m_missedTo = to;
}

void AreaReader::ReportMissed() {
    if (m_missedTo != m_missedFrom && m_unreadable) {
        m_unreadable(m_missedFrom, m_missedTo);
    }
    m_missedFrom = m_missedTo;
}

} // namespace media
