#ifndef DISKACCESS_PROBLEMS_H
#define DISKACCESS_PROBLEMS_H

#include <functional>
#include <string>

#include "cli/disk_clock.h"
#include "cli/failure.h"
#include "recordings/disk.h"
#include "recordings/error.h"
#include "recordings/problem.h"
#include "recordings/query.h"
#include "render/report.h"

namespace diskaccess {

/// Prints each problem once, as it is met, on standard error, and knows the exit status that follows from them. Blocks that
/// are suspect or were never closed get no line: answers mark what lies in them, and nothing is missing.
class ProblemPrinter {
public:
    using TimeText = std::function<std::string(int64_t)>;

    /// @param partition its name, for problems of the disk as a whole
    /// @param timeText turns a time stamp of the disk into text
    ProblemPrinter(std::string partition, TimeText timeText)
        : m_partition(std::move(partition)), m_timeText(std::move(timeText)) {}

    /// @param beforeLine called before a line is printed
    void BeforeEachLine(std::function<void()> beforeLine) { m_beforeLine = std::move(beforeLine); }

    void Print(const recordings::Problem& problem);
    /// Takes a problem in that was printed otherwise.
    void Know(const recordings::Problem& problem);
    recordings::ProblemSink Sink() {
        return [this](const recordings::Problem& problem) { Print(problem); };
    }

    /// The problems of a severity, as a table for machines: people have read the lines.
    Table Listed(const std::string& key, recordings::Severity severity, const DiskClock& clock) const;
    ExitCode Code() const { return m_problems.AnyLoss() ? kDataLost : kDone; }

private:
    /// Whether a problem tells nothing that those before it did not.
    bool IsKnown(const recordings::Problem& problem) const;

    std::string m_partition;
    TimeText m_timeText;
    std::function<void()> m_beforeLine;
    recordings::ProblemList m_problems;
    recordings::ChannelSet m_locked; ///< channels that are known to be locked
};

/// That the access lock of a disk hides channels.
recordings::Problem ProblemOfLock(const recordings::Disk& disk);

/// A failure of the library as the program reports it: with what to do about it.
Failure ToFailure(const recordings::Error& error);

} // namespace diskaccess

#endif // DISKACCESS_PROBLEMS_H
