#ifndef CATALOG_SRC_DISK_CONTENTS_H
#define CATALOG_SRC_DISK_CONTENTS_H

#include <cstdint>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include "catalog/catalog.h"
#include "disk_state.h"
#include "spans.h"

namespace catalog {

/// A problem, as the catalogue keeps it.
struct ProblemRow {
    bool ofContents = false; ///< met while a block's index or frames were read, which is done once
    bool loss = false;
    std::string kind;
    std::optional<int64_t> block;
    std::string text;

    bool operator<(const ProblemRow& other) const {
        return std::tie(block, kind, text) < std::tie(other.block, other.kind, other.text);
    }
};

/// An event, as the catalogue keeps it.
struct EventRow {
    int64_t vehicle = 0;
    uint32_t sequence = 0;
    uint32_t entry = 0;
    int64_t micros = 0; ///< true time
    uint64_t type = 0;
};

/// What the catalogue knows of a disk.
struct KnownDisk {
    std::optional<int64_t> id; ///< nothing: the disk is new
    int64_t revision = 0;      ///< grows with each change
    int64_t skewSeconds = 0;
    int64_t hidden = 0; ///< channels that the lock hid
    Blob blocks;
    std::vector<Span> spans;
    std::vector<ProblemRow> problems; ///< those of contents
};

/// What is on a disk: what was known and still holds, and what was read.
struct DiskContents {
    Spans spans;
    std::vector<uint32_t> keptSequences; ///< rising: of blocks that were not read
    std::vector<EventRow> newEvents;
    std::vector<ProblemRow> problems; ///< all
    uint64_t read = 0;                ///< blocks
};

/// Reads the blocks that are not known as they are.
/// @param vehicles rows of the vehicles of each entry of the list of blocks
/// @throws recordings::Error (Cancelled)
DiskContents ReadContents(const recordings::Disk& disk, const recordings::BlockList& blocks,
                          const DiskState& state, const std::vector<int64_t>& vehicles,
                          const KnownDisk& known, const Reading& reading, const recordings::Watch& watch);

} // namespace catalog

#endif // CATALOG_SRC_DISK_CONTENTS_H
