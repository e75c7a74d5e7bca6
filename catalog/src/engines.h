#ifndef CATALOG_SRC_ENGINES_H
#define CATALOG_SRC_ENGINES_H

#include <memory>
#include <string>

#include "catalog/database.h"

namespace catalog {

/// Opens a file of SQLite's; makes it if it is not there.
/// @throws Error
std::unique_ptr<Database> OpenSqlite(const std::string& path);

/// Connects to a server.
/// @throws Error
std::unique_ptr<Database> OpenPostgres(const std::string& location);

} // namespace catalog

#endif // CATALOG_SRC_ENGINES_H
