// The documents say the same thing the same way: a key has one form in all schemas, and is explained once.

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <regex>
#include <set>

#include "support/files.h"
#include "support/schema.h"

namespace {

using namespace test_support;
using Json = nlohmann::json;

/// What a value is, without its bounds, its description, and whether it may be null: "integer", "date-time", "rows".
std::string FormOf(const Json& schema) {
    std::string form;
    if (schema.contains("anyOf")) {
        for (const Json& each : schema["anyOf"]) {
            const std::string one = FormOf(each);
            form += form.empty() || one.empty() ? one : " or " + one;
        }
        return form;
    }
    if (schema.contains("const") || schema.contains("enum")) {
        return "text";
    }
    const std::string type = schema["type"];
    if (type == "array") {
        return schema["items"]["type"] == "object" ? "rows" : "list of " + FormOf(schema["items"]);
    }
    return type == "null" ? "" : type == "string" ? schema.value("format", "text") : type;
}

void CollectForms(const Json& schema, std::map<std::string, std::set<std::string>>& forms) {
    if (schema.contains("properties")) {
        for (const auto& [key, value] : schema["properties"].items()) {
            forms[key].insert(FormOf(value));
        }
    }
    if (schema.is_structured()) {
        for (const Json& each : schema) {
            CollectForms(each, forms);
        }
    }
}

/// The forms that each key has in the documents.
std::map<std::string, std::set<std::string>> FormsOfKeys() {
    std::map<std::string, std::set<std::string>> forms;
    for (const auto& file : std::filesystem::directory_iterator(SchemaDirectory())) {
        if (file.path().extension() == ".json" &&
            file.path().string().find("manifest.schema.json") == std::string::npos &&
            file.path().filename() != "names.schema.json") {
            CollectForms(Json::parse(ReadFile(file.path())), forms);
        }
    }
    return forms;
}

TEST(Schemas, AKeyHasOneForm) {
    const auto forms = FormsOfKeys();
    EXPECT_GT(forms.size(), 50u);
    for (const auto& [key, each] : forms) {
        EXPECT_EQ(each.size(), 1u) << key << ": " << ::testing::PrintToString(each);
    }
}

TEST(Schemas, EveryKeyIsExplained) {
    std::ifstream page(SchemaDirectory() + "/README.md");
    std::set<std::string> explained;
    const std::regex name("`([a-z_0-9]+)`");
    for (std::string line; std::getline(page, line);) {
        const std::string cell = line.substr(0, line.find('|', 1));
        for (std::sregex_iterator i(cell.begin(), cell.end(), name), end; line[0] == '|' && i != end; ++i) {
            EXPECT_TRUE(explained.insert((*i)[1]).second) << (*i)[1] << " is explained twice";
        }
    }
    std::set<std::string> used;
    for (const auto& [key, each] : FormsOfKeys()) {
        used.insert(key);
    }
    EXPECT_EQ(explained, used);
}

} // namespace
