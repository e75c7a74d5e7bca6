#ifndef DISK_ACCESS_PLAYBACK_READ_PART_STATE_H
#define DISK_ACCESS_PLAYBACK_READ_PART_STATE_H

#include <cstdint>

#include "dev_io.h"
#include "format/ring.h"
#include "read_block.h"

/// A partition open for playback.
struct ReadPartState_st {
    PartAccess_t partition;
    uint32_t BlkCount;  ///< as the head states it
    uint32_t RingCount; ///< blocks that are looked at: fewer, if the head states more than there can be
    uint32_t Inside;    ///< blocks that begin inside the device
    bool TableInside;   ///< the bad-block table does not reach beyond the device: loading it may succeed
    uint32_t BlkSize;
    uint32_t FmtVersion;
    uint32_t BBTabOffs;
    uint8_t* pBadBlockTab; ///< one bit a block; null until loaded
    uint32_t PartStatus;   ///< kHeadAccepted or kWrongMagic
    uint32_t Encrypt;
    uint32_t EncryptMap;
    char CipherCode[128];

    disk_access::Ring TheRing() const { return {RingCount}; }

    /// Whether a block lies beyond the device's end, as all but a few do in a forged ring, and many on a copy
    /// that was cut off. No such block can be opened, and trying costs a flush of the device each time.
    bool Beyond(uint32_t block) const { return block >= Inside; }

    /// Opens one of the ring's blocks.
    int OpenBlock(CReadBlock& block, uint32_t number, int rebuild) {
        return block.OpenBlock(number, BlkSize, &partition, FmtVersion, rebuild);
    }
};

namespace disk_access {

constexpr uint32_t kHeadAccepted = 0;
constexpr uint32_t kWrongMagic = 2;

/// A block opened for a look at it, closed at the end of its scope.
class BriefBlock {
public:
    BriefBlock(ReadPartState_st& part, uint32_t number, int rebuild)
        : m_opened(part.OpenBlock(m_block, number, rebuild) == 0) {}
    ~BriefBlock() { m_block.CloseBlock(); }
    BriefBlock(const BriefBlock&) = delete;
    BriefBlock& operator=(const BriefBlock&) = delete;

    bool Opened() const { return m_opened; }
    CReadBlock* operator->() { return &m_block; }

private:
    CReadBlock m_block;
    bool m_opened;
};

} // namespace disk_access

#endif // DISK_ACCESS_PLAYBACK_READ_PART_STATE_H
