#ifndef MEDIA_EXPORTER_H
#define MEDIA_EXPORTER_H

/// @file exporter.h
/// Recordings as files.

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "media/output_file.h"
#include "media/sink.h"
#include "media/track.h"
#include "recordings/disk.h"
#include "recordings/range_frames.h"
#include "recordings/records.h"

namespace media {

/// How the caller writes times and texts.
struct Wording {
    /// Time stamps, microseconds on the recorder's clock, as RFC 3339 in true time: for programs.
    std::function<std::string(int64_t)> timestamp;
    /// The same in UTC.
    std::function<std::string(int64_t)> utcTimestamp;
    /// The same for people, and to the second.
    std::function<std::string(int64_t)> readableTime;
    std::function<std::string(int64_t)> readableSecond;
    /// Texts of a disk, which may hold any byte, such that nothing unprintable is left.
    std::function<std::string(const std::string&)> printable;
};

/// What is exported, and how.
struct ExportRequest {
    std::string name; ///< the container's file, or what the files of elementary streams begin with
    Container container = Container::Matroska;
    recordings::TimeRange range;
    bool fromGiven = false; ///< whether the range's first second was asked for; else it is from the beginning
    bool toGiven = false;   ///< the same of the last
    recordings::ChannelSet channels = recordings::ChannelSet::All();
    AudioCodec audio;     ///< of all channels, where it is known better than the disk does
    bool replace = false; ///< whether files of the outputs' names may be replaced

    // What the manifest tells beside that.
    std::string made;                ///< the present, RFC 3339
    int64_t skewSeconds = 0;         ///< how far the recorder's clock was ahead
    std::optional<std::string> zone; ///< the zone of all times, as named; nothing: the machine's own
    Wording wording;
};

/// Frames that are in no file, and why.
struct LeftOut {
    uint32_t channel = 0;
    bool isVideo = true;
    uint64_t frames = 0;
    LeftOutReason reason = LeftOutReason::EncodingUnknown;
    std::string description;
};

/// What came of an export.
struct ExportResult {
    std::vector<Track> tracks;
    std::vector<LeftOut> leftOut;
    std::vector<Exported> outputs; ///< without the manifest
    std::string manifest;          ///< its path
    std::vector<recordings::Event> events;
    size_t eventsWithoutChapter = 0; ///< that a container does not show: there would be too many chapters
    std::vector<recordings::Gap> gaps;
    std::vector<uint32_t> blocks; ///< numbers of those that frames were taken from
    std::vector<recordings::Problem> problems;
};

/// Exports a range: Matroska, MP4 or elementary streams, and a manifest beside them (NAME.json).
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
