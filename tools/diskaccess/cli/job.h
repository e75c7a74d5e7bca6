#ifndef DISKACCESS_JOB_H
#define DISKACCESS_JOB_H

#include <cstdint>
#include <ctime>
#include <memory>
#include <optional>
#include <set>
#include <string>

#include "cli/failure.h"
#include "cli/output.h"
#include "disk_access.h"
#include "partition.h"
#include "render/render.h"
#include "render/report.h"
#include "render/time_zone.h"

namespace diskaccess {

/// The options of all commands, as typed.
struct Options {
    std::string partition;
    std::string zone;
    std::string passwordFile;
    std::string from;
    std::string to;
    std::string channels;
    std::string alarm;
    int64_t skew = 0; ///< seconds that the recorder's clock was ahead of true time
    std::optional<int> diskType;
    Format format = Format::Text;
    bool verbose = false;
    bool askPassword = false;
    bool mix = false; ///< list
    bool everyBlock = false;

    // play
    bool iframes = false;
    bool backward = false;
    std::optional<uint32_t> unit;
    std::string record;
    std::string seek;

    // dump
    bool attach = false;
    int level = 3;

    // export
    std::string output;
    std::string container;
    std::string audio;
    bool raw = false;
    bool force = false;
};

/// A time range on the disk's own clock.
struct Range {
    uint32_t first = 0;               ///< first second
    uint32_t last = 0x7FFFFFFF;       ///< last second
    uint32_t endOfMedia = 0x7FFFFFFF; ///< where records are cut: the last second, or a whole day's end
};

/// One run of a command: the partition, what the user wants of it, and what is to be said.
class Job {
public:
    /// Opens the partition and settles the access lock.
    /// @throws Failure
    Job(const Options& options, const char* command);

    const Options& Wanted() const { return m_options; }
    Partition& Disk() { return m_partition; }
    CSearchDisk& Search() { return m_partition.Search(); }
    const TimeZone& Zone() const { return m_zone; }

    /// A time of the disk in true time.
    Time TrueTime(uint32_t diskTime) const { return {int64_t{diskTime} - m_options.skew}; }
    /// A time stamp of the disk in true time.
    Instant TrueInstant(int64_t pts) const { return {pts - m_options.skew * 1000000}; }
    /// A time as typed, on the disk's clock.
    uint32_t ReadDiskTime(const std::string& text) const;

    /// The time range asked for; everything without one.
    Range WantedRange() const;
    /// The channels asked for; all without.
    uint32_t WantedChannels() const;
    /// The channels that the access lock hides.
    uint32_t HiddenChannels() const { return m_hidden; }
    /// The event types asked for; nothing without.
    std::optional<uint64_t> WantedAlarms() const;

    /// Whether every block of the ring is to be asked, whatever time and place its head claims: when the user
    /// wants that, or everything. It takes a read a block, on a hard disk some minutes.
    bool AsksEveryBlock() const;
    void AskEveryBlock() { m_options.everyBlock = true; }

    /// Whether the disk could not be read anywhere so far, by the library or as noted.
    bool ReadsFailed();
    void NoteFailedRead() { m_readsFailed = true; }

    /// Says on standard error what is missing from the answer; once.
    void Note(const std::string& line, ExitCode code);

    /// Writes the answer and says what could not be read.
    /// @return the exit code
    ExitCode Finish(Report report);
    /// The same, after the answer was written piece by piece.
    ExitCode Finish();
    /// Writes a piece of the answer.
    void Write(const std::string& text) { m_output.Write(text); }

private:
    void Unlock();
    void NoteMissingBlocks();
    void NoteUnreadableBlocks();

    Options m_options;
    const char* m_command;
    TimeZone m_zone;
    Output m_output;
    Partition m_partition;
    int64_t m_now;
    uint32_t m_hidden = 0;
    bool m_readsFailed = false;
    ExitCode m_code = kDone;
    std::set<std::string> m_said;
};

} // namespace diskaccess

#endif // DISKACCESS_JOB_H
