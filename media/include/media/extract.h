#ifndef MEDIA_EXTRACT_H
#define MEDIA_EXTRACT_H

/// @file extract.h
/// Parts of a partition, as a partition.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "media/output_file.h"
#include "media/provenance.h"
#include "media/request.h"
#include "recordings/blocks.h"
#include "recordings/disk.h"

namespace media {

/// A block that was copied.
struct CopiedBlock {
    uint32_t number = 0;
    AreaDigest area;
};

/// What came of an extract.
struct ExtractResult {
    std::string image;
    uint64_t imageSize = 0;          ///< bytes: that of the partition
    std::vector<AreaDigest> areas;   ///< what was copied beside blocks
    std::vector<CopiedBlock> blocks; ///< in the order of their places
    AreaDigest headDigest;
    std::optional<AreaDigest> sourceDigest;
    std::string manifest;
    std::string signature; ///< empty: nobody signs
    std::vector<recordings::Problem> problems;
};

/// Copies what lies before the first block, and the blocks that hold the range and the key frames that it begins with, to
/// a sparse image: byte for byte, at their places, and nothing else. The image opens as the partition does. A manifest
/// (NAME.json) names the digest of each block; its signature (NAME.json.sig) is made if there is a key.
///
/// What the disk does not deliver is zeros in the image, and a problem. The password of an access lock lies in the
/// partition head, and is copied with it.
/// @param source what @p disk is read from; no output takes its place
/// @param watch asked several times a second; false ends the work, which leaves nothing
/// @return nothing when no block holds anything of the range: no file is made then
/// @throws Error when files cannot be made
/// @throws recordings::Error (Cancelled)
std::optional<ExtractResult> Extract(const recordings::Disk& disk, const recordings::BlockList& blocks,
                                     const SourceIdentity& source, const Request& request,
                                     const recordings::ProblemSink& problems,
                                     const recordings::Watch& watch = {});

} // namespace media

#endif // MEDIA_EXTRACT_H
