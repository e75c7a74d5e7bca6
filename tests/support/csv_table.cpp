#include "support/csv_table.h"

#include <gtest/gtest.h>

#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <regex>

#include "support/schema.h"

namespace test_support {

namespace {

using Json = nlohmann::json;

/// How a value of each type is written.
const std::map<std::string, std::string>& FormOfTypes() {
    static const std::map<std::string, std::string> forms = {
        {"nonNegativeInteger", "[0-9]+"},
        {"boolean", "true|false"},
        {"date", "[0-9]{4}-[0-9]{2}-[0-9]{2}"},
        {"dateTimeStamp", "[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}([.][0-9]+)?"
                          "(Z|[+-][0-9]{2}:[0-9]{2})"},
        {"string", "[^]*"}};
    return forms;
}

bool Fits(const Json& column, const std::string& cell) {
    if (cell.empty()) {
        return !column["required"].get<bool>();
    }
    const Json& type = column["datatype"];
    const std::string base = type.is_object() ? type["base"] : type;
    if (!std::regex_match(cell, std::regex(FormOfTypes().at(base)))) {
        return false;
    }
    if (type.contains("format") && !std::regex_match(cell, std::regex(type["format"].get<std::string>()))) {
        return false;
    }
    return !type.contains("maximum") || std::stoull(cell) <= type["maximum"].get<uint64_t>();
}

/// Reads the cells of a CSV text, one after the other.
class CsvReader {
public:
    explicit CsvReader(const std::string& text) : m_text(text) {}

    bool AtEnd() const { return m_at >= m_text.size(); }

    std::vector<std::string> Row() {
        std::vector<std::string> cells = {Cell()};
        while (!AtEnd() && m_text[m_at] == ',') {
            ++m_at;
            cells.push_back(Cell());
        }
        EXPECT_EQ(m_text.substr(m_at, 2), "\r\n") << "after " << m_at << " bytes";
        m_at += 2;
        return cells;
    }

private:
    std::string Cell() {
        if (AtEnd() || m_text[m_at] != '"') {
            const size_t end = std::min(m_text.find_first_of(",\"\r\n", m_at), m_text.size());
            std::string cell = m_text.substr(m_at, end - m_at);
            m_at = end;
            return cell;
        }
        std::string cell;
        for (++m_at; !AtEnd(); ++m_at) {
            if (m_text[m_at] == '"' && (++m_at >= m_text.size() || m_text[m_at] != '"')) {
                return cell;
            }
            cell += m_text[m_at];
        }
        ADD_FAILURE() << "a quote is never closed";
        return cell;
    }

    const std::string& m_text;
    size_t m_at = 0;
};

} // namespace

std::vector<std::vector<std::string>> CsvRows(const std::string& text) {
    std::vector<std::vector<std::string>> rows;
    for (CsvReader reader(text); !reader.AtEnd();) {
        rows.push_back(reader.Row());
    }
    return rows;
}

std::string CsvErrors(const std::string& name, const std::string& text) {
    std::ifstream file(SchemaDirectory() + "/" + name + ".csv-metadata.json");
    EXPECT_TRUE(file) << name;
    const Json columns = Json::parse(file)["tableSchema"]["columns"];
    std::vector<std::string> headings;
    for (const Json& column : columns) {
        headings.push_back(column["titles"]);
    }
    std::vector<std::vector<std::string>> rows = CsvRows(text);
    if (rows.empty() || rows.front() != headings) {
        return "other headings: " + text.substr(0, text.find('\r')) + "\n";
    }
    std::string errors;
    for (size_t r = 1; r < rows.size(); ++r) {
        if (rows[r].size() != headings.size()) {
            errors += "row " + std::to_string(r) + " has " + std::to_string(rows[r].size()) + " cells\n";
            continue;
        }
        for (size_t c = 0; c < headings.size(); ++c) {
            errors += Fits(columns[c], rows[r][c]) ? "" : headings[c] + ": '" + rows[r][c] + "'\n";
        }
    }
    return errors;
}

} // namespace test_support
