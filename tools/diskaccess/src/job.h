#ifndef DISKACCESS_JOB_H
#define DISKACCESS_JOB_H

#include <cstdint>
#include <ctime>
#include <memory>
#include <optional>
#include <set>
#include <string>

#include "cli/failure.h"
#include "cli/library_messages.h"
#include "cli/options.h"
#include "cli/output.h"
#include "cli/query.h"
#include "disk_access.h"
#include "partition.h"
#include "render/printable.h"
#include "render/renderer.h"

namespace diskaccess {

/// The last second that a search of the library's may end at: it takes seconds for signed numbers.
constexpr uint32_t kLastSearchedSecond = 0x7FFFFFFF;

/// A time range on the disk's own clock, as the library's searches take it.
struct Range {
    uint32_t first = 0;                  ///< first second
    uint32_t last = kLastSearchedSecond; ///< last second
    uint32_t endOfMedia =
        kLastSearchedSecond; ///< where records are cut: the last second, or a whole day's end
};

/// One run of a command: the partition, what the user wants of it, and what is to be said.
class Job {
public:
    /// Opens the partition and settles the access lock.
    /// @throws Failure
    /// @param command its name
    Job(const Options& options, std::string command);

    const Options& Wanted() const { return m_options; }
    const Query& Asked() const { return m_query; }
    Partition& Disk() { return m_partition; }
    CSearchDisk& Search() { return m_partition.Search(); }
    const TimeZone& Zone() const { return m_zone; }

    /// A time of the disk in true time.
    Time TrueTime(uint32_t diskTime) const { return m_clock.TrueTime(diskTime); }
    /// A time stamp of the disk in true time.
    Instant TrueInstant(int64_t pts) const { return m_clock.TrueInstant(pts); }
    /// A time as typed, on the disk's clock.
    uint32_t ReadDiskTime(const std::string& text) const;

    /// The time range asked for; everything without one.
    Range WantedRange() const;
    /// The channels asked for; all without.
    uint32_t WantedChannels() const { return m_query.channels.bits; }
    /// The channels that the access lock hides.
    uint32_t HiddenChannels() const { return m_hidden; }
    /// The event types asked for; nothing without.
    std::optional<uint64_t> WantedAlarms() const { return m_query.alarms; }

    /// Whether every block of the ring is to be asked, whatever time and place its head claims: when the user
    /// wants that, or everything. It takes a read a block, on a hard disk some minutes.
    bool AsksEveryBlock() const;
    void AskEveryBlock() { m_everyBlock = true; }

    /// Whether the disk could not be read anywhere so far, by the library or as noted.
    bool ReadsFailed();
    void NoteFailedRead() { m_readsFailed = true; }

    /// Says on standard error what is missing from the answer; once.
    void Note(const std::string& line, ExitCode code);

    /// The answer, begun with what every document begins with.
    Renderer& Answer();
    /// Shows a report as the whole answer, and says what could not be read.
    /// @return the exit code
    ExitCode Finish(const Report& report);
    /// Ends the answer, and says what could not be read.
    ExitCode Finish();

private:
    void Unlock();
    void NoteMissingBlocks();
    void NoteUnreadableBlocks();

    Options m_options;
    std::string m_command;
    TimeZone m_zone;
    DiskClock m_clock;
    int64_t m_now;
    Query m_query;
    Output m_output;
    LibraryMessages m_libraryMessages;
    Partition m_partition;
    std::unique_ptr<Renderer> m_answer;
    uint32_t m_hidden = 0;
    bool m_readsFailed = false;
    bool m_everyBlock = false;
    ExitCode m_code = kDone;
    std::set<std::string> m_said;
};

} // namespace diskaccess

#endif // DISKACCESS_JOB_H
