#ifndef DISKACCESS_CONTEXT_H
#define DISKACCESS_CONTEXT_H

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "cli/clock_check.h"
#include "cli/failure.h"
#include "cli/names.h"
#include "cli/options.h"
#include "cli/output.h"
#include "cli/problems.h"
#include "cli/progress.h"
#include "cli/query.h"
#include "cli/source.h"
#include "recordings/blocks.h"
#include "recordings/disk.h"
#include "render/renderer.h"

namespace diskaccess {

/// One run of a command: the disk, what is asked of it, and where the answer, progress and problems go.
class Context {
public:
    /// Opens the partition, and its access lock with the password that was given.
    /// @param command its name
    /// @throws Failure
    Context(const Options& options, std::string command);
    Context(const Context&) = delete;
    Context& operator=(const Context&) = delete;

    const Options& Typed() const { return m_options; }
    const Query& Asked() const { return m_query; }
    const TimeZone& Zone() const { return m_zone; }
    /// What the user calls channels and event types.
    const diskaccess::Names& Names() const { return m_names; }
    const DiskClock& Clock() const { return m_clock; }
    /// How the clock's skew was found, if a check was typed.
    const std::optional<ClockCheck>& Checked() const { return m_clockCheck; }

    const recordings::Disk& Disk() const { return *m_disk; }
    /// The same disk once more, as open as this one, for another thread. May be called on any thread; must not outlive
    /// this.
    /// @throws recordings::Error
    std::unique_ptr<recordings::Disk> OpenAnother() const;
    /// What no output may take the place of.
    const media::SourceIdentity& Source() const { return m_source.Identity(); }
    /// The blocks that hold recordings. Read from the disk when first asked for.
    const recordings::BlockList& Blocks();
    /// A block that holds a recording; null when that of this number does not.
    const recordings::Block* BlockOf(uint32_t number);

    /// Where problems go: each is printed once.
    recordings::ProblemSink Problems() { return m_problems.Sink(); }
    /// Reports what is wrong with the blocks of all times.
    void ReportBlocks() { Blocks().Report({}, Problems()); }
    /// Shows on a terminal how far work has come.
    /// @param doing "reading blocks"
    recordings::Watch Watch(const std::string& doing);

    /// Prints text as it is, at once, where an answer would go.
    void Print(const std::string& text);
    /// The answer, begun with what every document begins with.
    Renderer& Answer();
    /// Ends the answer with the problems that were met.
    ExitCode Finish();
    /// Ends a command whose answer is something else than a report.
    ExitCode FinishWithoutAnswer();
    /// Ends an answer that names its problems itself.
    ExitCode FinishWith(ExitCode code);

private:
    int64_t SettleSkew();
    void Unlock();

    Options m_options;
    std::string m_command;
    TimeZone m_zone;
    std::optional<ClockCheck> m_clockCheck;
    DiskClock m_clock;
    diskaccess::Names m_names;
    Query m_query;
    ProblemPrinter m_problems;
    Output m_output;
    OpenedSource m_source;
    std::unique_ptr<Progress> m_progress;
    std::unique_ptr<recordings::Disk> m_disk;
    std::unique_ptr<recordings::BlockList> m_blocks;
    std::vector<const recordings::Block*> m_blockOfNumber;
    std::unique_ptr<Renderer> m_answer;
    std::optional<std::string> m_password; ///< as given
    bool m_wrongPassword = false;
};

} // namespace diskaccess

#endif // DISKACCESS_CONTEXT_H
