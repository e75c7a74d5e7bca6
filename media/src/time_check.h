#ifndef MEDIA_SRC_TIME_CHECK_H
#define MEDIA_SRC_TIME_CHECK_H

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "media/verify.h"
#include "track_digests.h"

namespace media {

/// A time of a manifest as a time stamp on the recorder's clock; nothing when it is none.
std::optional<int64_t> TimeStampOf(const ManifestFile& manifest,
                                   const std::function<std::optional<int64_t>(const std::string&)>& timeOf,
                                   const std::string& text);

/// A place in a file, as manifests have it.
double SecondsOf(int64_t place);

/// Holds the times of a track in a file against those that the disk asks for.
Check::Result Compare(Container container, bool isVideo, const TimeDigest& inFile, const TimeDigest& onDisk);

/// The same of sound that is encoded in the file.
/// @param rate samples a second, as they are encoded
Check::Result CompareEncoded(uint32_t rate, const TimeDigest& inFile, const TimeDigest& onDisk);

} // namespace media

#endif // MEDIA_SRC_TIME_CHECK_H
