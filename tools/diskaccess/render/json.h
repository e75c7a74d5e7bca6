#ifndef DISKACCESS_JSON_H
#define DISKACCESS_JSON_H

#include <nlohmann/json.hpp>
#include <utility>

#include "render/first_part.h"

namespace diskaccess {

using Json = nlohmann::ordered_json;

/// A value as machine formats have it. Numbers that a double cannot hold exactly are text.
Json ValueJson(const Value& value, const TimeZone& zone);

/// One JSON document, with a line for each row of its tables.
class JsonRenderer : public Renderer {
public:
    JsonRenderer(const TimeZone& zone, WriteText write) : m_zone(zone), m_write(std::move(write)) {}

    void Begin(const std::string& command, const std::string& partition) override;
    void ShowFacts(const Facts& facts) override;
    void BeginTable(const Table& table) override;
    void ShowRow(const Row& row) override;
    void EndTable() override;
    void ShowProse(const Prose& /*prose*/) override {}
    void End() override;

private:
    const TimeZone& m_zone;
    WriteText m_write;
    std::vector<Column> m_columns;
    bool m_firstRow = true;
};

/// A line a row of the report's first table; of a report that begins with facts, one line with them.
class NdjsonRenderer : public FirstPartRenderer {
public:
    NdjsonRenderer(const TimeZone& zone, WriteText write) : m_zone(zone), m_write(std::move(write)) {}

    void Begin(const std::string& command, const std::string& partition) override;

private:
    void FactsAlone(const Facts& facts) override;
    void TableAlone(const std::vector<Column>& columns) override;
    void RowAlone(const Row& row) override;

    const TimeZone& m_zone;
    WriteText m_write;
    Json m_header;
    std::vector<Column> m_columns;
};

} // namespace diskaccess

#endif // DISKACCESS_JSON_H
