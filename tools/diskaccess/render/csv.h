#ifndef DISKACCESS_CSV_H
#define DISKACCESS_CSV_H

#include <utility>

#include "render/first_part.h"

namespace diskaccess {

/// A header and a line a row of the report's first table; of a report that begins with facts, a header and one line.
class CsvRenderer : public FirstPartRenderer {
public:
    CsvRenderer(const TimeZone& zone, WriteText write) : m_zone(zone), m_write(std::move(write)) {}

    void Begin(const std::string& /*command*/, const std::string& /*partition*/) override {}

private:
    void FactsAlone(const Facts& facts) override;
    void TableAlone(const std::vector<Column>& columns) override;
    void RowAlone(const Row& row) override;
    void WriteLine(const std::vector<std::string>& cells) const;

    const TimeZone& m_zone;
    std::vector<bool> m_shown; ///< whether each column is
    WriteText m_write;
};

} // namespace diskaccess

#endif // DISKACCESS_CSV_H
