#ifndef MEDIA_EARLIER_H
#define MEDIA_EARLIER_H

/// @file earlier.h
/// Exports that were made before, so that work which was ended can go on where it stood.

#include <string>
#include <vector>

#include "media/exporter.h"

namespace media {

/// What has the name of an export already.
struct Earlier {
    bool isThere = false;               ///< something does
    std::string difference;             ///< why it is not what the request asks for; empty: it is
    bool lost = false;                  ///< its manifest names something that is missing
    std::vector<std::string> arguments; ///< of the program that made it, as the manifest has them
};

/// Holds what has an export's name, and the manifest beside it, against a request for one container: what was asked for
/// and how, the partition head, the first block and the last that were used, and the digests of the files. What the
/// manifest says of the range's other blocks is not read again.
/// @param watch asked while files are hashed
/// @throws recordings::Error (Cancelled)
Earlier LookForEarlier(const recordings::Disk& disk, const recordings::BlockList& blocks,
                       const ExportRequest& request, const recordings::Watch& watch = {});

} // namespace media

#endif // MEDIA_EARLIER_H
