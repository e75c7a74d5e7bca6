#include "insert.h"

#include <iterator>

namespace catalog {

namespace {

/// Rows a statement.
constexpr size_t kMany = 100;

std::string Values(size_t rows, size_t columns) {
    std::string text;
    for (size_t i = 0; i < rows * columns; ++i) {
        const bool first = i % columns == 0;
        text += (i == 0 ? "($" : first ? "), ($" : ", $") + std::to_string(i + 1);
    }
    return text + ")";
}

} // namespace

void Insert::Add(Row row) {
    m_cells.insert(m_cells.end(), std::make_move_iterator(row.begin()), std::make_move_iterator(row.end()));
    if (m_cells.size() == kMany * m_columns) {
        Finish();
    }
}

void Insert::Finish() {
    if (!m_cells.empty()) {
        m_database.Run("INSERT INTO " + m_into + " VALUES " + Values(m_cells.size() / m_columns, m_columns),
                       m_cells);
        m_cells.clear();
    }
}

} // namespace catalog
