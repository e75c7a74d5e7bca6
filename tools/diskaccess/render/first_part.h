#ifndef DISKACCESS_FIRST_PART_H
#define DISKACCESS_FIRST_PART_H

#include "render/renderer.h"

namespace diskaccess {

/// Shows the first part of a report, prose left aside: for formats in which all lines are alike.
class FirstPartRenderer : public Renderer {
public:
    void ShowFacts(const Facts& facts) final {
        if (m_state == State::Nothing) {
            FactsAlone(facts);
            m_state = State::Done;
        }
    }
    void BeginTable(const Table& table) final {
        if (m_state == State::Nothing) {
            TableAlone(table.columns);
            m_state = State::InTable;
        }
    }
    void ShowRow(const Row& row) final {
        if (m_state == State::InTable) {
            RowAlone(row);
        }
    }
    void EndTable() final { m_state = State::Done; }
    void ShowProse(const Prose& /*prose*/) final {}
    void End() final {}

private:
    virtual void FactsAlone(const Facts& facts) = 0;
    virtual void TableAlone(const std::vector<Column>& columns) = 0;
    virtual void RowAlone(const Row& row) = 0;

    enum class State { Nothing, InTable, Done };
    State m_state = State::Nothing;
};

} // namespace diskaccess

#endif // DISKACCESS_FIRST_PART_H
