#ifndef CATALOG_SRC_SCHEMA_H
#define CATALOG_SRC_SCHEMA_H

#include <cstdint>

#include "catalog/database.h"

namespace catalog {

/// The version of the tables that this library reads and writes. docs/catalog.md describes them.
constexpr int64_t kSchemaVersion = 2;

/// Brings a database's tables up to a version; makes them where there are none.
/// @throws Error when they are of a later version
void Migrate(Database& database, int64_t version = kSchemaVersion);

} // namespace catalog

#endif // CATALOG_SRC_SCHEMA_H
