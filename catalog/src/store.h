#ifndef CATALOG_SRC_STORE_H
#define CATALOG_SRC_STORE_H

#include <vector>

#include "catalog/catalog.h"
#include "disk_contents.h"
#include "disk_state.h"

namespace catalog {

/// Rows of vehicles, one for each name; makes those that are missing.
std::vector<int64_t> RowsOf(Database& database, const std::vector<VehicleName>& vehicles);

/// What the catalogue knows of a disk; nothing of one that is new.
KnownDisk LoadKnown(Database& database, const DiskState& state);

/// What is written of a disk beside its contents.
struct DiskFacts {
    const recordings::Disk& disk;
    const recordings::BlockList& blocks;
    const DiskState& state;
    const Reading& reading;
    std::vector<int64_t> vehicles; ///< rows, of each entry of the list of blocks
};

/// Enters a disk, in one transaction.
/// @return its number; nothing when another program has entered it since @p known was loaded
std::optional<int64_t> Store(Database& database, const DiskFacts& facts, const KnownDisk& known,
                             const DiskContents& contents);

} // namespace catalog

#endif // CATALOG_SRC_STORE_H
