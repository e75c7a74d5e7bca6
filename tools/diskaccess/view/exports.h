#ifndef DISKACCESS_VIEW_EXPORTS_H
#define DISKACCESS_VIEW_EXPORTS_H

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include "media/exporter.h"
#include "view/disk_pool.h"
#include "view/survey.h"

namespace diskaccess::view {

/// How an export that the page asked for stands.
struct ExportState {
    enum class Phase { Running, Done, Failed, Cancelled };

    Phase phase = Phase::Running;
    double progress = 0; ///< 0 to 1
    std::string error;   ///< why it failed
    std::optional<media::ExportResult> result;
};

/// Exports for the page, one at a time, each in a thread of its own.
class Exports {
public:
    Exports(DiskPool& disks, const Survey& survey, const media::SourceIdentity& source)
        : m_disks(disks), m_survey(survey), m_source(source) {}
    /// Ends the export that runs: it leaves nothing.
    ~Exports();
    Exports(const Exports&) = delete;
    Exports& operator=(const Exports&) = delete;

    /// Begins an export.
    /// @return its number; nothing while another one runs
    std::optional<uint32_t> Begin(const media::ExportRequest& request);
    /// @return nothing for a number that was never given
    std::optional<ExportState> StateOf(uint32_t number) const;
    /// Ends an export that still runs.
    /// @return false for a number that was never given
    bool Cancel(uint32_t number);

private:
    void Run(uint32_t number, const media::ExportRequest& request);
    ExportState Export(uint32_t number, const media::ExportRequest& request);

    DiskPool& m_disks;
    const Survey& m_survey;
    const media::SourceIdentity& m_source;
    mutable std::mutex m_mutex; ///< guards the states
    std::map<uint32_t, ExportState> m_states;
    uint32_t m_last = 0;
    std::atomic<bool> m_cancelled{false};
    std::thread m_thread;
};

} // namespace diskaccess::view

#endif // DISKACCESS_VIEW_EXPORTS_H
