#include "program/runs.h"

#include <fcntl.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <memory>
#include <nlohmann/json.hpp>
#include <sstream>
#include <stdexcept>

#include "program/visitor.h"
#include "support/findings.h"

namespace fuzzing {

namespace {

namespace fs = std::filesystem;

/// More than any command has to say of disks as small as these: a dump of a ring whose blocks have no size, and all lie at one
/// place, names the same one 65,536 times.
constexpr size_t kMostOutput = 256 << 20;
/// More than any of them may take.
constexpr long kMostMemoryKilobytes = 2 << 20;

/// Where the disk of a run lies in the folder, unless its files need other names.
constexpr char kDiskPlace[] = "disk/disk.img";

std::string ReadWhole(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

/// The bytes of a file, without its holes.
std::string ReadData(const std::string& path) {
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    std::string data;
    for (off_t begin = 0, end = 0; (begin = lseek(fd, end, SEEK_DATA)) >= 0;) {
        end = lseek(fd, begin, SEEK_HOLE);
        const size_t before = data.size();
        data.resize(before + static_cast<size_t>(end - begin));
        if (pread(fd, data.data() + before, data.size() - before, begin) != end - begin) {
            break;
        }
    }
    close(fd);
    return data;
}

/// All that may not change about a source.
struct Look {
    explicit Look(const std::string& path) : bytes(ReadData(path)) { stat(path.c_str(), &status); }

    static std::vector<Look> At(const std::vector<std::string>& paths) {
        return {paths.begin(), paths.end()};
    }

    bool operator==(const Look& other) const {
        const auto same = [](const timespec& one, const timespec& another) {
            return one.tv_sec == another.tv_sec && one.tv_nsec == another.tv_nsec;
        };
        return status.st_ino == other.status.st_ino && status.st_size == other.status.st_size &&
               status.st_mode == other.status.st_mode && status.st_nlink == other.status.st_nlink &&
               same(status.st_mtim, other.status.st_mtim) && same(status.st_ctim, other.status.st_ctim) &&
               bytes == other.bytes;
    }

    std::string bytes;
    struct stat status = {};
};

size_t FilesIn(const std::string& folder) {
    return static_cast<size_t>(std::distance(fs::directory_iterator(folder), fs::directory_iterator()));
}

size_t OpenDescriptors() {
    return FilesIn("/proc/self/fd");
}

void MakeKeys(const std::string& path, const std::string& publicPath) {
    using Key = std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)>;
    using File = std::unique_ptr<std::FILE, decltype(&std::fclose)>;
    const Key key(EVP_PKEY_Q_keygen(nullptr, nullptr, "ED25519"), &EVP_PKEY_free);
    const File own(std::fopen(path.c_str(), "w"), &std::fclose);
    const File shared(std::fopen(publicPath.c_str(), "w"), &std::fclose);
    if (!key || !own || !shared ||
        PEM_write_PrivateKey(own.get(), key.get(), nullptr, nullptr, 0, nullptr, nullptr) != 1 ||
        PEM_write_PUBKEY(shared.get(), key.get()) != 1) {
        throw std::runtime_error("cannot make keys");
    }
    chmod(path.c_str(), 0600);
}

std::map<std::string, std::string> PlacesIn(const test_support::TempDir& folder) {
    return {{"disk", folder.File(kDiskPlace)},
            {"whole", folder.File("whole.img")},
            {"out", folder.File("out")},
            {"names", folder.File("names.json")},
            {"list", folder.File("list.csv")},
            {"password", folder.File("password")},
            {"wrong password", folder.File("wrong-password")},
            {"key", folder.File("key.pem")},
            {"public key", folder.File("public.pem")},
            {"manifest", folder.File("made/film.mkv.json")},
            {"master manifest", folder.File("made/part.img.json")},
            {"damaged manifest", folder.File("made/damaged.json")},
            {"database", folder.File("database/catalog.db")}};
}

bool Failed(int exitCode) {
    return exitCode == 1 || exitCode == 2;
}

/// Whether a line of a command asks for a format.
bool AsksFor(const CommandLine& line, const std::string& format) {
    const auto found = std::find(line.begin(), line.end(), "--format");
    return (found != line.end() && found + 1 != line.end() && *(found + 1) == format) ||
           (format == "json" && std::find(line.begin(), line.end(), "--json") != line.end());
}

} // namespace

Runs::Runs() : m_lines(PlacesIn(m_folder)) {
    MakeFiles();
    MakeManifests();
}

void Runs::MakeFiles() {
    for (const char* const folder : {"disk", "out", "made", "database", "home"}) {
        fs::create_directory(m_folder.File(folder));
    }
    setenv("HOME", m_folder.File("home").c_str(), 1);
    fs::current_path(m_folder.File("home"));
    for (const char* const variable :
         {"XDG_CONFIG_HOME", "XDG_DATA_HOME", "DISKACCESS_PASSWORD", "DISPLAY"}) {
        unsetenv(variable);
    }
    std::ofstream(m_folder.File("names.json"))
        << R"({"schema_version":1,"channels":{"0":"front","31":"rear"},"event_types":{"0x1":"door"}})";
    // One row: of several, those before one that fails leave their files.
    std::ofstream(m_folder.File("list.csv")) << "from,to,channels\n@1700000000,@1700000012,\"0,31\"\n";
    std::ofstream(m_folder.File("password")) << "k\n";
    std::ofstream(m_folder.File("wrong-password")) << "wrong\n";
    MakeKeys(m_folder.File("key.pem"), m_folder.File("public.pem"));
}

/// What is verified is made of a disk that nothing is wrong with.
void Runs::MakeManifests() {
    m_disks.Whole().Write(m_folder.File("whole.img"));
    m_files.emplace(m_folder.File("whole.img"));
    const std::vector<CommandLine> lines = {
        {"export", m_folder.File("whole.img"), "--utc", "-o", m_folder.File("made/film.mkv"), "--sign",
         m_folder.File("key.pem")},
        {"extract", m_folder.File("whole.img"), "--utc", "-o", m_folder.File("made/part.img"), "--sign",
         m_folder.File("key.pem")}};
    for (const CommandLine& line : lines) {
        const ProgramEnd end = m_call.Run(line);
        if (Failed(end.exitCode)) {
            throw std::runtime_error("what is to be verified cannot be made: " + end.err);
        }
    }
}

/// Changes single characters, so that it mostly stays a document.
void Runs::DamageManifest(uint64_t number) const {
    std::mt19937_64 random(number);
    std::string text =
        ReadWhole(m_folder.File(random() % 2 == 0 ? "made/film.mkv.json" : "made/part.img.json"));
    const std::string values = "0123456789-.eE\"[]{}:,tnx\\";
    for (uint64_t i = 1 + random() % 4; i > 0; --i) {
        text.at(random() % text.size()) = values.at(random() % values.size());
    }
    std::ofstream(m_folder.File("made/damaged.json")) << text;
}

void Runs::EmptyFolders() const {
    for (const char* const folder : {"disk", "out", "database", "home"}) {
        for (const auto& entry : fs::directory_iterator(m_folder.File(folder))) {
            fs::remove_all(entry.path());
        }
    }
}

DiskFiles::Put Runs::PutDisk(uint64_t number) const {
    EmptyFolders();
    return m_files->Write(m_disks.Make(number), number, m_folder.File(kDiskPlace));
}

int Runs::Run(uint64_t number) {
    setenv("TZ", "UTC", 1); // --tz of the run before has changed it
    const std::vector<std::string> source = PutDisk(number).paths;
    DamageManifest(number);
    const std::vector<Look> before = Look::At(source);
    const size_t descriptors = OpenDescriptors();
    int exitCode = 0;
    for (const CommandLine& line : LinesOf(number, source.front())) {
        exitCode = RunLine(line);
    }
    Require(before == Look::At(source), "the source is not as it was");
    Require(FilesIn(m_folder.File("disk")) == source.size(), "a file is left beside the source");
    Require(OpenDescriptors() == descriptors, "a descriptor stays open");
    rusage usage = {};
    getrusage(RUSAGE_SELF, &usage);
    Require(usage.ru_maxrss < kMostMemoryKilobytes, "too much memory is taken");
    return exitCode;
}

std::vector<CommandLine> Runs::LinesOf(uint64_t number, const std::string& path) const {
    std::vector<CommandLine> lines = m_lines.Of(number);
    for (CommandLine& line : lines) {
        std::replace(line.begin(), line.end(), m_folder.File(kDiskPlace), path);
    }
    return lines;
}

int Runs::RunLine(const CommandLine& line) {
    const ProgramCall::Meanwhile meanwhile = line.front() == "view" ? VisitViewer : ProgramCall::Meanwhile();
    const ProgramEnd end = m_call.Run(line, meanwhile);
    Require(end.exitCode >= 0 && end.exitCode <= 3, "the exit status is none that there is");
    Require(end.out.size() < kMostOutput, "there is no end to the output");
    CheckComplaints(line, end);
    CheckAnswer(line, end);
    CheckFolders(line, end);
    return end.exitCode;
}

void Runs::CheckComplaints(const CommandLine& line, const ProgramEnd& end) const {
    std::istringstream lines(end.err);
    size_t count = 0;
    for (std::string text; std::getline(lines, text); ++count) {
        Require(text.compare(0, 12, "diskaccess: ") == 0,
                "a complaint does not begin with the program's name");
        Require(std::none_of(text.begin(), text.end(),
                             [](char letter) { return static_cast<unsigned char>(letter) < ' '; }),
                "a complaint has control characters");
    }
    Require(end.err.empty() || end.err.back() == '\n', "a complaint has no end");
    const bool answers =
        line.front() == "verify" || line.front() == "check"; // say what is wrong in their answers
    Require(!Failed(end.exitCode) || answers || count > 0, "a failure is not explained");
    // What the disk has to do with wrong use shows when it was read: then it was complained of, too.
    const bool reads = Has(line, "--verbose") || Has(line, "--sheet");
    Require(end.exitCode != 2 || count == 1 || (reads && count > 1),
            "wrong use is not explained in one line");
    Require(end.exitCode != 3 || count > 0 || answers, "a loss is not named");
}

void Runs::CheckAnswer(const CommandLine& line, const ProgramEnd& end) const {
    const bool isStream = std::find(line.begin(), line.end(), "-") != line.end();
    if (Failed(end.exitCode) || isStream) {
        return;
    }
    if (AsksFor(line, "json")) {
        Require(nlohmann::json::accept(end.out), "the answer is no JSON document");
    } else if (AsksFor(line, "ndjson")) {
        std::istringstream lines(end.out);
        for (std::string text; std::getline(lines, text);) {
            Require(nlohmann::json::accept(text), "a line of the answer is no JSON document");
        }
    }
}

void Runs::CheckFolders(const CommandLine& line, const ProgramEnd& end) const {
    const bool several = Has(line, "--split"); // those that were finished before a failure stay
    for (const auto& entry : fs::directory_iterator(m_folder.File("out"))) {
        Require(!Failed(end.exitCode) || several, "a file is left after a failure");
        Require(entry.path().string().find(".part") == std::string::npos, "a temporary file is left");
    }
    Require(fs::is_empty(m_folder.File("home")), "a file is left where nobody asked for one");
}

std::string Runs::Story(uint64_t number) const {
    const DiskFiles::Put put = PutDisk(number);
    std::string story = "disk: " + put.story + "\n";
    for (const CommandLine& line : LinesOf(number, put.paths.front())) {
        story += "diskaccess";
        for (const std::string& word : line) {
            story += " '" + word + "'";
        }
        story += "\n";
    }
    return story;
}

void Runs::Save(uint64_t number, const std::string& path) const {
    m_files->Write(m_disks.Make(number), number, path);
}

} // namespace fuzzing
