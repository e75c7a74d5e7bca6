#include "catalog/database.h"

#include "catalog/error.h"
#include "engines.h"

namespace catalog {

namespace {

template <typename Type>
const Type& Expect(const Cell& cell) {
    const Type* const value = std::get_if<Type>(&cell);
    if (value == nullptr) {
        throw Error("the database is damaged, or no catalogue: a value is of the wrong type");
    }
    return *value;
}

bool BeginsWith(const std::string& text, const std::string& start) {
    return text.compare(0, start.size(), start) == 0;
}

} // namespace

bool IsServer(const std::string& location) {
    return BeginsWith(location, "postgresql://") || BeginsWith(location, "postgres://");
}

std::unique_ptr<Database> OpenDatabase(const std::string& location) {
    return IsServer(location) ? OpenPostgres(location) : OpenSqlite(location);
}

int64_t NumberIn(const Cell& cell) {
    return Expect<int64_t>(cell);
}

const std::string& TextIn(const Cell& cell) {
    return Expect<std::string>(cell);
}

const Blob& BytesIn(const Cell& cell) {
    return Expect<Blob>(cell);
}

Transaction::Transaction(Database& database) : m_database(database) {
    m_database.Run(m_database.Dialect().begin);
}

Transaction::~Transaction() {
    if (!m_done) {
        try {
            m_database.Run("ROLLBACK");
        } catch (const Error&) {
            // The connection is gone, and the transaction with it.
            m_done = true;
        }
    }
}

void Transaction::Commit() {
    m_database.Run("COMMIT");
    m_done = true;
}

} // namespace catalog
