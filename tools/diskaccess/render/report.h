#ifndef DISKACCESS_REPORT_H
#define DISKACCESS_REPORT_H

/// @file report.h
/// What a command has to say, before anyone decides how it looks.

#include <cstdint>
#include <string>
#include <utility>
#include <variant>
#include <vector>

namespace diskaccess {

/// An instant of true time, seconds since 1970.
struct Time {
    int64_t seconds = 0;
};
/// An instant of true time, microseconds since 1970.
struct Instant {
    int64_t micros = 0;
};
/// The end of a record of which only an upper bound is known.
struct TimeBound {
    int64_t seconds = 0;
};
/// A UTC date.
struct Date {
    uint32_t day = 0; ///< days since 1970-01-01
};
struct Duration {
    uint64_t seconds = 0;
};
struct Bytes {
    uint64_t count = 0;
};
/// Alarm or event type bits.
struct Mask {
    uint64_t bits = 0;
};
struct ChannelSet {
    uint32_t bits = 0;
};
/// What is not known, or does not apply.
struct Nothing {};

using Value = std::variant<Nothing, bool, uint64_t, std::string, Time, Instant, TimeBound, Date, Duration,
                           Bytes, Mask, ChannelSet>;

/// One named value: @c key in machine formats, @c label in text (empty: not there).
struct Fact {
    std::string key;
    std::string label;
    Value value;
};

struct Column {
    std::string key;
    std::string title; ///< empty: machine formats only
};

struct Table {
    std::string key;
    std::vector<Column> columns;
    std::vector<std::vector<Value>> rows;
};

/// The answer to a command.
struct Report {
    std::string command;
    std::string partition;
    std::vector<Fact> facts;
    std::vector<Table> tables;      ///< the first is what the command is about
    std::vector<std::string> lines; ///< text only: what stands below the tables
    std::string text;               ///< text only: stands in place of the tables, for what is no table
};

} // namespace diskaccess

#endif // DISKACCESS_REPORT_H
