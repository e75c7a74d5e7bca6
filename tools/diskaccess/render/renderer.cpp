#include "render/renderer.h"

#include <utility>

#include "render/csv.h"
#include "render/json.h"
#include "render/text.h"

namespace diskaccess {

std::unique_ptr<Renderer> MakeRenderer(Format format, const TimeZone& zone, WriteText write) {
    switch (format) {
    case Format::Json:
        return std::make_unique<JsonRenderer>(zone, std::move(write));
    case Format::Ndjson:
        return std::make_unique<NdjsonRenderer>(zone, std::move(write));
    case Format::Csv:
        return std::make_unique<CsvRenderer>(zone, std::move(write));
    default:
        return std::make_unique<TextRenderer>(zone, std::move(write));
    }
}

void ShowTable(Renderer& renderer, const Table& table) {
    renderer.BeginTable(table);
    for (const Row& row : table.rows) {
        renderer.ShowRow(row);
    }
    renderer.EndTable();
}

void Show(Renderer& renderer, const Report& report) {
    for (const Part& part : report.parts) {
        if (const auto* const facts = std::get_if<Facts>(&part)) {
            renderer.ShowFacts(*facts);
        } else if (const auto* const table = std::get_if<Table>(&part)) {
            ShowTable(renderer, *table);
        } else {
            renderer.ShowProse(std::get<Prose>(part));
        }
    }
}

} // namespace diskaccess
