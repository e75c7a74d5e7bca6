#ifndef DISKACCESS_RANGE_LIST_H
#define DISKACCESS_RANGE_LIST_H

/// @file range_list.h
/// Lists of time ranges, as CSV files that people make with a spreadsheet.

#include <cstddef>
#include <string>
#include <vector>

namespace diskaccess {

/// A row of such a list, as typed. Empty: not given.
struct ListedRange {
    size_t row = 0; ///< number of its line; the first is 1
    std::string from;
    std::string to;
    std::string channels;
    std::string file;
    std::string caseName;
    std::string note;
};

/// "FILE: row N", for messages.
std::string RowText(const std::string& file, size_t row);

/// Reads the bytes of a list: UTF-8, with a first row that names the columns. Anybody may have written it.
/// @param file its name, for messages
/// @throws Failure that names the row
std::vector<ListedRange> ParseRangeList(const std::string& file, const std::string& bytes);

/// Reads a list from a file.
/// @throws Failure
std::vector<ListedRange> ReadRangeList(const std::string& file);

} // namespace diskaccess

#endif // DISKACCESS_RANGE_LIST_H
