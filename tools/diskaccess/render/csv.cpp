#include "render/csv.h"

#include <fmt/format.h>

#include "render/amounts.h"
#include "render/json.h"

namespace diskaccess {

namespace {

/// Text that a spreadsheet would take for a formula, and run, gets an apostrophe before it; so does text that begins with an
/// apostrophe, so that one can always be taken away.
std::string Harmless(const std::string& text) {
    const bool risky = !text.empty() && std::string("=+-@\t\r'").find(text.front()) != std::string::npos;
    return risky ? "'" + text : text;
}

/// Some spreadsheets divide cells by semicolons or tabs.
std::string Quoted(const std::string& text) {
    if (text.find_first_of(",;\t\"\r\n") == std::string::npos) {
        return text;
    }
    std::string quoted = "\"";
    for (const char c : text) {
        quoted += c == '"' ? "\"\"" : std::string(1, c);
    }
    return quoted + "\"";
}

std::string Cell(const Value& value, const TimeZone& zone) {
    if (const auto* const labelled = std::get_if<Labelled>(&value)) {
        return Cell(NumberOf(*labelled), zone);
    }
    if (const auto* const set = std::get_if<ChannelSet>(&value)) {
        return Quoted(ChannelSetText(*set));
    }
    const Json json = ValueJson(value, zone);
    return json.is_null() ? "" : json.is_string() ? Quoted(Harmless(json.get<std::string>())) : json.dump();
}

} // namespace

void CsvRenderer::WriteLine(const std::vector<std::string>& cells) const {
    m_write(fmt::format("{}\r\n", fmt::join(cells, ",")));
}

void CsvRenderer::FactsAlone(const Facts& facts) {
    std::vector<std::string> keys;
    std::vector<std::string> cells;
    for (const Fact& fact : facts) {
        keys.push_back(fact.key);
        cells.push_back(Cell(fact.value, m_zone));
    }
    WriteLine(keys);
    WriteLine(cells);
}

void CsvRenderer::TableAlone(const std::vector<Column>& columns) {
    std::vector<std::string> keys;
    for (const Column& column : columns) {
        m_shown.push_back(!column.key.empty());
        if (m_shown.back()) {
            keys.push_back(column.key);
        }
    }
    WriteLine(keys);
}

void CsvRenderer::RowAlone(const Row& row) {
    std::vector<std::string> cells;
    for (size_t c = 0; c < row.size(); ++c) {
        if (m_shown[c]) {
            cells.push_back(Cell(row[c], m_zone));
        }
    }
    WriteLine(cells);
}

} // namespace diskaccess
