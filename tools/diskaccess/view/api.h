#ifndef DISKACCESS_VIEW_API_H
#define DISKACCESS_VIEW_API_H

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>

#include "cli/disk_clock.h"
#include "cli/names.h"
#include "media/exporter.h"
#include "recordings/disk.h"
#include "render/time_zone.h"
#include "view/disk_pool.h"
#include "view/exports.h"
#include "view/gate.h"
#include "view/http.h"
#include "view/survey.h"

namespace diskaccess::view {

/// What the server needs to know of the run it belongs to. All of it outlives the server.
struct Setting {
    std::string name; ///< of the partition, as typed
    const TimeZone& zone;
    std::string zoneName; ///< as typed; empty: this machine's
    DiskClock clock;
    int64_t skewSeconds = 0;
    const Names& names; ///< of channels and event types
    std::string exportFolder;
    const media::SourceIdentity& source;
    media::Wording wording;
    media::Provenance provenance;
    DiskPool::Open open;
};

/// Answers what the page asks.
class Api {
public:
    Api(Setting setting, std::string token);

    /// Called on several threads at once.
    /// @throws HttpError
    Response Answer(const Request& request);

private:
    Response AnswerPage(const Request& request) const;
    Response AnswerApi(const Request& request);
    Response Info();
    Response Coverage(const Request& request);
    Response Events(const Request& request);
    Response Damages(const Request& request);
    Response Frames(const Request& request);
    Response BeginExport(const Request& request);
    Response ExportOf(const Request& request);
    std::string TextOf(const recordings::Problem& problem) const;
    std::string FileNameOf(const recordings::TimeRange& range, const std::string& ending) const;

    Setting m_setting;
    Gate m_gate;
    DiskPool m_disks;
    Survey m_survey;
    Exports m_exports;
    std::mutex m_decoding; ///< held while pictures are decoded
};

} // namespace diskaccess::view

#endif // DISKACCESS_VIEW_API_H
