#ifndef TESTS_SUPPORT_SCHEMA_H
#define TESTS_SUPPORT_SCHEMA_H

#include <nlohmann/json.hpp>
#include <string>

namespace test_support {

/// Where the schemas lie: docs/schema.
std::string SchemaDirectory();

/// Checks a document against a schema of docs/schema.
/// @param name of the schema: "list"
/// @return what is wrong with it; empty when nothing is
std::string SchemaErrors(const std::string& name, const nlohmann::json& document);

} // namespace test_support

#endif // TESTS_SUPPORT_SCHEMA_H
