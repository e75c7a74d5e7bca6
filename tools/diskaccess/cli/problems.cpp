#include "cli/problems.h"

#include <cerrno>

#include "cli/output.h"

namespace diskaccess {

namespace {

using recordings::ErrorKind;
using recordings::Problem;
using recordings::ProblemKind;

/// What the user can do about a problem.
const char* HintFor(ProblemKind kind) {
    switch (kind) {
    case ProblemKind::DeviceCutOff:
        return "; copy the partition again";
    case ProblemKind::ChannelsLocked:
        return "; give the password with --ask-password, --password-file FILE or DISKACCESS_PASSWORD";
    case ProblemKind::TablesUnreadable:
    case ProblemKind::BlockUnreadable:
    case ProblemKind::BytesUnreadable:
        return "; the disk may be failing";
    default:
        return "";
    }
}

bool ConcernsWholeDisk(ProblemKind kind) {
    return kind == ProblemKind::TablesUnreadable || kind == ProblemKind::BackupTablesUsed ||
           kind == ProblemKind::DeviceCutOff || kind == ProblemKind::BlocksNotNamed ||
           kind == ProblemKind::ChannelsLocked;
}

bool IsMarked(ProblemKind kind) {
    return kind == ProblemKind::BlockSuspect || kind == ProblemKind::NotClosed;
}

const char* HintFor(int systemError) {
    switch (systemError) {
    case ENOENT:
        return "; check the name";
    case EACCES:
    case EPERM:
        return "; run as root, or ask for the right to read it";
    case ENOMEDIUM:
        return "; put the disk in";
    default:
        return "";
    }
}

Value NumberOrNothing(const std::optional<uint32_t>& number) {
    return number ? Value(uint64_t{*number}) : Value(Nothing{});
}

} // namespace

void ProblemPrinter::Print(const Problem& problem) {
    if (IsKnown(problem)) {
        return;
    }
    const size_t before = m_problems.All().size();
    Know(problem);
    if (m_problems.All().size() == before || IsMarked(problem.kind)) {
        return;
    }
    if (m_beforeLine) {
        m_beforeLine();
    }
    const std::string where = ConcernsWholeDisk(problem.kind) ? m_partition + ": " : "";
    Complain(where + Describe(problem, m_timeText) + HintFor(problem.kind));
}

void ProblemPrinter::Know(const Problem& problem) {
    m_problems.Add(problem);
    if (problem.kind == ProblemKind::ChannelsLocked) {
        m_locked.bits |= problem.channels;
    }
}

bool ProblemPrinter::IsKnown(const Problem& problem) const {
    return problem.kind == ProblemKind::ChannelsLocked &&
           recordings::ChannelSet{problem.channels}.Without(m_locked).Empty();
}

Table ProblemPrinter::Listed(const std::string& key, recordings::Severity severity,
                             const DiskClock& clock) const {
    Table table = {key,
                   {{"problem", ""},
                    {"text", ""},
                    {"block", ""},
                    {"block_after", ""},
                    {"channel", ""},
                    {"channels", ""},
                    {"offset", ""},
                    {"bytes", ""},
                    {"count", ""},
                    {"before", ""},
                    {"after", ""}},
                   {}};
    const auto time = [&clock](const std::optional<int64_t>& stamp) {
        return stamp ? Value(clock.TrueInstant(*stamp)) : Value(Nothing{});
    };
    for (const Problem& problem : m_problems.All()) {
        if (problem.severity == severity) {
            table.rows.push_back({std::string(NameOf(problem.kind)), Describe(problem, m_timeText),
                                  NumberOrNothing(problem.block), NumberOrNothing(problem.blockAfter),
                                  NumberOrNothing(problem.channel), ChannelSet{problem.channels},
                                  NumberOrNothing(problem.offset), Bytes{problem.bytes}, problem.count,
                                  time(problem.before), time(problem.after)});
        }
    }
    return table;
}

Problem ProblemOfLock(const recordings::Disk& disk) {
    Problem problem;
    problem.kind = ProblemKind::ChannelsLocked;
    problem.severity = recordings::Severity::Note;
    problem.channels = disk.Hidden().bits;
    return problem;
}

Failure ToFailure(const recordings::Error& error) {
    const std::string line = error.what();
    switch (error.Kind()) {
    case ErrorKind::CannotOpen:
        return Failure(line + HintFor(error.SystemError()));
    case ErrorKind::SeveralPartitions:
        return Failure(line + "; choose one with --partition N");
    case ErrorKind::NoSuchPartition:
        return Failure(line + "; give another --partition, or leave it out");
    case ErrorKind::WrongDiskType:
        return Failure(line + "; leave --disk-type out");
    default:
        return Failure(line);
    }
}

} // namespace diskaccess
