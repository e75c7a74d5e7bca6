#ifndef MEDIA_MANIFEST_H
#define MEDIA_MANIFEST_H

/// @file manifest.h
/// What an export tells of itself: what was exported from where, and what is missing.

#include <functional>
#include <string>

#include "media/exporter.h"

namespace media {

/// Writes the manifest of an export, a JSON document, piece by piece: it may be large.
/// @param write takes the pieces
void WriteManifest(const recordings::Disk& disk, const recordings::BlockList& blocks,
                   const ExportRequest& request, const ExportResult& result,
                   const std::function<void(const std::string&)>& write);

} // namespace media

#endif // MEDIA_MANIFEST_H
