#ifndef MEDIA_EXPORTER_H
#define MEDIA_EXPORTER_H

/// @file exporter.h
/// Recordings as files.

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "media/output_file.h"
#include "media/provenance.h"
#include "media/request.h"
#include "media/sink.h"
#include "media/track.h"
#include "recordings/disk.h"
#include "recordings/range_frames.h"
#include "recordings/records.h"

namespace media {

/// What is exported, and how. Of elementary streams, the name is what those of the files begin with.
struct ExportRequest : Request {
    Container container = Container::Matroska;
    AudioCodecs audio;     ///< where it is known better than the disk does
    bool withAudio = true; ///< whether audio is wanted
    bool aac = false;      ///< whether sound that MP4 cannot hold is encoded as AAC; else it is left out
    bool clockText = true; ///< whether containers have a text track with the recorded time
    /// Where Matroska goes instead of to a file: open for writing, and the caller's. The name says what it is called, and
    /// there is a manifest only where one is named.
    std::optional<int> stream;

    bool WantsManifest() const { return !stream || !manifest.empty(); }
};

/// Frames that are in no file, and why.
struct LeftOut {
    uint32_t channel = 0;
    bool isVideo = true;
    uint64_t frames = 0;
    LeftOutReason reason = LeftOutReason::EncodingUnknown;
    std::string description;
    /// Tracks of this channel and medium whose frames come before these; nothing: these lie among them.
    std::optional<size_t> tracksBefore = {};
};

/// What came of an export.
struct ExportResult {
    std::vector<Track> tracks;
    std::vector<LeftOut> leftOut;
    std::vector<Exported> outputs; ///< without the manifest
    std::string manifest;          ///< its path; empty: there is none
    std::string signature;         ///< the same; empty: nobody signs
    std::vector<recordings::Event> events;
    size_t eventsWithoutChapter = 0; ///< that a container does not show: there would be too many chapters
    std::vector<recordings::Gap> gaps;
    /// How the time of each container follows the recorder's clock; empty for elementary streams.
    std::vector<std::vector<ClockSegment>> segments;
    std::vector<uint32_t> blocks;                ///< numbers of those that frames were taken from
    std::map<uint32_t, AreaDigest> blockDigests; ///< of these
    AreaDigest headDigest;                       ///< of the partition head
    std::optional<AreaDigest> sourceDigest;      ///< of the whole source, if that is asked for
    std::vector<recordings::Problem> problems;
};

/// Looks at the places of the files that an export may make, as Export() does first.
/// @throws Error when one is taken
void CheckPlaces(const recordings::Disk& disk, const SourceIdentity& source, const ExportRequest& request);

/// Exports a range: Matroska, MP4 or elementary streams, and a manifest beside them (NAME.json), with its signature
/// (NAME.json.sig) if there is a key.
///
/// Payloads are copied as they are. All files appear whole, or none does. Problems of the disk are handed to @p problems
/// as they are met, and named in the manifest: they end nothing.
/// @param source what @p disk is read from; no output takes its place
/// @param watch asked several times a second, also while files are completed; false ends the export, which leaves nothing
/// @return nothing when the range holds no frames; without outputs when none of the tracks can be put into the container:
///         what is left out then says why. No file is made in either case
/// @throws Error when files cannot be made
/// @throws recordings::Error (Cancelled)
std::optional<ExportResult> Export(const recordings::Disk& disk, const recordings::BlockList& blocks,
                                   const SourceIdentity& source, const ExportRequest& request,
                                   const recordings::ProblemSink& problems,
                                   const recordings::Watch& watch = {});

} // namespace media

#endif // MEDIA_EXPORTER_H
