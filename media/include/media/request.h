#ifndef MEDIA_REQUEST_H
#define MEDIA_REQUEST_H

/// @file request.h
/// What is asked of a disk, and what the manifest tells of the asking.

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "media/provenance.h"
#include "media/signature.h"
#include "recordings/query.h"

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

/// What every request says.
struct Request {
    std::string name;     ///< the file to write, or what the names of the files begin with
    std::string manifest; ///< the manifest to write; empty: NAME.json
    recordings::TimeRange range;
    bool fromGiven = false; ///< whether the range's first second was asked for; else it is from the beginning
    bool toGiven = false;   ///< the same of the last
    recordings::ChannelSet channels = recordings::ChannelSet::All();
    bool replace = false; ///< whether files of the outputs' names may be replaced

    // What the manifest tells beside that.
    std::string made;                ///< the present, RFC 3339
    int64_t skewSeconds = 0;         ///< how far the recorder's clock was ahead
    std::optional<std::string> zone; ///< the zone of all times, as named; nothing: its name is not known
    Wording wording;
    Provenance provenance;
    const SigningKey* key = nullptr; ///< signs the manifest; null: nobody does. Must outlive the work

    /// The names of the manifest, and of its signature.
    std::string ManifestName() const { return manifest.empty() ? name + ".json" : manifest; }
    std::string SignatureName() const { return ManifestName() + ".sig"; }
};

} // namespace media

#endif // MEDIA_REQUEST_H
