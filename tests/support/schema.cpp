#include "support/schema.h"

#include <gtest/gtest.h>

#include <fstream>
#include <valijson/adapters/nlohmann_json_adapter.hpp>
#include <valijson/schema.hpp>
#include <valijson/schema_parser.hpp>
#include <valijson/validator.hpp>

namespace test_support {

std::string SchemaDirectory() {
    return DISKACCESS_SCHEMAS;
}

std::string SchemaErrors(const std::string& name, const nlohmann::json& document) {
    using Adapter = valijson::adapters::NlohmannJsonAdapter;
    std::ifstream file(SchemaDirectory() + "/" + name + ".schema.json");
    EXPECT_TRUE(file) << name;
    const auto schemaDocument = nlohmann::json::parse(file);
    valijson::Schema schema;
    valijson::SchemaParser().populateSchema(Adapter(schemaDocument), schema);
    valijson::ValidationResults results;
    if (valijson::Validator().validate(schema, Adapter(document), &results)) {
        return "";
    }
    std::string errors;
    valijson::ValidationResults::Error error;
    while (results.popError(error)) {
        errors += error.description + "\n";
    }
    return errors;
}

} // namespace test_support
