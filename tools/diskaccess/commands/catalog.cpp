#include "catalog/catalog.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <mutex>
#include <thread>
#include <utility>

#include "catalog/error.h"
#include "cli/failure.h"
#include "cli/interruption.h"
#include "cli/names.h"
#include "cli/output.h"
#include "cli/password.h"
#include "cli/problems.h"
#include "cli/progress.h"
#include "cli/query.h"
#include "cli/source.h"
#include "cli/typed_sets.h"
#include "commands/catalog_location.h"
#include "commands/commands.h"
#include "recordings/error.h"
#include "render/amounts.h"
#include "render/printable.h"
#include "render/renderer.h"

namespace diskaccess {

namespace {

namespace fs = std::filesystem;

// ---- where the catalogue is

/// A location without its password.
std::string WithoutPassword(const std::string& location) {
    const size_t user = location.find("://");
    const size_t host = location.find('@');
    if (!catalog::IsServer(location) || host == std::string::npos) {
        return location;
    }
    const size_t password = location.find(':', user + 3);
    return password < host ? location.substr(0, password) + location.substr(host) : location;
}

std::string HostName() {
    char name[256] = "";
    gethostname(name, sizeof name - 1);
    return name;
}

// ---- the answer

/// What every action of the command has.
class Desk {
public:
    Desk(const Options& typed, const std::string& command)
        : options(typed), zone(ReadZone(typed)), names(typed.namesFile), location(CatalogLocation(typed)) {
        answer =
            MakeRenderer(options.format, zone, [this](const std::string& text) { m_output.Write(text); });
        answer->Begin(command, Printable(WithoutPassword(location)));
    }

    ExitCode Finish(ExitCode code) {
        answer->End();
        m_output.Flush();
        return code;
    }

    int OutputDescriptor() const { return m_output.Descriptor(); }

    const Options& options;
    TimeZone zone;
    Names names;
    std::string location;
    std::unique_ptr<Renderer> answer;

private:
    Output m_output;
};

Value TimeOrNothing(const std::optional<int64_t>& seconds) {
    return seconds ? Value(Time{*seconds}) : Value(Nothing{});
}

Value Number(int64_t number) {
    return static_cast<uint64_t>(number);
}

// ---- add

/// Makes sure that the catalogue is not written into a source.
void KeepFrom(const std::string& location, const std::string& name, const media::SourceIdentity& source) {
    if (catalog::IsServer(location)) {
        return;
    }
    const std::string folder = fs::path(location).parent_path();
    for (const std::string& path : {location, location + "-journal", location + "-wal", location + "-shm",
                                    folder.empty() ? std::string(".") : folder}) {
        struct stat status = {};
        if (stat(path.c_str(), &status) == 0 && source.Includes(status)) {
            throw Failure(name +
                          ": the catalogue lies in it, and it is never written; give another --database");
        }
    }
}

/// The same for all sources, before the catalogue is opened: that writes already.
void KeepFromAll(const Options& options, const std::string& location) {
    for (const std::string& source : options.subjects) {
        const int opened = open(source.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
        if (opened >= 0) {
            const media::SourceIdentity identity(opened);
            close(opened);
            KeepFrom(location, source, identity);
        }
    }
}

/// Reads several disks at once. Each thread has a connection of its own.
class Adder {
public:
    Adder(Desk& desk, std::optional<std::string> password) : m_desk(desk), m_password(std::move(password)) {}

    ExitCode Run() {
        KeepFromAll(m_desk.options, m_desk.location);
        MakeTables();
        const uint32_t processors = std::max(1u, std::thread::hardware_concurrency());
        const size_t jobs = std::min<size_t>(m_desk.options.jobs == 0 ? processors : m_desk.options.jobs,
                                             m_desk.options.subjects.size());
        m_rows.resize(m_desk.options.subjects.size());
        std::vector<std::thread> threads;
        for (size_t i = 1; i < jobs; ++i) {
            threads.emplace_back([this] { Work(); });
        }
        Work();
        for (std::thread& thread : threads) {
            thread.join();
        }
        return Show();
    }

private:
    /// Before all threads come at once.
    void MakeTables() const { const catalog::Catalog made(catalog::OpenDatabase(m_desk.location)); }

    void Work() {
        std::unique_ptr<catalog::Catalog> mine;
        for (size_t i = m_next++; i < m_rows.size() && !Interruption::Asked(); i = m_next++) {
            const std::string& source = m_desk.options.subjects[i];
            try {
                if (!mine) {
                    mine = std::make_unique<catalog::Catalog>(catalog::OpenDatabase(m_desk.location));
                }
                AddOne(*mine, source, m_rows[i]);
            } catch (const recordings::Error& error) {
                Fail(ToFailure(error).what());
            } catch (const catalog::Error& error) {
                Fail(source + ": not catalogued: " + error.what());
            } catch (const std::exception& error) {
                Fail(error.what());
            }
            const std::lock_guard lock(m_lock);
            m_progress.Show(static_cast<double>(++m_done) / static_cast<double>(m_rows.size()), 0);
        }
    }

    void AddOne(catalog::Catalog& catalogue, const std::string& source, Row& row) {
        OpenedSource opened(source, m_desk.options.partitionNumber, m_desk.OutputDescriptor());
        KeepFrom(m_desk.location, source, opened.Identity());
        recordings::Disk disk(opened.Take(), m_desk.options.diskType);
        if (m_password && !disk.Hidden().Empty() && !disk.Unlock(*m_password)) {
            throw Failure(source + ": wrong password; channels " + ChannelSetText(disk.Hidden()) +
                          " stay hidden");
        }
        const recordings::Watch watch = [](const recordings::Progress& /*progress*/) {
            return !Interruption::Asked();
        };
        const recordings::BlockList blocks = recordings::BlockList::Read(disk, watch);
        catalog::Reading reading;
        reading.source = fs::absolute(source).lexically_normal();
        reading.host = HostName();
        reading.now = std::time(nullptr);
        reading.skewSeconds = m_desk.options.skew;
        reading.printable = Printable;
        const catalog::Added added = catalogue.Add(disk, blocks, reading, watch);
        row = {Printable(reading.source),
               Number(added.disk),
               added.isNew,
               added.blocks,
               added.read,
               added.losses};
        if (added.losses != 0) {
            const std::lock_guard lock(m_lock);
            m_losses.push_back(
                fmt::format("{}: not everything that was recorded is there: {} {}; catalog list "
                            "says what is missing",
                            source, added.losses, added.losses == 1 ? "loss" : "losses"));
        }
    }

    void Fail(const std::string& line) {
        const std::lock_guard lock(m_lock);
        m_progress.Hide();
        Complain(line);
        m_failed = true;
    }

    ExitCode Show() {
        m_progress.Hide();
        if (Interruption::Asked()) {
            throw Failure("interrupted; disks that were not finished are as they were in the catalogue");
        }
        Renderer& answer = *m_desk.answer;
        answer.BeginTable({"added",
                           {{"source_path", "SOURCE"},
                            {"disk_number", "DISK"},
                            {"new", "NEW"},
                            {"recorded_block_count", "BLOCKS"},
                            {"read_block_count", "READ"},
                            {"loss_count", "LOSSES"}},
                           {}});
        for (const Row& row : m_rows) {
            if (!row.empty()) {
                answer.ShowRow(row);
            }
        }
        answer.EndTable();
        for (const std::string& line : m_losses) {
            Complain(line);
        }
        return m_desk.Finish(m_failed ? kFailed : m_losses.empty() ? kDone : kDataLost);
    }

    Desk& m_desk;
    std::optional<std::string> m_password;
    std::vector<Row> m_rows; ///< of each source, in the order they were named in
    std::atomic<size_t> m_next = 0;
    std::atomic<bool> m_failed = false;
    std::vector<std::string> m_losses; ///< a line for each disk that has some
    std::mutex m_lock;
    size_t m_done = 0;
    Progress m_progress{"cataloguing"};
};

ExitCode Add(Desk& desk) {
    const bool wanted = !desk.options.passwordFile.empty() || desk.options.askPassword ||
                        std::getenv("DISKACCESS_PASSWORD") != nullptr;
    const Interruption interruption;
    return Adder(desk,
                 wanted ? GivenPassword(desk.options.passwordFile, desk.options.askPassword) : std::nullopt)
        .Run();
}

// ---- questions

/// A question to a catalogue that is not there would be answered with nothing.
void ExpectThere(bool isThere, const std::string& location) {
    if (!isThere) {
        throw Failure(WithoutPassword(location) +
                      ": there is no catalogue; 'catalog add' makes it, or give another --database");
    }
}

bool MayBeThere(const std::string& location) {
    std::error_code error;
    const bool isThere = catalog::IsServer(location) || fs::exists(location, error);
    if (error) {
        throw Failure(location + ": cannot be looked at: " + error.message() + "; give another --database");
    }
    return isThere;
}

/// Opens a catalogue, and makes none.
catalog::Catalog OpenCatalogue(const std::string& location) {
    ExpectThere(MayBeThere(location), location);
    std::unique_ptr<catalog::Database> database = catalog::OpenDatabase(location);
    ExpectThere(catalog::HoldsCatalog(*database), location);
    return catalog::Catalog(std::move(database));
}

// ---- list

ExitCode ListDisks(Desk& desk, catalog::Catalog& catalogue) {
    Renderer& answer = *desk.answer;
    const std::vector<catalog::CataloguedDisk> disks = catalogue.List();
    answer.BeginTable({"catalogued_disks",
                       {{"disk_number", "DISK"},
                        {"vehicle_number", "VEHICLE"},
                        {"vehicle_id", "ID"},
                        {"start", "FROM"},
                        {"end", "TO"},
                        {"recorded_block_count", "BLOCKS"},
                        {"loss_count", "LOSSES"},
                        {"host", "HOST"},
                        {"source_path", "SOURCE"},
                        {"description", ""},
                        {"device_size_bytes", ""},
                        {"updated", ""}},
                       {}});
    for (const catalog::CataloguedDisk& disk : disks) {
        answer.ShowRow({Number(disk.id), disk.vehicleNumber, disk.vehicleId, TimeOrNothing(disk.first),
                        TimeOrNothing(disk.last), disk.recordedBlocks, disk.losses, Printable(disk.host),
                        Printable(disk.source), disk.description, Bytes{disk.size}, Time{disk.updated}});
    }
    answer.EndTable();
    answer.BeginTable(
        {"problems",
         {{"disk_number", "DISK"}, {"severity", "SEVERITY"}, {"problem", "KIND"}, {"text", "PROBLEM"}},
         {}});
    for (const catalog::CataloguedDisk& disk : disks) {
        for (const catalog::CataloguedProblem& problem : catalogue.ProblemsOf(disk.id)) {
            answer.ShowRow(
                {Number(disk.id), std::string(problem.isLoss ? "loss" : "note"), problem.kind, problem.text});
        }
    }
    answer.EndTable();
    return desk.Finish(kDone);
}

// ---- find

/// Whether a terminal shows it as it is.
bool IsPlain(const std::string& word) {
    std::string visible = word;
    visible.erase(std::remove(visible.begin(), visible.end(), '\\'), visible.end()); // shown doubled
    return Printable(visible) == visible;
}

/// A word that a shell takes as it is, and a terminal too: of what is not plain, the codes are written, which bash and zsh
/// read.
std::string Quoted(const std::string& word) {
    const bool plain = IsPlain(word);
    std::string quoted = plain ? "'" : "$'";
    for (const char letter : word) {
        if (letter == '\'' && plain) {
            quoted += "'\\''";
        } else if (!plain && (letter < ' ' || letter > '~' || letter == '\'' || letter == '\\')) {
            quoted += fmt::format("\\x{:02x}", static_cast<uint8_t>(letter));
        } else {
            quoted += letter;
        }
    }
    return quoted + "'";
}

/// Letters of a disk's text that can stand in any file's name.
std::string NamePart(const std::string& text) {
    std::string name;
    for (const char letter : text) {
        const bool plain = (letter >= '0' && letter <= '9') || (letter >= 'A' && letter <= 'Z') ||
                           (letter >= 'a' && letter <= 'z');
        name += plain ? letter : '_';
    }
    return name.empty() ? "vehicle" : name;
}

/// The command that exports what was found.
std::string ExportCommand(const Desk& desk, const catalog::Found& found) {
    const CivilTime start = desk.zone.ToCivil(found.start);
    const std::string file =
        fmt::format("{}-{:04}{:02}{:02}-{:02}{:02}{:02}.mkv", NamePart(found.vehicleNumber), start.year,
                    start.month, start.day, start.hour, start.minute, start.second);
    std::string line = fmt::format("diskaccess export {} --from {} --to {} --channel {} -o {}",
                                   Quoted(found.source), Quoted(desk.zone.Text(found.start)),
                                   Quoted(desk.zone.Text(found.end)), ChannelSetText(found.channels), file);
    if (found.skewSeconds != 0) {
        line += fmt::format(" --skew {}", found.skewSeconds);
    }
    if (!desk.options.zone.empty()) {
        line += " --tz " + Quoted(desk.options.zone);
    }
    return line;
}

catalog::Question QuestionOf(const Desk& desk) {
    catalog::Question question;
    if (!desk.options.vehicle.empty()) {
        question.vehicle = desk.options.vehicle;
    }
    Options ranged = desk.options;
    ranged.alarm.clear(); // --event is read below
    const Query query = ReadQuery(ranged, desk.zone, desk.names, std::time(nullptr));
    question.from = query.range.first;
    question.to = query.range.last;
    question.channels = query.channels;
    question.events = ReadEventTypes(desk.options.alarm, "--event", desk.names);
    return question;
}

ExitCode Find(Desk& desk, catalog::Catalog& catalogue, const catalog::Question& question) {
    Renderer& answer = *desk.answer;
    answer.BeginTable({"found",
                       {{"vehicle_number", "VEHICLE"},
                        {"vehicle_id", ""},
                        {"disk_number", "DISK"},
                        {"start", "FROM"},
                        {"end", "TO"},
                        {"channels", "CHANNELS"},
                        {"event_types", "EVENTS"},
                        {"host", "HOST"},
                        {"source_path", ""},
                        {"export_command", "COMMAND"}},
                       {}});
    for (const catalog::Found& found : catalogue.Find(question)) {
        answer.ShowRow({found.vehicleNumber, found.vehicleId, Number(found.disk), Time{found.start},
                        Time{found.end}, desk.names.Channels(found.channels),
                        desk.names.EventTypes(found.events), Printable(found.host), Printable(found.source),
                        ExportCommand(desk, found)});
    }
    answer.EndTable();
    return desk.Finish(kDone);
}

// ---- remove

int64_t DiskNumber(const std::string& text) {
    if (text.empty() || text.size() > 18 || text.find_first_not_of("0123456789") != std::string::npos) {
        throw WrongUse("remove: '" + text + "' is not a disk's number; give one as list shows it");
    }
    return std::stoll(text);
}

ExitCode Remove(Desk& desk, catalog::Catalog& catalogue) {
    std::vector<int64_t> disks;
    for (const std::string& subject : desk.options.subjects) {
        disks.push_back(DiskNumber(subject));
    }
    ExitCode code = kDone;
    desk.answer->BeginTable({"removed", {{"disk_number", "REMOVED"}}, {}});
    for (const int64_t disk : disks) {
        if (catalogue.Remove(disk)) {
            desk.answer->ShowRow({Number(disk)});
        } else {
            Complain(fmt::format("the catalogue holds no disk {}; list shows their numbers", disk));
            code = kFailed;
        }
    }
    desk.answer->EndTable();
    return desk.Finish(code);
}

} // namespace

void CheckCatalog(const Options& options) {
    const bool takesSubjects = options.action == "add" || options.action == "remove";
    if (takesSubjects && options.subjects.empty()) {
        throw WrongUse(options.action == "add"
                           ? "catalog add: give the sources to enter"
                           : "catalog remove: give the disks' numbers, as list shows them");
    }
    if (!takesSubjects && !options.subjects.empty()) {
        throw WrongUse("catalog " + options.action + ": takes no '" + options.subjects.front() +
                       "'; leave it out");
    }
    for (const std::string& subject : options.subjects) {
        if (options.action == "remove") {
            DiskNumber(subject);
        }
    }
}

ExitCode Catalogue(const Options& options, const std::string& command) {
    try {
        Desk desk(options, command);
        if (options.action == "add") {
            return Add(desk);
        }
        const catalog::Question question = options.action == "find" ? QuestionOf(desk) : catalog::Question();
        catalog::Catalog catalogue = OpenCatalogue(desk.location);
        if (options.action == "list") {
            return ListDisks(desk, catalogue);
        }
        return options.action == "find" ? Find(desk, catalogue, question) : Remove(desk, catalogue);
    } catch (const catalog::Error& error) {
        throw Failure(error.what());
    }
}

} // namespace diskaccess
