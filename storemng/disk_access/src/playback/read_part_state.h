#ifndef DISK_ACCESS_PLAYBACK_READ_PART_STATE_H
#define DISK_ACCESS_PLAYBACK_READ_PART_STATE_H

#include <cstdint>

#include "dev_io.h"
#include "format/block_geometry.h"
#include "format/index_tables.h"
#include "read_block.h"

/// A partition open for playback.
struct ReadPartState_st {
    PartAccess_t partition;
    uint32_t BlkCount; ///< as the head states it
    uint32_t BlkSize;
    uint32_t FmtVersion;
    uint32_t BBTabOffs;
    uint8_t* pBadBlockTab; ///< one bit per block; null until loaded
    uint32_t TableBlocks;  ///< blocks for which it has bits: fewer if the head states more than there can be
    uint32_t PartStatus;   ///< kHeadAccepted or kWrongMagic
    uint32_t Encrypt;
    uint32_t EncryptMap;
    char CipherCode[128];

    disk_access::BlockGeometry Geometry() const {
        return disk_access::BlockGeometry::Of(BlkSize, FmtVersion);
    }

    /// Whether the loaded table includes a block. It was loaded for the blocks that were possible at that
    /// time, and the device may have grown since.
    bool HoldsBit(uint32_t block) const {
        return pBadBlockTab != nullptr && (block < TableBlocks || block >= BlkCount);
    }

    /// Opens one of the ring's blocks.
    int OpenBlock(CReadBlock& block, uint32_t number, int rebuild) {
        return block.OpenBlock(number, BlkSize, &partition, FmtVersion, rebuild);
    }
};

namespace disk_access {

constexpr uint32_t kHeadAccepted = 0;
constexpr uint32_t kWrongMagic = 2;

/// A block that is opened for a short time, and closed at the end of its scope.
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
