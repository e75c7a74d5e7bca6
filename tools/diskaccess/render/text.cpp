#include "render/text.h"

#include <fmt/format.h>

#include <algorithm>

#include "render/amounts.h"
#include "render/overloaded.h"

namespace diskaccess {

namespace {

/// Rows that decide how wide the columns of a table are. Later ones may stick out.
constexpr size_t kMeasuredRows = 1000;

} // namespace

std::string CellText(const Value& value, const TimeZone& zone) {
    return std::visit(Overloaded{
                          [](Nothing) { return std::string("-"); },
                          [](bool yes) { return std::string(yes ? "yes" : "no"); },
                          [](uint64_t number) { return std::to_string(number); },
                          [](const std::string& text) { return text; },
                          [&](Time time) { return zone.Text(time.seconds); },
                          [&](Instant time) { return zone.TextOfMicros(time.micros); },
                          [](Date date) { return DateText(date); },
                          [](Duration duration) { return DurationText(duration.seconds); },
                          [](Bytes bytes) { return BytesText(bytes.count); },
                          [](Mask mask) { return mask.bits == 0 ? "-" : fmt::format("0x{:x}", mask.bits); },
                          [](ChannelSet set) { return ChannelSetText(set); },
                          [](const Labelled& labelled) { return labelled.text; },
                      },
                      value);
}

bool RightAligned(const Value& value) {
    return std::holds_alternative<uint64_t>(value) || std::holds_alternative<Duration>(value) ||
           std::holds_alternative<Bytes>(value) || std::holds_alternative<Mask>(value);
}

/// Writes a part, or its beginning, apart from the one before it.
void TextRenderer::WritePart(const std::string& text) {
    if (!text.empty()) {
        m_write(m_written ? "\n" + text : text);
        m_written = true;
    }
}

void TextRenderer::ShowFacts(const Facts& facts) {
    size_t width = 0;
    for (const Fact& fact : facts) {
        width = std::max(width, fact.label.size());
    }
    std::string text;
    for (const Fact& fact : facts) {
        if (!fact.label.empty()) {
            text += fmt::format("{:<{}}  {}\n", fact.label, width, CellText(fact.value, m_zone));
        }
    }
    WritePart(text);
}

void TextRenderer::ShowProse(const Prose& prose) {
    WritePart(prose.text);
}

void TextRenderer::BeginTable(const Table& table) {
    m_columns.clear();
    for (size_t i = 0; i < table.columns.size(); ++i) {
        const Column& column = table.columns[i];
        if (!column.title.empty()) {
            m_columns.push_back({i, column.title, std::max(column.leastWidth, column.title.size())});
        }
    }
    m_rowsToHold = table.live ? 1 : kMeasuredRows;
    m_holding = true;
}

void TextRenderer::ShowRow(const Row& row) {
    if (m_columns.empty()) {
        return;
    }
    if (!m_holding) {
        m_write(Line(CellsOf(row)));
        return;
    }
    Measure(row);
    if (m_heldRows.size() == m_rowsToHold) {
        WriteHeldRows();
    }
}

void TextRenderer::EndTable() {
    if (!m_heldRows.empty()) {
        WriteHeldRows();
    }
}

TextRenderer::Cells TextRenderer::CellsOf(const Row& row) const {
    Cells cells;
    for (const ShownColumn& column : m_columns) {
        cells.push_back(CellText(row[column.index], m_zone));
    }
    return cells;
}

void TextRenderer::Measure(const Row& row) {
    Cells cells = CellsOf(row);
    for (size_t i = 0; i < cells.size(); ++i) {
        ShownColumn& column = m_columns[i];
        column.width = std::max(column.width, cells[i].size());
        column.right = column.right || RightAligned(row[column.index]);
    }
    m_heldRows.push_back(std::move(cells));
}

std::string TextRenderer::Line(const Cells& cells) const {
    std::string line;
    for (size_t i = 0; i < cells.size(); ++i) {
        const ShownColumn& column = m_columns[i];
        line += i == 0 ? "" : "  ";
        line += column.right ? fmt::format("{:>{}}", cells[i], column.width)
                             : fmt::format("{:<{}}", cells[i], column.width);
    }
    return line.substr(0, line.find_last_not_of(' ') + 1) + "\n";
}

void TextRenderer::WriteHeldRows() {
    Cells titles;
    for (const ShownColumn& column : m_columns) {
        titles.push_back(column.title);
    }
    std::string text = Line(titles);
    for (const Cells& cells : m_heldRows) {
        text += Line(cells);
    }
    WritePart(text);
    m_heldRows.clear();
    m_holding = false;
}

} // namespace diskaccess
