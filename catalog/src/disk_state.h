#ifndef CATALOG_SRC_DISK_STATE_H
#define CATALOG_SRC_DISK_STATE_H

#include <cstdint>
#include <string>
#include <vector>

#include "catalog/catalog.h"
#include "catalog/database.h"

namespace catalog {

/// The vehicle that a block's head names.
struct VehicleName {
    std::string number;
    std::string identity;

    bool operator<(const VehicleName& other) const {
        return number < other.number || (number == other.number && identity < other.identity);
    }
};

/// A disk as it is now: what tells it from others, and each of its blocks from what was there before.
struct DiskState {
    std::string head;                  ///< digest of the partition head, in hexadecimal
    std::vector<uint64_t> blocks;      ///< digest of each place of the ring; 0: holds no recording
    std::vector<VehicleName> vehicles; ///< of each entry of the list of blocks
    std::vector<uint64_t> marks;       ///< digests of some blocks, by which the disk is known again
    uint32_t preRecordSeconds = 0;     ///< of the newest block
    uint32_t alarmDelaySeconds = 0;

    /// The digests as the catalogue keeps them.
    Blob Packed() const;
};

/// Reads the heads of all blocks.
/// @throws recordings::Error (Cancelled)
DiskState ReadState(const recordings::Disk& disk, const recordings::BlockList& blocks, const Reading& reading,
                    const recordings::Watch& watch);

/// The digest of a place of the ring among those that the catalogue keeps; 0 beyond their end.
uint64_t DigestAt(const Blob& packed, size_t place);

} // namespace catalog

#endif // CATALOG_SRC_DISK_STATE_H
