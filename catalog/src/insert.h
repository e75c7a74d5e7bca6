#ifndef CATALOG_SRC_INSERT_H
#define CATALOG_SRC_INSERT_H

#include <string>
#include <utility>

#include "catalog/database.h"

namespace catalog {

/// Enters rows into a table, many with one statement: a server may be far away.
class Insert {
public:
    /// @param into "table (column, column)"
    Insert(Database& database, std::string into, size_t columns)
        : m_database(database), m_into(std::move(into)), m_columns(columns) {}

    void Add(Row row);
    /// Enters what is left.
    void Finish();

private:
    Database& m_database;
    std::string m_into;
    size_t m_columns;
    Row m_cells; ///< of rows that are not entered yet
};

} // namespace catalog

#endif // CATALOG_SRC_INSERT_H
