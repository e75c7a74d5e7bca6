#ifndef DISKACCESS_TEXT_H
#define DISKACCESS_TEXT_H

#include <string>
#include <utility>

#include "render/renderer.h"

namespace diskaccess {

/// A value as people read it.
std::string CellText(const Value& value, const TimeZone& zone);
/// Whether it stands to the right of its column: numbers do, words do not.
bool RightAligned(const Value& value);

/// Tables, facts and prose for people, with a blank line between. What is empty is not there.
class TextRenderer : public Renderer {
public:
    TextRenderer(const TimeZone& zone, WriteText write) : m_zone(zone), m_write(std::move(write)) {}

    void Begin(const std::string& /*command*/, const std::string& /*partition*/) override {}
    void ShowFacts(const Facts& facts) override;
    void BeginTable(const Table& table) override;
    void ShowRow(const Row& row) override;
    void EndTable() override;
    void ShowProse(const Prose& prose) override;
    void End() override {}

private:
    /// A column that is shown, as wide as its cells so far.
    struct ShownColumn {
        size_t index;
        std::string title;
        size_t width;
        bool right = false; ///< cells stand to the right: numbers do, words do not
    };
    using Cells = std::vector<std::string>;

    void WritePart(const std::string& text);
    void Measure(const Row& row);
    Cells CellsOf(const Row& row) const;
    std::string Line(const Cells& cells) const;
    void WriteHeldRows();

    const TimeZone& m_zone;
    WriteText m_write;
    bool m_written = false; ///< something stands there already
    std::vector<ShownColumn> m_columns;
    std::vector<Cells> m_heldRows; ///< until it is known how wide the columns are
    size_t m_rowsToHold = 0;
    bool m_holding = false;
};

} // namespace diskaccess

#endif // DISKACCESS_TEXT_H
