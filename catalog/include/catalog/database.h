#ifndef CATALOG_DATABASE_H
#define CATALOG_DATABASE_H

/// @file database.h
/// A database, as far as a catalogue needs one: SQLite in a file, or PostgreSQL.

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <variant>
#include <vector>

namespace catalog {

using Blob = std::vector<uint8_t>;
/// A value of a row; std::monostate is NULL.
using Cell = std::variant<std::monostate, int64_t, std::string, Blob>;
using Row = std::vector<Cell>;
using TakeRow = std::function<void(const Row&)>;

/// A connection. One thread uses it at a time.
class Database {
public:
    virtual ~Database() = default;

    /// Carries out one statement. Parameters stand in it as $1, $2, ...: whatever their text is, it is never part of the
    /// statement.
    /// @throws Error
    virtual void Run(const std::string& statement, const Row& parameters, const TakeRow& take) = 0;
    void Run(const std::string& statement, const Row& parameters = {}) { Run(statement, parameters, {}); }

    /// What differs in how the databases write their tables.
    struct Words {
        const char* key;    ///< a column that numbers rows
        const char* bytes;  ///< a column of bytes
        const char* begin;  ///< begins a transaction that will write
        const char* tables; ///< counts the tables of a name, $1
    };
    virtual const Words& Dialect() const = 0;
    /// Keeps other catalogues from writing until the transaction ends.
    virtual void LockForWriting() = 0;
};

/// Opens a database: the path of a SQLite file, which is made if it is not there, or "postgresql://...".
/// @throws Error
std::unique_ptr<Database> OpenDatabase(const std::string& location);

/// Whether a location is that of a server, not of a file.
bool IsServer(const std::string& location);

/// The files that reaching a server takes: passwords, certificates and settings, where the user keeps them. Some may not be
/// there.
std::vector<std::string> FilesOfServer(const std::string& location);

/// Whether the library was built with what it takes to reach PostgreSQL.
bool ServersSupported();

/// A transaction, undone unless it is committed.
class Transaction {
public:
    explicit Transaction(Database& database);
    ~Transaction();
    Transaction(const Transaction&) = delete;
    Transaction& operator=(const Transaction&) = delete;

    void Commit();

private:
    Database& m_database;
    bool m_done = false;
};

/// The value of a cell that must be of a type.
/// @throws Error when it is of another: then the database is not one of ours
int64_t NumberIn(const Cell& cell);
const std::string& TextIn(const Cell& cell);
const Blob& BytesIn(const Cell& cell);

} // namespace catalog

#endif // CATALOG_DATABASE_H
