#ifndef DISKACCESS_RENDER_H
#define DISKACCESS_RENDER_H

#include <string>

#include "render/report.h"
#include "render/time_zone.h"

namespace diskaccess {

enum class Format { Text, Json, Ndjson, Csv };

/// The version of what JSON, NDJSON and CSV contain; the schemas in docs/schema bear it too.
constexpr int kSchemaVersion = 1;

std::string Render(const Report& report, Format format, const TimeZone& zone);

/// A table that is written row by row, because it may be longer than memory.
class TableStream {
public:
    /// @param report the command, the partition and one table without rows
    /// @param widths of the columns in text
    TableStream(Format format, const TimeZone& zone, Report report, std::vector<size_t> widths);

    std::string Row(const std::vector<Value>& row);
    /// @param facts what the rows add up to
    std::string End(const std::vector<Fact>& facts);

private:
    const Table& Shown() const;
    std::string Begin(const std::vector<bool>& right) const;
    std::string Line(const std::vector<std::string>& cells, const std::vector<bool>& right) const;

    Format m_format;
    const TimeZone& m_zone;
    Report m_report;
    std::vector<size_t> m_widths;
    uint64_t m_rows = 0;
};

/// "1.5 MiB"
std::string BytesText(uint64_t bytes);
/// "1:02:03", "2:03"
std::string DurationText(uint64_t seconds);
/// "0,2-4"; "none" for the empty set
std::string ChannelSetText(uint32_t bits);

/// Text from a disk with everything escaped that a terminal might obey or that is no UTF-8: "\x1b".
std::string Printable(const std::string& text);
/// A text field of a disk structure, which need not be terminated.
std::string FieldText(const char* field, size_t size);

} // namespace diskaccess

#endif // DISKACCESS_RENDER_H
