#ifndef MEDIA_SRC_WATCHER_H
#define MEDIA_SRC_WATCHER_H

#include "recordings/query.h"

namespace media {

/// Asks the caller whether to go on, with the progress that reading has made.
class Watcher {
public:
    explicit Watcher(recordings::Watch watch) : m_watch(std::move(watch)) {}
    Watcher(const Watcher&) = delete;
    Watcher& operator=(const Watcher&) = delete;

    /// For what only prepares the export: its progress is not the export's.
    recordings::Watch Silent();
    /// For what reads the frames.
    recordings::Watch Reading();
    /// @throws recordings::Error (Cancelled)
    void Ask() const;

private:
    bool GoOn() const { return !m_watch || m_watch(m_progress); }

    recordings::Watch m_watch;
    recordings::Progress m_progress;
};

} // namespace media

#endif // MEDIA_SRC_WATCHER_H
