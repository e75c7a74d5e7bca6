#include "render/timeline/text.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include <fmt/format.h>

namespace diskaccess::timeline {

namespace {

using recordings::ChannelCoverage;
using recordings::JourneyCoverage;
using recordings::Span;

constexpr size_t kLongestLabel = 16;
constexpr size_t kFewestCells = 10;
constexpr size_t kEighths = 8;

/// Characters of UTF-8 text.
size_t Length(const std::string& text) {
    return static_cast<size_t>(std::count_if(
        text.begin(), text.end(), [](char c) { return (static_cast<uint8_t>(c) & 0xC0) != 0x80; }));
}

/// Text of exactly so many characters.
std::string Fitted(const std::string& text, size_t width) {
    std::string fitted;
    size_t length = 0;
    for (const char c : text) {
        const bool begins = (static_cast<uint8_t>(c) & 0xC0) != 0x80;
        if (begins && length++ == width) {
            return fitted;
        }
        fitted += c;
    }
    return fitted + std::string(width - std::min(width, length), ' ');
}

/// What stands for something, in both kinds of terminals.
struct Glyph {
    const char* unicode;
    const char* ascii;
};
constexpr Glyph kCoverage[kEighths + 1] = {{" ", " "},      {"\u2581", "."}, {"\u2582", "."},
                                           {"\u2583", "-"}, {"\u2584", "-"}, {"\u2585", "="},
                                           {"\u2586", "="}, {"\u2587", "="}, {"\u2588", "#"}};
constexpr Glyph kGap = {"\u00B7", ":"};
constexpr Glyph kAlarm = {"\u2592", "~"};
constexpr Glyph kEvent = {"\u25B2", "^"};
constexpr Glyph kLoss = {"\u2716", "X"};
constexpr Glyph kNote = {"\u2022", "o"};
constexpr Glyph kNothing = {" ", " "};

enum Colour { kPlain = 0, kDim = 2, kRed = 31, kGreen = 32, kYellow = 33 };

/// One line of cells, each a glyph in a colour.
class Row {
public:
    explicit Row(size_t cells) : m_cells(cells) {}
    void Set(size_t cell, const Glyph& glyph, Colour colour) { m_cells[cell] = {glyph, colour}; }

    std::string Text(const TextStyle& style) const {
        size_t end = m_cells.size();
        while (end != 0 && m_cells[end - 1].glyph.ascii == std::string(" ")) {
            --end;
        }
        std::string text;
        Colour last = kPlain;
        for (size_t i = 0; i < end; ++i) {
            if (style.colour && m_cells[i].colour != last) {
                last = m_cells[i].colour;
                text += fmt::format("\x1b[{}m", static_cast<int>(last));
            }
            text += style.unicode ? m_cells[i].glyph.unicode : m_cells[i].glyph.ascii;
        }
        return last == kPlain ? text : text + "\x1b[0m";
    }

private:
    struct Cell {
        Glyph glyph = kNothing;
        Colour colour = kPlain;
    };
    std::vector<Cell> m_cells;
};

/// The time of a journey, divided into cells.
class Scale {
public:
    Scale(const recordings::Journey& journey, size_t cells)
        : m_start(journey.start), m_seconds(uint64_t{journey.end} - journey.start + 1), m_cells(cells) {}

    uint64_t Seconds() const { return m_seconds; }
    size_t Cells() const { return m_cells; }
    /// The cell of a second; that of the nearest end for one outside.
    size_t CellOf(int64_t second) const {
        const int64_t inside = std::clamp<int64_t>(second - m_start, 0, static_cast<int64_t>(m_seconds) - 1);
        return static_cast<size_t>(static_cast<uint64_t>(inside) * m_cells / m_seconds);
    }
    /// How much of each cell is covered, in parts of a cell.
    std::vector<double> Covered(const std::vector<Span>& spans) const {
        std::vector<double> covered(m_cells);
        const double perSecond = static_cast<double>(m_cells) / static_cast<double>(m_seconds);
        for (const Span& span : spans) {
            const double from = static_cast<double>(span.start - m_start) * perSecond;
            const double to = static_cast<double>(uint64_t{span.end} - m_start + 1) * perSecond;
            for (auto cell = static_cast<size_t>(from); cell < m_cells && static_cast<double>(cell) < to;
                 ++cell) {
                const auto left = static_cast<double>(cell);
                covered[cell] += std::min(to, left + 1) - std::max(from, left);
            }
        }
        return covered;
    }

private:
    uint32_t m_start;
    uint64_t m_seconds;
    size_t m_cells;
};

/// Full is only what is wholly covered, and empty what is not at all.
size_t EighthsOf(double covered) {
    constexpr double kAlmost = 1e-6;
    if (covered <= kAlmost) {
        return 0;
    }
    if (covered >= 1 - kAlmost) {
        return kEighths;
    }
    return std::clamp<size_t>(static_cast<size_t>(std::lround(covered * kEighths)), 1, kEighths - 1);
}

Row ChannelRow(const ChannelCoverage& channel, const Scale& scale) {
    Row row(scale.Cells());
    const std::vector<double> covered = scale.Covered(channel.recorded);
    const size_t first = scale.CellOf(channel.recorded.front().start);
    const size_t last = scale.CellOf(channel.recorded.back().end);
    for (size_t cell = 0; cell < covered.size(); ++cell) {
        const size_t eighths = EighthsOf(covered[cell]);
        if (eighths != 0) {
            row.Set(cell, kCoverage[eighths], kGreen);
        } else if (first < cell && cell < last) {
            row.Set(cell, kGap, kDim);
        }
    }
    return row;
}

void Fill(Row& row, const Scale& scale, const Span& span, const Glyph& glyph, Colour colour) {
    for (size_t cell = scale.CellOf(span.start); cell <= scale.CellOf(span.end); ++cell) {
        row.Set(cell, glyph, colour);
    }
}

class Strip {
public:
    Strip(const JourneyCoverage& journey, const Labels& labels, const TextStyle& style)
        : m_journey(journey), m_labels(labels), m_style(style), m_labelWidth(LabelWidth()),
          m_scale(journey.journey,
                  std::max(kFewestCells, style.width - std::min(style.width, m_labelWidth + 1))) {}

    std::string Text() {
        m_text = JourneyText(m_labels, m_journey.journey) + "\n" + Axis();
        for (const ChannelCoverage& channel : m_journey.channels) {
            Add(m_labels.channel(channel.channel), ChannelRow(channel, m_scale));
        }
        AddAlarms();
        AddEvents();
        AddDamage();
        return m_text;
    }

private:
    size_t LabelWidth() const {
        size_t width = std::string("alarms").size();
        for (const ChannelCoverage& channel : m_journey.channels) {
            width = std::max(width, Length(m_labels.channel(channel.channel)));
        }
        return std::min(width, kLongestLabel);
    }

    void Add(const std::string& label, const Row& row) {
        m_text += Fitted(label, m_labelWidth) + " " + row.Text(m_style) + "\n";
    }

    /// Times, each above the cell that it begins with.
    std::string Axis() const {
        constexpr size_t kApart = 11; // a date, and a blank
        const uint32_t step = AxisStep(m_scale.Seconds(), std::max<size_t>(1, m_scale.Cells() / kApart));
        std::string line;
        for (int64_t second = FirstMark(m_labels, m_journey.journey.start, step);
             second <= m_journey.journey.end; second += step) {
            const std::string text = AxisText(m_labels, static_cast<uint32_t>(second), step);
            const size_t at = m_scale.CellOf(second);
            if (at >= line.size() && at + text.size() <= m_scale.Cells()) {
                line += std::string(at - line.size(), ' ') + text + " ";
            }
        }
        line.erase(line.find_last_not_of(' ') + 1);
        return line.empty() ? "" : std::string(m_labelWidth + 1, ' ') + line + "\n";
    }

    void AddAlarms() {
        if (!m_journey.alarms.empty()) {
            Row row(m_scale.Cells());
            for (const recordings::AlarmSpan& alarm : m_journey.alarms) {
                Fill(row, m_scale, alarm.time, kAlarm, kYellow);
            }
            Add("alarms", row);
        }
    }

    void AddEvents() {
        if (!m_journey.events.empty()) {
            Row row(m_scale.Cells());
            for (const recordings::Event& event : m_journey.events) {
                row.Set(m_scale.CellOf(event.time), kEvent, kYellow);
            }
            Add("events", row);
        }
    }

    void AddDamage() {
        if (!m_journey.damage.empty()) {
            Row row(m_scale.Cells());
            for (const auto severity : {recordings::Severity::Note, recordings::Severity::Loss}) {
                for (const recordings::Damage& damage : m_journey.damage) {
                    if (damage.severity == severity) {
                        const bool loss = severity == recordings::Severity::Loss;
                        Fill(row, m_scale, damage.time, loss ? kLoss : kNote, loss ? kRed : kPlain);
                    }
                }
            }
            Add("damage", row);
        }
    }

    const JourneyCoverage& m_journey;
    const Labels& m_labels;
    const TextStyle& m_style;
    size_t m_labelWidth;
    Scale m_scale;
    std::string m_text;
};

} // namespace

std::string Text(const recordings::Coverage& coverage, const Labels& labels, const TextStyle& style) {
    std::string text;
    for (const JourneyCoverage& journey : coverage.journeys) {
        text += (text.empty() ? "" : "\n") + Strip(journey, labels, style).Text();
    }
    return text;
}

} // namespace diskaccess::timeline
