#ifndef DISKACCESS_MANIFEST_H
#define DISKACCESS_MANIFEST_H

#include <string>
#include <vector>

#include "range_frames.h"
#include "sink.h"

namespace diskaccess {

/// Frames that are in no file, and why.
struct LeftOut {
    uint32_t channel = 0;
    bool isVideo = true;
    uint64_t frames = 0;
    std::string reason;
};

/// All that there is to say of an export.
struct Manifest {
    const ExportPlan* plan = nullptr;
    RangeFindings findings;
    std::vector<Track> tracks;
    std::vector<LeftOut> leftOut;
    std::vector<Exported> outputs;
    std::vector<EventItem_t> events;
    std::string container; ///< "matroska", "mp4" or "raw"
};

/// The manifest as a JSON document: what was exported from where, and what is missing.
std::string ManifestText(Job& job, const Manifest& manifest);

} // namespace diskaccess

#endif // DISKACCESS_MANIFEST_H
