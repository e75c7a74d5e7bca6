#include "render/render.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstring>
#include <ctime>
#include <nlohmann/json.hpp>

namespace diskaccess {

namespace {

using Json = nlohmann::ordered_json;

template <typename... Cases>
struct Overloaded : Cases... {
    using Cases::operator()...;
};
template <typename... Cases>
Overloaded(Cases...) -> Overloaded<Cases...>;

std::string DateText(const Date& date) {
    const time_t time = time_t{date.day} * 86400; // the disk counts its days in UTC
    std::tm parts = {};
    gmtime_r(&time, &parts);
    return fmt::format("{:04}-{:02}-{:02}", parts.tm_year + 1900, parts.tm_mon + 1, parts.tm_mday);
}

std::vector<int> BitsOf(uint64_t bits) {
    std::vector<int> set;
    for (int bit = 0; bit < 64; ++bit) {
        if ((bits >> bit & 1) != 0) {
            set.push_back(bit);
        }
    }
    return set;
}

// ---- text

std::string CellText(const Value& value, const TimeZone& zone) {
    return std::visit(Overloaded{
                          [](Nothing) { return std::string("-"); },
                          [](bool yes) { return std::string(yes ? "yes" : "no"); },
                          [](uint64_t number) { return std::to_string(number); },
                          [](const std::string& text) { return text; },
                          [&](Time time) { return zone.Text(time.seconds); },
                          [&](Instant time) { return zone.TextOfMicros(time.micros); },
                          [&](TimeBound time) { return zone.Text(time.seconds) + "?"; },
                          [](Date date) { return DateText(date); },
                          [](Duration duration) { return DurationText(duration.seconds); },
                          [](Bytes bytes) { return BytesText(bytes.count); },
                          [](Mask mask) { return mask.bits == 0 ? "-" : fmt::format("0x{:x}", mask.bits); },
                          [](ChannelSet set) { return ChannelSetText(set.bits); },
                      },
                      value);
}

/// Whether a column's cells stand to the right: numbers do, words do not.
bool RightAligned(const Value& value) {
    return std::holds_alternative<uint64_t>(value) || std::holds_alternative<Duration>(value) ||
           std::holds_alternative<Bytes>(value) || std::holds_alternative<Mask>(value);
}

std::string TableText(const Table& table, const TimeZone& zone) {
    // Column by column: a width and a side come from all cells of a column.
    std::vector<std::string> lines(table.rows.size() + 1);
    for (size_t c = 0; c < table.columns.size(); ++c) {
        const std::string& title = table.columns[c].title;
        if (title.empty()) {
            continue;
        }
        std::vector<std::string> cells = {title};
        bool right = false;
        size_t width = title.size();
        for (const auto& row : table.rows) {
            cells.push_back(CellText(row[c], zone));
            width = std::max(width, cells.back().size());
            right = right || RightAligned(row[c]);
        }
        for (size_t i = 0; i < cells.size(); ++i) {
            lines[i] += lines[i].empty() ? "" : "  ";
            lines[i] +=
                right ? fmt::format("{:>{}}", cells[i], width) : fmt::format("{:<{}}", cells[i], width);
        }
    }
    std::string text;
    for (const std::string& line : lines) {
        text += line.substr(0, line.find_last_not_of(' ') + 1) + "\n";
    }
    return text;
}

std::string FactsText(const std::vector<Fact>& facts, const TimeZone& zone) {
    size_t width = 0;
    for (const Fact& fact : facts) {
        width = std::max(width, fact.label.size());
    }
    std::string text;
    for (const Fact& fact : facts) {
        if (!fact.label.empty()) {
            text += fmt::format("{:<{}}  {}\n", fact.label, width, CellText(fact.value, zone));
        }
    }
    return text;
}

std::string RenderText(const Report& report, const TimeZone& zone) {
    std::vector<std::string> parts;
    if (!report.text.empty()) {
        parts.push_back(report.text);
    } else {
        for (const Table& table : report.tables) {
            if (!table.rows.empty()) {
                parts.push_back(TableText(table, zone));
            }
        }
    }
    const std::string facts = FactsText(report.facts, zone);
    if (!facts.empty()) {
        // A command's facts come first where there is nothing else to see, and sum up where there is.
        parts.insert(report.tables.empty() || report.command == "info" ? parts.begin() : parts.end(), facts);
    }
    std::string lines;
    for (const std::string& line : report.lines) {
        lines += line + "\n";
    }
    if (!lines.empty()) {
        parts.push_back(lines);
    }
    std::string text;
    for (const std::string& part : parts) {
        text += (text.empty() ? "" : "\n") + part;
    }
    return text;
}

// ---- JSON

Json CellJson(const Value& value, const TimeZone& zone) {
    return std::visit(Overloaded{
                          [](Nothing) { return Json(nullptr); },
                          [](bool yes) { return Json(yes); },
                          [](uint64_t number) { return Json(number); },
                          [](const std::string& text) { return Json(text); },
                          [&](Time time) { return Json(zone.Rfc3339(time.seconds)); },
                          [&](Instant time) { return Json(zone.Rfc3339OfMicros(time.micros)); },
                          [&](TimeBound time) { return Json(zone.Rfc3339(time.seconds)); },
                          [](Date date) { return Json(DateText(date)); },
                          [](Duration duration) { return Json(duration.seconds); },
                          [](Bytes bytes) { return Json(bytes.count); },
                          [](Mask mask) { return Json(mask.bits); },
                          [](ChannelSet set) { return Json(BitsOf(set.bits)); },
                      },
                      value);
}

Json RowJson(const Table& table, const std::vector<Value>& row, const TimeZone& zone) {
    Json object = Json::object();
    for (size_t c = 0; c < table.columns.size(); ++c) {
        object[table.columns[c].key] = CellJson(row[c], zone);
    }
    return object;
}

Json HeaderJson(const Report& report) {
    return {{"schema_version", kSchemaVersion}, {"command", report.command}, {"partition", report.partition}};
}

void AddFacts(Json& object, const Report& report, const TimeZone& zone) {
    for (const Fact& fact : report.facts) {
        object[fact.key] = CellJson(fact.value, zone);
    }
}

std::string RenderJson(const Report& report, const TimeZone& zone) {
    Json document = HeaderJson(report);
    AddFacts(document, report, zone);
    for (const Table& table : report.tables) {
        Json rows = Json::array();
        for (const auto& row : table.rows) {
            rows.push_back(RowJson(table, row, zone));
        }
        document[table.key] = std::move(rows);
    }
    return document.dump(2) + "\n";
}

std::string RenderNdjson(const Report& report, const TimeZone& zone) {
    if (report.tables.empty() || report.command == "info") {
        Json object = HeaderJson(report);
        AddFacts(object, report, zone);
        return object.dump() + "\n";
    }
    std::string text;
    for (const auto& row : report.tables.front().rows) {
        text += RowJson(report.tables.front(), row, zone).dump() + "\n";
    }
    return text;
}

// ---- CSV

std::string Quoted(const std::string& text) {
    if (text.find_first_of(",\"\r\n") == std::string::npos) {
        return text;
    }
    std::string quoted = "\"";
    for (const char c : text) {
        quoted += c == '"' ? "\"\"" : std::string(1, c);
    }
    return quoted + "\"";
}

std::string CellCsv(const Value& value, const TimeZone& zone) {
    if (const auto* const set = std::get_if<ChannelSet>(&value)) {
        return Quoted(ChannelSetText(set->bits));
    }
    const Json json = CellJson(value, zone);
    return json.is_null() ? "" : json.is_string() ? Quoted(json.get<std::string>()) : json.dump();
}

std::string CsvLine(const std::vector<std::string>& cells) {
    return fmt::format("{}\r\n", fmt::join(cells, ","));
}

std::string RenderCsv(const Report& report, const TimeZone& zone) {
    std::vector<std::string> header;
    std::vector<std::string> cells;
    if (report.tables.empty() || report.command == "info") {
        for (const Fact& fact : report.facts) {
            header.push_back(fact.key);
            cells.push_back(CellCsv(fact.value, zone));
        }
        return CsvLine(header) + CsvLine(cells);
    }
    const Table& table = report.tables.front();
    for (const Column& column : table.columns) {
        header.push_back(column.key);
    }
    std::string text = CsvLine(header);
    for (const auto& row : table.rows) {
        cells.clear();
        for (const Value& value : row) {
            cells.push_back(CellCsv(value, zone));
        }
        text += CsvLine(cells);
    }
    return text;
}

/// Bytes of the UTF-8 character that begins at @p at, 0 if none does or if it is a control character.
size_t Utf8Length(const std::string& text, size_t at) {
    const auto byte = [&](size_t i) { return i < text.size() ? static_cast<uint8_t>(text[i]) : uint8_t{0}; };
    const uint8_t first = byte(at);
    if (first < 0x80) {
        return first >= 0x20 && first != 0x7F ? 1 : 0;
    }
    const size_t length = first >= 0xC2 && first < 0xE0   ? 2
                          : first >= 0xE0 && first < 0xF0 ? 3
                          : first >= 0xF0 && first < 0xF5 ? 4
                                                          : 0;
    for (size_t i = 1; i < length; ++i) {
        if ((byte(at + i) & 0xC0) != 0x80) {
            return 0;
        }
    }
    const uint8_t second = byte(at + 1);
    const bool overlong = (first == 0xE0 && second < 0xA0) || (first == 0xF0 && second < 0x90);
    const bool outside = (first == 0xED && second >= 0xA0) || (first == 0xF4 && second >= 0x90);
    const bool control = first == 0xC2 && second < 0xA0;
    return overlong || outside || control ? 0 : length;
}

} // namespace

std::string Render(const Report& report, Format format, const TimeZone& zone) {
    switch (format) {
    case Format::Json:
        return RenderJson(report, zone);
    case Format::Ndjson:
        return RenderNdjson(report, zone);
    case Format::Csv:
        return RenderCsv(report, zone);
    default:
        return RenderText(report, zone);
    }
}

TableStream::TableStream(Format format, const TimeZone& zone, Report report, std::vector<size_t> widths)
    : m_format(format), m_zone(zone), m_report(std::move(report)), m_widths(std::move(widths)) {}

const Table& TableStream::Shown() const {
    return m_report.tables.front();
}

std::string TableStream::Line(const std::vector<std::string>& cells, const std::vector<bool>& right) const {
    std::string line;
    for (size_t c = 0; c < cells.size(); ++c) {
        if (!Shown().columns[c].title.empty()) {
            line += line.empty() ? "" : "  ";
            line += right[c] ? fmt::format("{:>{}}", cells[c], m_widths[c])
                             : fmt::format("{:<{}}", cells[c], m_widths[c]);
        }
    }
    return line.substr(0, line.find_last_not_of(' ') + 1) + "\n";
}

std::string TableStream::Begin(const std::vector<bool>& right) const {
    std::vector<std::string> titles;
    std::vector<std::string> keys;
    for (const Column& column : Shown().columns) {
        titles.push_back(column.title);
        keys.push_back(column.key);
    }
    switch (m_format) {
    case Format::Text:
        return Line(titles, right);
    case Format::Csv:
        return CsvLine(keys);
    case Format::Json: {
        const std::string header = HeaderJson(m_report).dump(2);
        return fmt::format("{},\n  \"{}\": [", header.substr(0, header.size() - 2), Shown().key);
    }
    default:
        return "";
    }
}

std::string TableStream::Row(const std::vector<Value>& row) {
    std::vector<std::string> cells;
    std::vector<bool> right;
    switch (m_format) {
    case Format::Text:
        for (const Value& value : row) {
            cells.push_back(CellText(value, m_zone));
            right.push_back(RightAligned(value));
        }
        return (m_rows++ == 0 ? Begin(right) : "") + Line(cells, right);
    case Format::Csv:
        for (const Value& value : row) {
            cells.push_back(CellCsv(value, m_zone));
        }
        return (m_rows++ == 0 ? Begin(right) : "") + CsvLine(cells);
    case Format::Json:
        return (m_rows++ == 0 ? Begin(right) + "\n    " : ",\n    ") + RowJson(Shown(), row, m_zone).dump();
    default:
        ++m_rows;
        return RowJson(Shown(), row, m_zone).dump() + "\n";
    }
}

std::string TableStream::End(const std::vector<Fact>& facts) {
    switch (m_format) {
    case Format::Text:
        return (m_rows == 0 ? "" : "\n") + FactsText(facts, m_zone);
    case Format::Csv:
        return m_rows == 0 ? Begin({}) : "";
    case Format::Json: {
        std::string text = m_rows == 0 ? Begin({}) + "]" : "\n  ]";
        for (const Fact& fact : facts) {
            text += fmt::format(",\n  \"{}\": {}", fact.key, CellJson(fact.value, m_zone).dump());
        }
        return text + "\n}\n";
    }
    default:
        return "";
    }
}

std::string BytesText(uint64_t bytes) {
    if (bytes < 1024) {
        return fmt::format("{} B", bytes);
    }
    const char* const units[] = {"KiB", "MiB", "GiB", "TiB", "PiB", "EiB"};
    auto amount = static_cast<double>(bytes) / 1024;
    size_t unit = 0;
    while (amount >= 1023.95 && unit < 5) {
        amount /= 1024;
        ++unit;
    }
    return fmt::format("{:.1f} {}", amount, units[unit]);
}

std::string DurationText(uint64_t seconds) {
    const uint64_t hours = seconds / 3600;
    return hours == 0 ? fmt::format("{}:{:02}", seconds / 60, seconds % 60)
                      : fmt::format("{}:{:02}:{:02}", hours, seconds / 60 % 60, seconds % 60);
}

std::string ChannelSetText(uint32_t bits) {
    std::string text;
    for (uint32_t first = 0; first < 32; ++first) {
        if ((bits >> first & 1) == 0) {
            continue;
        }
        uint32_t last = first;
        while (last < 31 && (bits >> (last + 1) & 1) != 0) {
            ++last;
        }
        text += text.empty() ? "" : ",";
        text += last == first ? std::to_string(first) : fmt::format("{}-{}", first, last);
        first = last;
    }
    return text.empty() ? "none" : text;
}

std::string Printable(const std::string& text) {
    std::string printable;
    for (size_t at = 0; at < text.size();) {
        const size_t length = Utf8Length(text, at);
        if (length == 0) {
            printable += fmt::format("\\x{:02x}", static_cast<uint8_t>(text[at]));
            ++at;
        } else {
            printable += text.substr(at, length);
            at += length;
        }
    }
    return printable;
}

std::string FieldText(const char* field, size_t size) {
    return Printable(std::string(field, strnlen(field, size)));
}

} // namespace diskaccess
