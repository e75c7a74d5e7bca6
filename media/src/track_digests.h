#ifndef MEDIA_SRC_TRACK_DIGESTS_H
#define MEDIA_SRC_TRACK_DIGESTS_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "container_rules.h"
#include "media/manifest_file.h"
#include "recordings/blocks.h"
#include "recordings/disk.h"
#include "recordings/range_frames.h"
#include "recordings/source.h"

namespace media {

/// When the packets of a track are shown. Two tracks with the same times have the same digest, also where one of them
/// begins later.
struct TimeDigest {
    std::string sha256; ///< of the times after the first
    int64_t first = 0;  ///< in units
    uint64_t count = 0;
    ClockUnit unit;
};

/// What a track holds: two tracks that hold the same have the same digest. It does not matter how tracks are interleaved.
struct TrackDigest {
    std::string sha256; ///< of the payloads; of video in containers, with the size of each before it
    uint64_t frames = 0;
    uint64_t tooMany = 0;    ///< of the disk: frames that the manifest does not count
    bool hasLengths = false; ///< of a file: there is a length before each NAL unit
    TimeDigest times;        ///< of containers
    int64_t earliest = 0;    ///< of the disk: time stamps of the frames
    int64_t latest = 0;
};

/// Where the time of a container begins on the recorder's clock, as time stamps.
struct FileStart {
    std::optional<int64_t> expected; ///< nothing: with its first frame
    std::optional<int64_t> claimed;  ///< by the manifest; taken when it is earlier
};

/// What the disk has of the files of a manifest.
struct DiskDigests {
    std::vector<TrackDigest> tracks;
    std::vector<FileStart> starts;                   ///< as they were found
    std::vector<std::vector<ClockSegment>> segments; ///< of each file; none of those without times
};

/// The tracks of a container, in the order of the manifest's.
/// @param count how many there must be
/// @throws Error (CannotReadBack) when it is not such a file
std::vector<TrackDigest> DigestContainer(const recordings::Source& file, const ManifestFile& manifest,
                                         const std::vector<size_t>& tracks, const recordings::Watch& watch);

/// The tracks of a manifest, as the disk has them.
/// @param files what is known of the tracks' files, to bring frames and times into the same form
/// @param starts of each file
DiskDigests DigestFrames(const recordings::Disk& disk, const recordings::BlockList& blocks,
                         const ManifestFile& manifest, const std::vector<TrackDigest>& files,
                         const std::vector<FileStart>& starts, const recordings::Watch& watch);

/// The frames that an export with this manifest reads.
recordings::FrameQuery QueryOf(const ManifestFile& manifest);

} // namespace media

#endif // MEDIA_SRC_TRACK_DIGESTS_H
