#include "cli/range_list.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <utility>

#include <fmt/format.h>

#include "cli/failure.h"
#include "render/printable.h"

namespace diskaccess {

namespace {

constexpr size_t kMostRows = 100000; // beside that of the columns' names
constexpr size_t kLongestRow = 64 << 10;
constexpr uintmax_t kLargestFile = 64 << 20;
const char* const kByteOrderMark = "\xEF\xBB\xBF"; // spreadsheets write it before UTF-8

using Member = std::string ListedRange::*;

constexpr std::array<std::pair<const char*, Member>, 6> kColumns = {{{"from", &ListedRange::from},
                                                                     {"to", &ListedRange::to},
                                                                     {"channels", &ListedRange::channels},
                                                                     {"file", &ListedRange::file},
                                                                     {"case", &ListedRange::caseName},
                                                                     {"note", &ListedRange::note}}};

bool IsControl(unsigned char c) {
    return (c < ' ' && c != '\t') || c == 0x7F;
}

class Parser {
public:
    Parser(const std::string& file, const std::string& bytes) : m_file(file), m_bytes(bytes) {}

    std::vector<ListedRange> Run() {
        size_t begin = m_bytes.rfind(kByteOrderMark, 0) == 0 ? std::string(kByteOrderMark).size() : 0;
        while (begin < m_bytes.size()) {
            const size_t end = std::min(m_bytes.find('\n', begin), m_bytes.size());
            ++m_row;
            TakeLine(begin, end);
            begin = end + 1;
        }
        if (m_columns.empty()) {
            throw Failure(m_file + ": is empty; its first row names the columns: from, to, channels, file, "
                                   "case, note");
        }
        if (m_ranges.empty()) {
            throw Failure(m_file + ": names columns, and no range; give each range a row");
        }
        return std::move(m_ranges);
    }

private:
    [[noreturn]] void Refuse(const std::string& why) const {
        throw Failure(RowText(m_file, m_row) + ": " + why);
    }

    void TakeLine(size_t begin, size_t end) {
        const size_t size = end - begin;
        const bool marked = size != 0 && m_bytes[end - 1] == '\r';
        if (size > kLongestRow) {
            Refuse("is longer than 64 KiB; a list has short rows");
        }
        const std::string line = m_bytes.substr(begin, marked ? size - 1 : size);
        if (std::any_of(line.begin(), line.end(), IsControl)) {
            Refuse("holds a zero byte or another control character; save the list as CSV in UTF-8");
        }
        if (!IsText(line)) {
            Refuse("is not UTF-8; save the list as CSV in UTF-8");
        }
        if (line.empty()) {
            return;
        }
        const std::vector<std::string> cells = CellsOf(line);
        if (m_columns.empty()) {
            ReadColumns(cells);
        } else {
            ReadRange(cells);
        }
    }

    std::vector<std::string> CellsOf(const std::string& line) const {
        std::vector<std::string> cells;
        size_t place = 0;
        do {
            const bool quoted = line.compare(place, 1, "\"") == 0;
            cells.push_back(quoted ? QuotedCell(line, place) : PlainCell(line, place));
        } while (place++ < line.size()); // each ends at a comma, or at the end
        return cells;
    }

    /// @param place of its first character; then of the comma after it, or the end
    std::string PlainCell(const std::string& line, size_t& place) const {
        const size_t begin = place;
        place = std::min(line.find(',', begin), line.size());
        std::string cell = line.substr(begin, place - begin);
        if (cell.find('"') != std::string::npos) {
            Refuse("has a quotation mark in a cell that does not begin with one; put the cell in quotation "
                   "marks, and double those in it");
        }
        return cell;
    }

    /// @param place as above
    std::string QuotedCell(const std::string& line, size_t& place) const {
        std::string cell;
        for (++place; place < line.size(); ++place) {
            const bool isMark = line[place] == '"';
            if (isMark && line.compare(place + 1, 1, "\"") != 0) {
                ++place;
                if (place < line.size() && line[place] != ',') {
                    Refuse("has text after a closing quotation mark; double the quotation marks inside a "
                           "cell");
                }
                return cell;
            }
            cell += line[place];
            place += isMark ? 1 : 0; // of two, one is meant
        }
        Refuse("has a cell whose quotation mark is not closed; cells end in the row they begin in");
    }

    void ReadColumns(const std::vector<std::string>& names) {
        for (const std::string& name : names) {
            const auto* const column = std::find_if(
                kColumns.begin(), kColumns.end(), [&name](const auto& known) { return name == known.first; });
            if (column == kColumns.end()) {
                Refuse("'" + name +
                       "' is no column; commas part these: from, to, channels, file, case, note");
            }
            if (std::find(m_columns.begin(), m_columns.end(), column->second) != m_columns.end()) {
                Refuse("names the column '" + name + "' twice");
            }
            m_columns.push_back(column->second);
        }
        for (size_t needed = 0; needed < 2; ++needed) {
            if (std::find(m_columns.begin(), m_columns.end(), kColumns[needed].second) == m_columns.end()) {
                Refuse(
                    fmt::format("names no column '{}'; a range needs from and to", kColumns[needed].first));
            }
        }
    }

    void ReadRange(const std::vector<std::string>& cells) {
        if (cells.size() != m_columns.size()) {
            Refuse(
                fmt::format("has {} cell{} where the first row names {} columns; put what holds a comma in "
                            "quotation marks",
                            cells.size(), cells.size() == 1 ? "" : "s", m_columns.size()));
        }
        if (m_ranges.size() == kMostRows) {
            Refuse(fmt::format("is one more than the {} that a list may have", kMostRows));
        }
        ListedRange range;
        range.row = m_row;
        for (size_t c = 0; c < cells.size(); ++c) {
            range.*m_columns[c] = cells[c];
        }
        for (size_t needed = 0; needed < 2; ++needed) {
            if ((range.*kColumns[needed].second).empty()) {
                Refuse(fmt::format("says no '{}'", kColumns[needed].first));
            }
        }
        m_ranges.push_back(std::move(range));
    }

    const std::string& m_file;
    const std::string& m_bytes;
    size_t m_row = 0;
    std::vector<Member> m_columns; ///< empty: not read yet
    std::vector<ListedRange> m_ranges;
};

} // namespace

std::string RowText(const std::string& file, size_t row) {
    return fmt::format("{}: row {}", file, row);
}

std::vector<ListedRange> ParseRangeList(const std::string& file, const std::string& bytes) {
    return Parser(file, bytes).Run();
}

std::vector<ListedRange> ReadRangeList(const std::string& file) {
    std::error_code error;
    if (!std::filesystem::is_regular_file(file, error)) {
        throw Failure(file + ": is no file that could be read; give a list of ranges with --list");
    }
    const uintmax_t size = std::filesystem::file_size(file, error);
    if (!error && size > kLargestFile) {
        throw Failure(file + ": is no list of ranges: it is larger than 64 MiB");
    }
    std::string bytes(error ? 0 : static_cast<size_t>(size), '\0');
    std::ifstream input(file, std::ios::binary);
    input.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    if (error || !input) {
        throw Failure(file + ": cannot be read; give a list of ranges with --list");
    }
    return ParseRangeList(file, bytes);
}

} // namespace diskaccess
