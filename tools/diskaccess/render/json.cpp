#include "render/json.h"

#include <fmt/format.h>

#include <type_traits>

#include "render/amounts.h"
#include "render/overloaded.h"

namespace diskaccess {

namespace {

/// The largest number up to which a double, which is what many programs read numbers into, holds every whole one.
constexpr uint64_t kLargestExact = uint64_t{1} << 53;

Json NumberJson(uint64_t number) {
    return number <= kLargestExact ? Json(number) : Json(std::to_string(number));
}

Json NumbersOf(ChannelSet set) {
    Json numbers = Json::array();
    for (uint32_t channel = 0; channel < recordings::kChannels; ++channel) {
        if (set.Has(channel)) {
            numbers.push_back(channel);
        }
    }
    return numbers;
}

Json RowJson(const std::vector<Column>& columns, const Row& row, const TimeZone& zone) {
    Json object = Json::object();
    for (size_t c = 0; c < columns.size(); ++c) {
        if (!columns[c].key.empty()) {
            object[columns[c].key] = ValueJson(row[c], zone);
        }
    }
    return object;
}

/// What every document begins with.
Json HeaderJson(const std::string& command, const std::string& partition) {
    Json header = {{"schema_version", kSchemaVersion}, {"command", command}};
    if (!partition.empty()) {
        header["partition"] = partition;
    }
    return header;
}

} // namespace

Json ValueJson(const Value& value, const TimeZone& zone) {
    return std::visit(Overloaded{
                          [](Nothing) { return Json(nullptr); },
                          [](bool yes) { return Json(yes); },
                          [](uint64_t number) { return NumberJson(number); },
                          [](const std::string& text) { return Json(text); },
                          [&](Time time) { return Json(zone.Rfc3339(time.seconds)); },
                          [&](Instant time) { return Json(zone.Rfc3339OfMicros(time.micros)); },
                          [](Date date) { return Json(DateText(date)); },
                          [](Duration duration) { return NumberJson(duration.seconds); },
                          [](Bytes bytes) { return NumberJson(bytes.count); },
                          [](Mask mask) { return NumberJson(mask.bits); },
                          [](ChannelSet set) { return NumbersOf(set); },
                          [&](const Labelled& labelled) { return ValueJson(NumberOf(labelled), zone); },
                      },
                      value);
}

// ---- JSON

void JsonRenderer::Begin(const std::string& command, const std::string& partition) {
    const std::string header = HeaderJson(command, partition).dump(2);
    m_write(header.substr(0, header.size() - 2)); // without "\n}"
}

void JsonRenderer::ShowFacts(const Facts& facts) {
    for (const Fact& fact : facts) {
        m_write(fmt::format(",\n  \"{}\": {}", fact.key, ValueJson(fact.value, m_zone).dump()));
    }
}

void JsonRenderer::BeginTable(const Table& table) {
    m_columns = table.columns;
    m_firstRow = true;
    m_write(fmt::format(",\n  \"{}\": [", table.key));
}

void JsonRenderer::ShowRow(const Row& row) {
    m_write((m_firstRow ? "\n    " : ",\n    ") + RowJson(m_columns, row, m_zone).dump());
    m_firstRow = false;
}

void JsonRenderer::EndTable() {
    m_write(m_firstRow ? "]" : "\n  ]");
}

void JsonRenderer::End() {
    m_write("\n}\n");
}

// ---- NDJSON

void NdjsonRenderer::Begin(const std::string& command, const std::string& partition) {
    m_header = HeaderJson(command, partition);
}

void NdjsonRenderer::FactsAlone(const Facts& facts) {
    Json object = m_header;
    for (const Fact& fact : facts) {
        object[fact.key] = ValueJson(fact.value, m_zone);
    }
    m_write(object.dump() + "\n");
}

void NdjsonRenderer::TableAlone(const std::vector<Column>& columns) {
    m_columns = columns;
}

void NdjsonRenderer::RowAlone(const Row& row) {
    m_write(RowJson(m_columns, row, m_zone).dump() + "\n");
}

} // namespace diskaccess
