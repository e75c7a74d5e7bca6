#ifndef MEDIA_SRC_WATCHER_H
#define MEDIA_SRC_WATCHER_H

#include <string>
#include <utility>

#include "recordings/query.h"

namespace media {

/// What an export says when its caller ended it.
constexpr const char* kExportEnded = "the export was ended; nothing was kept";

/// Asks the caller whether to go on, with the progress that reading has made.
class Watcher {
public:
    /// @param ended the text of the error when the caller says no
    Watcher(recordings::Watch watch, std::string ended)
        : m_watch(std::move(watch)), m_ended(std::move(ended)) {}
    Watcher(const Watcher&) = delete;
    Watcher& operator=(const Watcher&) = delete;

    /// For what only prepares the work: its progress is not the work's.
    recordings::Watch Silent();
    /// For what reads the frames.
    recordings::Watch Reading();
    /// @throws recordings::Error (Cancelled)
    void Ask() const;

private:
    bool GoOn() const { return !m_watch || m_watch(m_progress); }

    recordings::Watch m_watch;
    std::string m_ended;
    recordings::Progress m_progress;
};

} // namespace media

#endif // MEDIA_SRC_WATCHER_H
