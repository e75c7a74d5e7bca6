#ifndef MEDIA_MANIFEST_FILE_H
#define MEDIA_MANIFEST_FILE_H

/// @file manifest_file.h
/// Manifests as they are read again: what must be known to verify them. Anybody may have written one.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "media/provenance.h"
#include "media/sink.h"
#include "media/track.h"
#include "recordings/query.h"

namespace media {

/// A file that a manifest names.
struct NamedFile {
    std::string name;      ///< of a file beside the manifest: never a path
    bool streamed = false; ///< it went to standard output, and has no name
    uint64_t size = 0;
    std::string sha256; ///< empty: parts of the file are hashed instead
};

/// A track, as a manifest has it.
struct NamedTrack {
    uint32_t channel = 0;
    bool isVideo = true;
    size_t output = 0; ///< entry of the files
    std::string codec; ///< as it was recorded: "h264"
    uint64_t frames = 0;
    uint64_t keyFrames = 0; ///< of video
    uint64_t bytes = 0;     ///< of all payloads, as they were recorded
    std::string start,
        end; ///< times of its first and last frame, as they are written; empty: it has no frames
    /// As it was recorded, where the file holds it encoded otherwise.
    std::optional<AudioCodec> recorded;
    uint32_t encodedRate = 0; ///< samples a second, then
};

/// Frames of the disk that are in no file, as a manifest has them.
struct NamedLeftOut {
    uint32_t channel = 0;
    bool isVideo = true;
    uint64_t frames = 0;
    /// Tracks of this channel and medium whose frames come before these; nothing: these lie anywhere.
    std::optional<uint64_t> tracksBefore;
};

/// A stretch in which a file's time follows the recorder's clock, as a manifest has it.
struct NamedSegment {
    size_t output = 0;  ///< entry of the files
    double seconds = 0; ///< where it begins in the file
    std::string time;   ///< that lies there, as it is written
};

/// A gap of a track, as a manifest has it.
struct NamedGap {
    uint32_t channel = 0;
    bool isVideo = true;
    uint32_t block = 0;     ///< where recording goes on
    std::string start, end; ///< times of the frames before and after, as they are written
};

/// An event, as a manifest has it.
struct NamedEvent {
    std::string time; ///< as it is written
    uint64_t types = 0;
    uint32_t block = 0;
    uint32_t entry = 0;
};

struct NamedBlock {
    uint32_t number = 0;
    AreaDigest area;
};

/// A manifest, checked: every entry is there, of its type, and within what any disk can have.
struct ManifestFile {
    std::string folder; ///< that it lies in
    std::string name;   ///< without folders
    std::string text;   ///< all of it

    bool isExtract = false;
    Container container = Container::Raw;                ///< of an export
    std::string partition;                               ///< as it was named
    uint64_t deviceSize = 0;                             ///< bytes
    std::string description;                             ///< of the partition
    uint32_t blockCount = 0;                             ///< of the ring
    uint32_t blockSize = 0;                              ///< bytes
    std::optional<std::string> vehicleNumber, vehicleId; ///< as the first of the blocks has them
    AreaDigest head;
    std::optional<AreaDigest> source;
    recordings::TimeRange range;
    recordings::ChannelSet channels;
    recordings::ChannelSet locked; ///< that the access lock hid
    std::vector<NamedFile> files;
    bool withAudio = true;           ///< whether audio was wanted
    std::optional<bool> textTrack;   ///< whether containers have a text track; early manifests do not say
    std::optional<std::string> zone; ///< of all times, as named; nothing: that of the machine that wrote them
    int64_t skewSeconds = 0;         ///< how far the recorder's clock was ahead of the times of the manifest
    std::string start, end;          ///< as of tracks, of all of them
    std::vector<NamedTrack> tracks;
    std::vector<NamedSegment> segments; ///< in the order of the outputs, and of their time
    std::vector<NamedGap> gaps;
    std::vector<NamedEvent> events;
    std::vector<NamedLeftOut> leftOut;
    std::vector<AreaDigest> areas; ///< of an extract: what lies before the blocks
    std::vector<NamedBlock> blocks;
};

/// Reads a manifest.
/// @throws Error (BadManifest)
ManifestFile ReadManifest(const std::string& path);

} // namespace media

#endif // MEDIA_MANIFEST_FILE_H
