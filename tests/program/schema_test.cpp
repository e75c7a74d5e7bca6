// The documents say the same thing the same way: a key has one form in all schemas, and is explained once.

#include <gtest/gtest.h>

#include <algorithm>
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

/// Whether a line has the keys and forms of a row of one of the document's tables, or those that the document begins with.
bool IsPartOf(const Json& line, const Json& document) {
    const auto isRow = [&line](const Json& table) {
        return table.contains("items") && table["items"].contains("properties") &&
               table["items"]["properties"] == line["properties"] &&
               table["items"]["required"] == line["required"];
    };
    const Json& parts = document["properties"];
    if (std::any_of(parts.begin(), parts.end(), isRow)) {
        return true;
    }
    for (const auto& [key, value] : line["properties"].items()) {
        if (!parts.contains(key) || parts[key] != value) {
            return false;
        }
    }
    return line["properties"].contains("schema_version");
}

TEST(Schemas, LinesAreRowsOfTheDocuments) {
    size_t lines = 0;
    for (const auto& file : std::filesystem::directory_iterator(SchemaDirectory())) {
        const std::string name = file.path().filename();
        if (name.find(".ndjson.") == std::string::npos) {
            continue;
        }
        const std::string command = name.substr(0, name.find_first_of(".-"));
        const Json line = Json::parse(ReadFile(file.path()));
        const Json document = Json::parse(ReadFile(SchemaDirectory() + "/" + command + ".schema.json"));
        EXPECT_TRUE(IsPartOf(line, document)) << name;
        EXPECT_EQ(line["additionalProperties"], false) << name;
        ++lines;
    }
    EXPECT_GT(lines, 10u);
}

TEST(Schemas, ColumnsHaveTheKeysOfTheLines) {
    size_t columns = 0;
    for (const auto& file : std::filesystem::directory_iterator(SchemaDirectory())) {
        const std::string name = file.path().filename();
        const size_t end = name.find(".csv-metadata.json");
        if (end == std::string::npos) {
            continue;
        }
        const std::string lines = name.rfind("info-empty", 0) == 0 ? "info" : name.substr(0, end);
        const Json line = Json::parse(ReadFile(SchemaDirectory() + "/" + lines + ".ndjson.schema.json"));
        const Json table = Json::parse(ReadFile(file.path()));
        EXPECT_EQ(table["url"], name.substr(0, end) + ".csv");
        for (const Json& column : table["tableSchema"]["columns"]) {
            EXPECT_TRUE(line["properties"].contains(column["name"])) << name << ": " << column["name"];
            EXPECT_EQ(column["titles"], column["name"]);
            EXPECT_NE(column["dc:description"], "") << name << ": " << column["name"];
            ++columns;
        }
    }
    EXPECT_GT(columns, 100u);
}

} // namespace
