#ifndef RECORDINGS_SRC_WATCH_CALLER_H
#define RECORDINGS_SRC_WATCH_CALLER_H

#include <chrono>
#include <utility>

#include "recordings/disk.h"
#include "recordings/error.h"
#include "recordings/query.h"

namespace recordings {

/// Calls a watch every now and then, and ends the work when it says so.
class WatchCaller {
public:
    /// @param disk must outlive the object
    WatchCaller(const Disk& disk, Watch watch) : m_disk(disk), m_watch(std::move(watch)) {}

    /// Calls the watch if it is time.
    /// @param progress tells how far the work has come
    template <typename GetProgress>
    void CallNowAndThen(const GetProgress& progress) {
        if (m_watch && std::chrono::steady_clock::now() - m_called >= kPeriod) {
            Call(progress());
        }
    }

    /// Calls the watch.
    /// @throws Error (Cancelled)
    void Call(const Progress& progress) {
        if (m_watch && !m_watch(progress)) {
            throw Error(ErrorKind::Cancelled, m_disk.Bytes().Name() + ": interrupted");
        }
        m_called = std::chrono::steady_clock::now();
    }

private:
    static constexpr auto kPeriod = std::chrono::milliseconds(100);

    const Disk& m_disk;
    Watch m_watch;
    std::chrono::steady_clock::time_point m_called;
};

} // namespace recordings

#endif // RECORDINGS_SRC_WATCH_CALLER_H
