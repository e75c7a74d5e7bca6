#ifndef DISKACCESS_REPORT_H
#define DISKACCESS_REPORT_H

/// @file report.h
/// What a command has to say, before anyone decides how it looks.

#include <cstdint>
#include <string>
#include <variant>
#include <vector>

#include "recordings/query.h"

namespace diskaccess {

/// An instant of true time, seconds since 1970.
struct Time {
    int64_t seconds = 0;
};
/// An instant of true time, microseconds since 1970.
struct Instant {
    int64_t micros = 0;
};
struct Date {
    int64_t day = 0; ///< days since 1970-01-01
};
struct Duration {
    uint64_t seconds = 0;
};
struct Bytes {
    uint64_t count = 0;
};
/// Bits, for example of event types.
struct Mask {
    uint64_t bits = 0;
};
using recordings::ChannelSet;
/// What is not known, or does not apply.
struct Nothing {};

/// A number that the user has a name for: the name in text, the number in machine formats.
struct Labelled {
    std::variant<uint64_t, Mask, ChannelSet> value;
    std::string text;
};

using Value = std::variant<Nothing, bool, uint64_t, std::string, Time, Instant, Date, Duration, Bytes, Mask,
                           ChannelSet, Labelled>;

/// What machine formats show of it.
inline Value NumberOf(const Labelled& labelled) {
    return std::visit([](const auto& number) { return Value(number); }, labelled.value);
}

/// One named value: @c key in machine formats, @c label in text (empty: not there).
struct Fact {
    std::string key;
    std::string label;
    Value value;
};

struct Column {
    std::string key;       ///< empty: text only
    std::string title;     ///< empty: machine formats only
    size_t leastWidth = 0; ///< characters in text
};

using Row = std::vector<Value>;

struct Table {
    std::string key;
    std::vector<Column> columns;
    std::vector<Row> rows;
    /// Text shows each row at once, so that the first decides how wide the columns are. Of other tables the first
    /// thousand rows do.
    bool live = false;
};

/// Lines for people: text only.
struct Prose {
    std::string text;
};

using Facts = std::vector<Fact>;
using Part = std::variant<Facts, Table, Prose>;

/// The answer to a command, in parts that are shown in their order. NDJSON and CSV, in which all lines are alike, show the
/// first one that is not prose.
struct Report {
    std::vector<Part> parts;
};

} // namespace diskaccess

#endif // DISKACCESS_REPORT_H
