#ifndef DISKACCESS_RENDERER_H
#define DISKACCESS_RENDERER_H

#include <functional>
#include <memory>
#include <string>

#include "render/report.h"
#include "render/time_zone.h"

namespace diskaccess {

enum class Format { Text, Json, Ndjson, Csv };

/// The version of what JSON, NDJSON and CSV contain; the schemas in docs/schema have it too.
constexpr int kSchemaVersion = 1;

/// Takes what is rendered, piece by piece.
using WriteText = std::function<void(const std::string&)>;

/// Writes the answer to a command in one format, part by part, because it may be longer than memory.
class Renderer {
public:
    virtual ~Renderer() = default;

    virtual void Begin(const std::string& command, const std::string& partition) = 0;
    virtual void ShowFacts(const Facts& facts) = 0;
    /// Begins a table; rows follow until it ends. Rows that are in @p table already are not looked at.
    virtual void BeginTable(const Table& table) = 0;
    virtual void ShowRow(const Row& row) = 0;
    virtual void EndTable() = 0;
    virtual void ShowProse(const Prose& prose) = 0;
    virtual void End() = 0;
};

/// @param zone, write must outlive the renderer
std::unique_ptr<Renderer> MakeRenderer(Format format, const TimeZone& zone, WriteText write);

/// Shows a table whose rows are all there.
void ShowTable(Renderer& renderer, const Table& table);

/// Shows all parts of a report.
void Show(Renderer& renderer, const Report& report);

} // namespace diskaccess

#endif // DISKACCESS_RENDERER_H
