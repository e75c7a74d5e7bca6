#include <algorithm>
#include <cerrno>

#include <fmt/format.h>

#include "cli/disk_clock.h"
#include "cli/output.h"
#include "cli/problems.h"
#include "cli/progress.h"
#include "cli/query.h"
#include "cli/source.h"
#include "commands/commands.h"
#include "recordings/blocks.h"
#include "recordings/host_disks.h"
#include "recordings/journeys.h"
#include "render/printable.h"
#include "render/renderer.h"

namespace diskaccess {

namespace {

using recordings::Block;
using recordings::Partition;
using recordings::Problem;

/// What a shell takes for one word.
std::string ShellWord(const std::string& text) {
    const bool plain =
        !text.empty() && text.find_first_not_of("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ"
                                                "0123456789_./-+:,@%") == std::string::npos;
    if (plain) {
        return text;
    }
    std::string quoted = "'";
    for (const char c : text) {
        quoted += c == '\'' ? "'\\''" : std::string(1, c);
    }
    return quoted + "'";
}

/// Looks at disks, and shows what is found.
class Finder {
public:
    explicit Finder(const Options& options)
        : m_options(options), m_zone(ReadZone(options)), m_clock(options.skew),
          m_answer(MakeRenderer(options.format, m_zone, [this](const std::string& text) { Write(text); })) {}

    ExitCode Run() {
        for (const recordings::HostDisk& disk : WantedDisks()) {
            LookAt(disk);
        }
        if (!m_forbidden.empty()) {
            Fail(m_forbidden + ": no permission to read; run as root, or ask for the right to read");
        }
        Show();
        return m_failed ? kFailed : m_lost ? kDataLost : kDone;
    }

private:
    void Write(const std::string& text) {
        m_progress.Hide();
        m_output.Write(text);
    }

    void Fail(const std::string& line) {
        m_failed = true;
        m_progress.Hide();
        Complain(line);
    }

    std::vector<recordings::HostDisk> WantedDisks() const {
        std::vector<recordings::HostDisk> disks;
        for (const std::string& path : m_options.disks) {
            disks.push_back({path, 0});
        }
        return disks.empty() ? recordings::HostDisks() : disks;
    }

    void LookAt(const recordings::HostDisk& each) {
        const size_t found = m_partitions.size();
        // NOLINTNEXTLINE(clang-analyzer-deadcode.DeadStores): it is what is known where the disk cannot be opened
        uint64_t size = each.size;
        std::string holds = "not readable";
        try {
            const auto disk = recordings::OpenWhole(each.path);
            size = disk->Size();
            RequireReadable(*disk);
            for (const Partition& partition : RecordersOn(*disk)) {
                Describe(each.path, *disk, partition);
            }
            const bool headless = TellHeadless(*disk);
            holds = m_partitions.size() != found                 ? "recordings"
                    : headless                                   ? "recordings without a partition head"
                    : recordings::FirstPartOf(each.path).empty() ? "no recorder's partition"
                                                                 : "later part of a split image";
        } catch (const recordings::Error& error) {
            if (error.SystemError() == EACCES || error.SystemError() == EPERM) {
                m_forbidden += (m_forbidden.empty() ? "" : ", ") + each.path;
            } else {
                Fail(ToFailure(error).what());
            }
        }
        m_disks.push_back({Printable(each.path), size == 0 ? Value(Nothing{}) : Value(Bytes{size}), holds});
    }

    /// A disk that does not deliver its first sector may well be a recorder's.
    static void RequireReadable(const recordings::Source& disk) {
        uint8_t sector[512];
        const auto size = static_cast<size_t>(std::min<uint64_t>(disk.Size(), sizeof sector));
        if (!disk.ReadWhole(0, sector, size)) {
            throw recordings::Error(recordings::ErrorKind::HeadUnreadable,
                                    disk.Name() +
                                        ": its first sector cannot be read; the disk may be failing");
        }
    }

    /// The partitions of recorders; the disk itself as number 0, if it is one.
    static std::vector<Partition> RecordersOn(const recordings::Source& disk) {
        std::vector<Partition> recorders;
        if (recordings::BearsPartitionHead(disk)) {
            recorders.push_back({0, 0, disk.Size(), true});
            return recorders;
        }
        for (const Partition& partition : recordings::ReadPartitionTable(disk)) {
            if (partition.recorder) {
                recorders.push_back(partition);
            }
        }
        return recorders;
    }

    /// Names the partitions that have lost their heads: what they hold cannot be read.
    /// @return whether there are some
    bool TellHeadless(const recordings::Source& disk) {
        const std::vector<Partition> headless = recordings::HeadlessPartitions(disk);
        for (const Partition& partition : headless) {
            m_progress.Hide();
            Complain(recordings::DescribeHeadless(disk, partition));
        }
        m_lost = m_lost || !headless.empty();
        return !headless.empty();
    }

    /// What a user gives to have the partition read.
    std::string Named(const std::string& path, const recordings::Source& disk,
                      const Partition& partition) const {
        const bool ofDevice = disk.IsBlockDevice() && partition.number != 0;
        const std::string own = ofDevice ? recordings::PartitionPath(path, partition.number) : "";
        return own.empty() ? path : own;
    }

    void Describe(const std::string& path, const recordings::Source& whole, const Partition& partition) {
        const auto number = partition.number == 0 ? std::nullopt : std::optional<uint32_t>(partition.number);
        OpenedSource source(path, number, m_output.Descriptor());
        const recordings::Disk disk(source.Take(), m_options.diskType);
        const auto blocks = recordings::BlockList::Read(disk, [this](const recordings::Progress& progress) {
            const double total = progress.total == 0 ? 1 : static_cast<double>(progress.total);
            m_progress.Show(static_cast<double>(progress.done) / total, progress.bytes);
            return true;
        });
        const Block* oldest = nullptr;
        const Block* newest = nullptr;
        for (const Block& block : blocks.All()) {
            if (!block.unreadable && !block.wiped) {
                oldest = oldest == nullptr ? &block : oldest;
                newest = &block;
            }
        }
        const auto identity = newest == nullptr ? std::nullopt : ReadIdentity(disk, newest->number);
        const std::string name = Named(path, whole, partition);
        const std::string label =
            name == path && number ? fmt::format("{}, partition {}", name, *number) : name;
        m_partitions.push_back(
            {Printable(name), number ? Value(uint64_t{*number}) : Value(Nothing{}), Bytes{partition.size},
             identity ? Value(Printable(identity->vehicleNumber)) : Value(Nothing{}),
             oldest == nullptr ? Value(Nothing{}) : Value(m_clock.TrueTime(oldest->start)),
             newest == nullptr ? Value(Nothing{}) : Value(m_clock.TrueTime(LastSecondOf(disk, *newest, {}))),
             uint64_t{disk.Facts().blockCount}, disk.Hidden(), TellMissing(label, disk, blocks)});
        m_commands += "    diskaccess " + ShellWord(Printable(name)) +
                      (name == path && number ? " --partition " + std::to_string(*number) : "") + "\n";
    }

    /// Names what is wrong with a partition as a whole; of its blocks, how much.
    /// @return how many losses there are
    uint64_t TellMissing(const std::string& name, const recordings::Disk& disk,
                         const recordings::BlockList& blocks) {
        m_progress.Hide();
        uint64_t losses = 0;
        const auto count = [&losses](const Problem& problem) {
            losses += problem.severity == recordings::Severity::Loss ? 1 : 0;
        };
        ProblemPrinter printer(name, {});
        for (const Problem& problem : disk.OpeningProblems()) {
            count(problem);
            printer.Print(problem);
        }
        if (!disk.Hidden().Empty()) {
            printer.Print(ProblemOfLock(disk));
        }
        const uint64_t ofDisk = losses;
        blocks.Report({}, count);
        if (losses != ofDisk) {
            Complain(fmt::format("{}: not everything that was recorded is there: {} {} in its blocks; "
                                 "diskaccess check says which",
                                 name, losses - ofDisk, losses - ofDisk == 1 ? "loss" : "losses"));
        }
        m_lost = m_lost || losses != 0;
        return losses;
    }

    void Show() {
        m_answer->Begin("find", "");
        ShowTable(*m_answer, {"partitions",
                              {{"partition", "PARTITION"},
                               {"partition_number", "NO"},
                               {"size_bytes", "SIZE"},
                               {"vehicle_number", "VEHICLE"},
                               {"start", "RECORDED FROM"},
                               {"end", "TO"},
                               {"block_count", "BLOCKS"},
                               {"locked_channels", ""},
                               {"loss_count", ""}},
                              m_partitions});
        if (m_partitions.empty()) {
            m_answer->ShowProse({m_lost ? "No partition of a recorder was found that can be read.\n"
                                        : "No partition of a recorder was found.\n"});
        }
        ShowTable(*m_answer,
                  {"disks", {{"disk", "DISK"}, {"size_bytes", "SIZE"}, {"holds", "HOLDS"}}, m_disks});
        if (!m_partitions.empty()) {
            m_answer->ShowProse({"To see what is on it:\n" + m_commands});
        }
        m_answer->End();
        m_output.Flush();
    }

    const Options& m_options;
    TimeZone m_zone;
    DiskClock m_clock;
    Output m_output;
    Progress m_progress{"reading blocks"};
    std::unique_ptr<Renderer> m_answer;
    std::vector<Row> m_partitions;
    std::vector<Row> m_disks;
    std::string m_commands;
    std::string m_forbidden; ///< disks that may not be read
    bool m_failed = false;
    bool m_lost = false; ///< something that was recorded is missing, or cannot be read
};

} // namespace

ExitCode Find(const Options& options) {
    return Finder(options).Run();
}

} // namespace diskaccess
