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
#include "recordings/disk.h"
#include "recordings/problem.h"
#include "recordings/records.h"
#include "view/disk_pool.h"

namespace diskaccess::view {

/// Seconds on the recorder's clock, both ends included.
struct Span {
    uint32_t first = 0;
    uint32_t last = 0;
};

/// Spans that are added in any order and merged where they touch.
class SpanList {
public:
    void Add(Span span);
    /// Those that meet a stretch, rising; spans less than @p resolution seconds apart are joined.
    std::vector<Span> Within(const recordings::TimeRange& range, uint32_t resolution) const;
    bool Empty() const { return m_spans.empty(); }
    Span Whole() const { return {m_spans.front().first, m_spans.back().last}; }

private:
    std::vector<Span> m_spans; ///< rising, apart from each other
};

/// A problem, and when what it is about was recorded.
struct Damage {
    Span when;
    recordings::Problem problem;
};

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
        std::array<std::vector<Span>, recordings::kChannels> channels;
    };
    Picture Recorded(const recordings::TimeRange& range, uint32_t resolution) const;
    /// The events of a stretch, in order of time, at most @p most of them.
    std::vector<recordings::Event> Events(const recordings::TimeRange& range, size_t most) const;
    std::vector<Damage> Damages(const recordings::TimeRange& range, size_t most) const;
    /// From the first second recorded to the last; nothing while none is known.
    std::optional<Span> Whole() const;
    bool Complete() const;

private:
    void Run();
    void ReadBlocks();
    void ReadRecords();
    void ReadEvents();
    void Keep(const recordings::Record& record);
    void Keep(const recordings::Problem& problem);
    Span TimeOf(const recordings::Problem& problem) const;
    recordings::Watch WatchFrom(double begin, double share);

    DiskPool& m_disks;
    std::shared_ptr<const recordings::Disk> m_disk; ///< while the thread reads
    std::atomic<bool> m_ended{false};

    mutable std::mutex m_mutex; ///< guards what follows
    mutable std::condition_variable m_changed;
    std::shared_ptr<const recordings::BlockList> m_blocks;
    std::array<SpanList, recordings::kChannels> m_spans;
    std::vector<recordings::Event> m_events;
    std::vector<Damage> m_damages;
    recordings::ProblemList m_problems;
    double m_progress = 0;
    bool m_complete = false;
    std::string m_failure;

    std::thread m_thread; ///< last: it uses all the others
};

} // namespace diskaccess::view

#endif // DISKACCESS_VIEW_SURVEY_H
