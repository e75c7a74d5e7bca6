#ifndef MEDIA_SRC_TRACK_DIGESTS_H
#define MEDIA_SRC_TRACK_DIGESTS_H

#include <cstdint>
#include <string>
#include <vector>

#include "media/manifest_file.h"
#include "recordings/blocks.h"
#include "recordings/disk.h"
#include "recordings/source.h"

namespace media {

/// What a track holds: two tracks that hold the same have the same digest. It does not matter how tracks are interleaved.
struct TrackDigest {
    std::string sha256; ///< of the payloads; of video in containers, with the size of each before it
    uint64_t frames = 0;
    uint64_t tooMany = 0;    ///< of the disk: frames that the manifest does not count
    bool hasLengths = false; ///< of a file: there is a length before each NAL unit
};

/// The tracks of a container, in the order of the manifest's.
/// @param count how many there must be
/// @throws Error (CannotReadBack) when it is not such a file
std::vector<TrackDigest> DigestContainer(const recordings::Source& file, const ManifestFile& manifest,
                                         const std::vector<size_t>& tracks, const recordings::Watch& watch);

/// The tracks of a manifest, as the disk has them.
/// @param files what is known of the tracks' files, to bring frames into the same form
std::vector<TrackDigest> DigestFrames(const recordings::Disk& disk, const recordings::BlockList& blocks,
                                      const ManifestFile& manifest, const std::vector<TrackDigest>& files,
                                      const recordings::Watch& watch);

} // namespace media

#endif // MEDIA_SRC_TRACK_DIGESTS_H
