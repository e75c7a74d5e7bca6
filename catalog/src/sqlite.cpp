#include <sqlite3.h>
#include <sys/stat.h>

#include <map>
#include <utility>

#include "catalog/error.h"
#include "engines.h"

namespace catalog {

namespace {

/// How long a writer waits for another one.
constexpr int kPatienceMillis = 60000;

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

class Sqlite : public Database {
public:
    explicit Sqlite(std::string path) : m_path(std::move(path)) {
        struct stat status = {};
        if (stat(m_path.c_str(), &status) == 0 && !S_ISREG(status.st_mode)) {
            throw Error(m_path + ": is no file; give the catalogue another one");
        }
        sqlite3* database = nullptr;
        const int result =
            sqlite3_open_v2(m_path.c_str(), &database,
                            SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX, nullptr);
        m_database.reset(database);
        Check(result);
        sqlite3_busy_timeout(database, kPatienceMillis);
        Database::Run("PRAGMA foreign_keys = ON");
        Database::Run("PRAGMA cache_size = -65536");
        // Whoever uses this may be able to write beside the file alone.
        Database::Run("PRAGMA temp_store = MEMORY");
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
        static const Words words = {"INTEGER PRIMARY KEY", "BLOB", "BEGIN IMMEDIATE"};
        return words;
    }

    void LockForWriting() override {} // BEGIN IMMEDIATE has done it

private:
    void Check(int result) const {
        if (result != SQLITE_OK) {
            const char* const why = m_database ? sqlite3_errmsg(m_database.get()) : sqlite3_errstr(result);
            throw Error(m_path + ": " + why);
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
