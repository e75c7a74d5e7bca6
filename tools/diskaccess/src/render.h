#ifndef DISKACCESS_RENDER_H
#define DISKACCESS_RENDER_H

#include <string>

#include "report.h"
#include "time_zone.h"

namespace diskaccess {

enum class Format { Text, Json, Ndjson, Csv };

/// The version of what JSON, NDJSON and CSV contain; the schemas in docs/schema bear it too.
constexpr int kSchemaVersion = 1;

std::string Render(const Report& report, Format format, const TimeZone& zone);

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
