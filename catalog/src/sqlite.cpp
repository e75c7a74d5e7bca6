#include <fcntl.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <map>
#include <optional>
#include <utility>
#include <vector>

#include "catalog/error.h"
#include "engines.h"

namespace catalog {

namespace {

/// How long a writer waits for another one.
constexpr int kPatienceMillis = 60000;
/// Bytes at the start of a file beside the database that tell whether it is the database's.
constexpr size_t kCompanionHead = 28;
/// What can be done where a file cannot be reached.
const char* const kOtherFile = "; give the catalogue another file";

/// The start of a file; shorter than asked for where the file is. Nothing when it cannot be read.
std::optional<std::string> StartOf(int file, size_t size) {
    std::string start(size, '\0');
    size_t has = 0;
    ssize_t got = 0;
    while (has < size && (got = read(file, start.data() + has, size - has)) != 0) {
        if (got < 0 && errno != EINTR) {
            return std::nullopt;
        }
        has += static_cast<size_t>(std::max<ssize_t>(got, 0));
    }
    start.resize(has);
    return start;
}

bool BeginsWith(const std::string& bytes, const std::string& magic) {
    return bytes.compare(0, magic.size(), magic) == 0;
}

bool IsPowerOfTwo(uint32_t number) {
    return number != 0 && (number & (number - 1)) == 0;
}

uint32_t BigEndianAt(const std::string& bytes, size_t at) {
    uint32_t number = 0;
    for (size_t i = 0; i < sizeof number; ++i) {
        number = number << 8 | static_cast<uint8_t>(bytes[at + i]);
    }
    return number;
}

/// How a journal begins while another program writes: its first bytes and the count of its pages come last, when the rest
/// is on the disk.
bool IsUnfinishedJournal(const std::string& start) {
    constexpr size_t kSectorSize = 20;
    constexpr size_t kPageSize = 24;
    return start.size() == kCompanionHead && BeginsWith(start, std::string(12, '\0')) &&
           IsPowerOfTwo(BigEndianAt(start, kSectorSize)) && IsPowerOfTwo(BigEndianAt(start, kPageSize));
}

/// A file that SQLite keeps beside its own while it writes, and how it begins.
struct Companion {
    const char* ending;
    std::vector<std::string> starts;
};

const std::array<Companion, 3>& Companions() {
    static const std::array<Companion, 3> companions = {
        {{"-journal", {"\xD9\xD5\x05\xF9"}},
         {"-wal", {"\x37\x7F\x06\x82", "\x37\x7F\x06\x83"}},
         {"-shm",
          {std::string("\x18\xE2\x2D\x00", 4), std::string("\x00\x2D\xE2\x18", 4), std::string(4, '\0')}}}};
    return companions;
}

bool IsCompanion(const std::string& start, const std::vector<std::string>& starts) {
    return start.empty() || IsUnfinishedJournal(start) ||
           std::any_of(starts.begin(), starts.end(),
                       [&start](const std::string& known) { return BeginsWith(start, known); });
}

/// Why what has a companion's name may not be the database's; empty when it may be, or when nothing has that name. Only a
/// file that was read is known to be the database's: of all others, SQLite would remove some and wait for others.
std::string WhyForeign(const std::string& path, const std::vector<std::string>& starts) {
    struct stat status = {};
    if (lstat(path.c_str(), &status) != 0) {
        if (errno == ENOENT || errno == ENOTDIR) {
            return "";
        }
        throw Error(path + ": " + std::strerror(errno) + kOtherFile);
    }
    if (!S_ISREG(status.st_mode)) {
        return "this is no regular file";
    }
    const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY);
    if (file < 0) { // the program that it belongs to may have removed it since
        return errno == ENOENT ? "" : std::string("this one cannot be read: ") + std::strerror(errno);
    }
    const std::optional<std::string> start = StartOf(file, kCompanionHead);
    close(file);
    if (!start) {
        return "this one cannot be read";
    }
    return IsCompanion(*start, starts) ? "" : "this is another program's";
}

/// SQLite removes or overwrites whatever has the names of the files beside its own: it may be a disk's image.
void ExpectNothingElseBeside(const std::string& path) {
    for (const Companion& companion : Companions()) {
        std::string beside = path + companion.ending;
        const std::string why = WhyForeign(beside, companion.starts);
        if (!why.empty()) {
            throw Error(
                beside.append(": is in the way: the database would overwrite a file of this name, and ")
                    .append(why)
                    .append("; move it, or give another --database"));
        }
    }
}

bool IsLink(const std::filesystem::path& path) {
    std::error_code error; // a file that is not there is no link
    return std::filesystem::is_symlink(path, error);
}

/// The file itself, with all links followed, also those to what is not there yet: the files beside it are beside that. Names
/// that mean no file to SQLite, like ":memory:", are files' names here.
std::string FileOf(const std::string& path) {
    constexpr int kMostLinks = 40; // as the system has it
    std::error_code error;
    std::filesystem::path file = std::filesystem::absolute(path, error);
    for (int links = 0; !error && links < kMostLinks && IsLink(file); ++links) {
        file = file.parent_path() / std::filesystem::read_symlink(file, error);
    }
    if (!error) {
        file = std::filesystem::weakly_canonical(file, error);
    }
    if (error) {
        throw Error(path + ": " + error.message() + kOtherFile);
    }
    return file;
}

struct CloseDatabase {
    void operator()(sqlite3* database) const { sqlite3_close_v2(database); }
};
struct Finalize {
    void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
};
using Statement = std::unique_ptr<sqlite3_stmt, Finalize>;

/// Leaves a statement ready for its next use, whatever happens.
class Use {
public:
    explicit Use(sqlite3_stmt* statement) : m_statement(statement) {}
    ~Use() {
        sqlite3_reset(m_statement);
        sqlite3_clear_bindings(m_statement);
    }
    Use(const Use&) = delete;
    Use& operator=(const Use&) = delete;

private:
    sqlite3_stmt* m_statement;
};

Cell CellOf(sqlite3_stmt* statement, int column) {
    switch (sqlite3_column_type(statement, column)) {
    case SQLITE_INTEGER:
        return int64_t{sqlite3_column_int64(statement, column)};
    case SQLITE_TEXT: {
        const auto* const text = reinterpret_cast<const char*>(sqlite3_column_text(statement, column));
        return std::string(text, static_cast<size_t>(sqlite3_column_bytes(statement, column)));
    }
    case SQLITE_BLOB: {
        const auto* const bytes = static_cast<const uint8_t*>(sqlite3_column_blob(statement, column));
        return Blob(bytes, bytes + sqlite3_column_bytes(statement, column));
    }
    default:
        return std::monostate{};
    }
}

/// What can be done about an error, after what SQLite says of it.
std::string Advice(int result) {
    switch (result) {
    case SQLITE_CORRUPT:
    case SQLITE_NOTADB:
        return "; give the catalogue another file, and add the disks again";
    case SQLITE_CANTOPEN:
        return "; give the catalogue a file in a folder that can be written";
    case SQLITE_READONLY:
        return "; allow writing the file and its folder, or give the catalogue another one";
    case SQLITE_FULL:
        return "; make room there";
    case SQLITE_BUSY:
        return ": another program writes; try again when it has ended";
    default:
        return "";
    }
}

class Sqlite : public Database {
public:
    explicit Sqlite(std::string path) : m_path(std::move(path)) {
        struct stat status = {};
        if (stat(m_path.c_str(), &status) == 0 && !S_ISREG(status.st_mode)) {
            throw Error(m_path + ": is no file; give the catalogue another one");
        }
        const std::string file = FileOf(m_path);
        ExpectNothingElseBeside(file);
        sqlite3* database = nullptr;
        const int result =
            sqlite3_open_v2(file.c_str(), &database,
                            SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX, nullptr);
        m_database.reset(database);
        Check(result);
        sqlite3_busy_timeout(database, kPatienceMillis);
        Database::Run("PRAGMA foreign_keys = ON");
        Database::Run("PRAGMA cache_size = -65536");
        // The user may be able to write beside the file alone.
        Database::Run("PRAGMA temp_store = MEMORY");
        ExpectNoOthersTables();
    }

    using Database::Run;
    void Run(const std::string& text, const Row& parameters, const TakeRow& take) override {
        sqlite3_stmt* const statement = Prepared(text);
        const Use use(statement);
        for (size_t i = 0; i < parameters.size(); ++i) {
            Bind(statement, i + 1, parameters[i]);
        }
        int result = 0;
        while ((result = sqlite3_step(statement)) == SQLITE_ROW) {
            if (take) {
                TakeFrom(statement, take);
            }
        }
        if (result != SQLITE_DONE) {
            Check(result);
        }
    }

    const Words& Dialect() const override {
        static const Words words = {"INTEGER PRIMARY KEY", "BLOB", "BEGIN IMMEDIATE",
                                    "SELECT count(*) FROM sqlite_master WHERE type = 'table' AND name = $1"};
        return words;
    }

    void LockForWriting() override {} // BEGIN IMMEDIATE has done it

private:
    void Check(int result) const {
        if (result != SQLITE_OK) {
            const char* const why = m_database ? sqlite3_errmsg(m_database.get()) : sqlite3_errstr(result);
            throw Error(m_path + ": " + why + Advice(result));
        }
    }

    /// A database without tables is a new catalogue; one with tables but without a catalogue's belongs to another
    /// program.
    void ExpectNoOthersTables() {
        int64_t tables = 0;
        int64_t ours = 0;
        Sqlite::Run("SELECT count(*), coalesce(sum(name = 'catalog_version'), 0) FROM sqlite_master", {},
                    [&](const Row& row) {
                        tables = NumberIn(row.at(0));
                        ours = NumberIn(row.at(1));
                    });
        if (tables != 0 && ours == 0) {
            throw Error(m_path + ": is a database of another program; give the catalogue a file of its own");
        }
    }

    sqlite3_stmt* Prepared(const std::string& text) {
        Statement& statement = m_statements[text];
        if (!statement) {
            sqlite3_stmt* made = nullptr;
            const int result = sqlite3_prepare_v2(m_database.get(), text.c_str(), -1, &made, nullptr);
            statement.reset(made);
            Check(result);
        }
        return statement.get();
    }

    void Bind(sqlite3_stmt* statement, size_t number, const Cell& cell) const {
        // SQLite numbers parameters as they come, and knows these by their names.
        const int at = sqlite3_bind_parameter_index(statement, ("$" + std::to_string(number)).c_str());
        if (at == 0) {
            return; // the statement does not ask for it
        }
        int result = SQLITE_OK;
        if (const auto* const value = std::get_if<int64_t>(&cell)) {
            result = sqlite3_bind_int64(statement, at, *value);
        } else if (const auto* const text = std::get_if<std::string>(&cell)) {
            result =
                sqlite3_bind_text64(statement, at, text->data(), text->size(), SQLITE_STATIC, SQLITE_UTF8);
        } else if (const auto* const bytes = std::get_if<Blob>(&cell)) {
            static const uint8_t nothing = 0;
            result = sqlite3_bind_blob64(statement, at, bytes->empty() ? &nothing : bytes->data(),
                                         bytes->size(), SQLITE_STATIC);
        }
        Check(result);
    }

    static void TakeFrom(sqlite3_stmt* statement, const TakeRow& take) {
        Row row;
        for (int column = 0; column < sqlite3_column_count(statement); ++column) {
            row.push_back(CellOf(statement, column));
        }
        take(row);
    }

    std::string m_path;
    std::unique_ptr<sqlite3, CloseDatabase> m_database;
    std::map<std::string, Statement> m_statements; ///< go before the database does
};

} // namespace

std::unique_ptr<Database> OpenSqlite(const std::string& path) {
    return std::make_unique<Sqlite>(path);
}

} // namespace catalog
