#ifndef DISKACCESS_VIEW_SURVEY_H
#define DISKACCESS_VIEW_SURVEY_H

/// @file survey.h
/// What is on the disk, read once in the background while the page is in use already.

#include <array>
#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "recordings/blocks.h"
#include "recordings/coverage.h"
#include "recordings/disk.h"
#include "recordings/problem.h"
#include "recordings/records.h"
#include "recordings/spans.h"
#include "view/disk_pool.h"

namespace diskaccess::view {

/// Reads the blocks, the records and the events of a whole disk in a thread of its own. What is known so far can be
/// asked for at any time, on any thread.
class Survey {
public:
    explicit Survey(DiskPool& disks);
    /// Ends the reading.
    ~Survey();
    Survey(const Survey&) = delete;
    Survey& operator=(const Survey&) = delete;

    /// The blocks. Waits until they are known.
    /// @throws Failure when they cannot be read
    std::shared_ptr<const recordings::BlockList> Blocks() const;

    /// What is known so far of a stretch.
    struct Picture {
        bool complete = false; ///< whether everything has been read
        double progress = 0;   ///< 0 to 1
        std::string failure;   ///< why reading ended early; empty: it did not
        std::array<std::vector<recordings::Span>, recordings::kChannels> channels;
        std::vector<recordings::Span> journeys; ///< of all channels
    };
    /// @param silence seconds without a recording that are too few to be seen: what lies around them is joined
    Picture Recorded(const recordings::TimeRange& range, uint32_t silence) const;
    /// The events of a stretch, in order of time, at most @p most of them.
    std::vector<recordings::Event> Events(const recordings::TimeRange& range, size_t most) const;
    std::vector<recordings::Damage> Damages(const recordings::TimeRange& range, size_t most) const;
    /// From the first second recorded to the last; nothing while none is known.
    std::optional<recordings::Span> Whole() const;
    bool Complete() const;

private:
    void Run();
    void ReadBlocks();
    void ReadRecords();
    void ReadEvents();
    void Keep(const recordings::Record& record);
    void Keep(const recordings::Problem& problem);
    recordings::Watch WatchFrom(double begin, double share);

    DiskPool& m_disks;
    std::shared_ptr<const recordings::Disk> m_disk; ///< while the thread reads
    std::atomic<bool> m_ended{false};

    mutable std::mutex m_mutex; ///< guards what follows
    mutable std::condition_variable m_changed;
    std::shared_ptr<const recordings::BlockList> m_blocks;
    std::array<recordings::SpanList, recordings::kChannels> m_channels;
    recordings::SpanList m_any; ///< of all channels
    std::vector<recordings::Event> m_events;
    std::vector<recordings::Damage> m_damages;
    recordings::ProblemList m_problems;
    double m_progress = 0;
    bool m_complete = false;
    std::string m_failure;

    std::thread m_thread; ///< last: it uses all the others
};

} // namespace diskaccess::view

#endif // DISKACCESS_VIEW_SURVEY_H
