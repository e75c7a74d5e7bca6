#ifndef MEDIA_SRC_TRACK_DIGESTS_H
#define MEDIA_SRC_TRACK_DIGESTS_H

#include <algorithm>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "container_facts.h"
#include "container_rules.h"
#include "media/manifest_file.h"
#include "packet_reader.h"
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
    bool notDecoded =
        false;            ///< of the disk: sound that is encoded in the file, of which nothing decodes here
    int64_t earliest = 0; ///< of the disk: time stamps of the frames
    int64_t latest = 0;
    uint64_t bytes = 0; ///< of the disk: of payload
    uint64_t keyFrames = 0;
    bool isOfCodec = false; ///< of the disk: a key frame is encoded as the manifest says
};

/// "channel 0 video"
std::string WordsOf(const NamedTrack& track);

/// What a text track holds.
struct TextDigest {
    std::string sha256; ///< of the texts, and of how long each lasts
    TimeDigest times;
};

/// What the files of a manifest hold.
struct FileDigests {
    std::vector<TrackDigest> tracks; ///< those of files that cannot be compared are empty
    std::vector<bool> comparable;    ///< of each file
    std::vector<FileFacts> facts;    ///< of each container
    std::vector<TextDigest> texts;   ///< the same

    bool Any() const { return std::count(comparable.begin(), comparable.end(), true) != 0; }
    bool All() const { return std::count(comparable.begin(), comparable.end(), false) == 0; }
};

/// What the disk has of one of the files.
struct DiskFile {
    std::optional<int64_t> start; ///< time stamp at which its time should begin; nothing: it has no times
    std::vector<ClockSegment> segments;
    ContainerFacts facts; ///< its chapters have places in the file as times
    TextDigest text;
};

/// What the disk has of the files of a manifest.
struct DiskDigests {
    std::vector<TrackDigest> tracks;
    std::vector<DiskFile> files;
    std::vector<recordings::Gap> gaps; ///< of the tracks that were wanted
};

/// How files of a manifest begin.
struct Beginnings {
    const ContainerDescriber& describer;
    std::optional<recordings::Frame>
        first; ///< that the first container begins with; nothing: it has no frames
    /// Time stamps that the manifest says the containers' times begin at; taken when they are earlier.
    std::vector<std::optional<int64_t>> claimed;
};

/// Takes what a container holds. Its tracks are in the order of the manifest's.
/// @param number of the file
/// @throws Error (CannotReadBack) when it is not such a file
void DigestContainer(const recordings::Source& file, const ManifestFile& manifest, size_t number,
                     FileDigests& digests, const recordings::Watch& watch);

/// Entries of a file's tracks in the manifest. MP4 has none for a track whose frames are all empty.
std::vector<size_t> TracksOf(const ManifestFile& manifest, size_t file);

/// What the disk has of a manifest's files.
/// @param files what is known of them, to bring frames and times into the same form
DiskDigests DigestFrames(const recordings::Disk& disk, const recordings::BlockList& blocks,
                         const ManifestFile& manifest, const FileDigests& files, const Beginnings& beginnings,
                         const recordings::Watch& watch);

/// The frames that an export with this manifest reads.
recordings::FrameQuery QueryOf(const ManifestFile& manifest);

} // namespace media

#endif // MEDIA_SRC_TRACK_DIGESTS_H
