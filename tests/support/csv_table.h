#ifndef TESTS_SUPPORT_CSV_TABLE_H
#define TESTS_SUPPORT_CSV_TABLE_H

#include <string>
#include <vector>

namespace test_support {

/// The rows of a CSV text, the headings first: cells by commas, in quotes where they must be, lines that end with CR and LF.
/// What is written in another way fails the test.
std::vector<std::vector<std::string>> CsvRows(const std::string& text);

/// Checks a CSV text against a table of docs/schema: its headings and their order, and every cell.
/// @param name of the table: "list"
/// @return what is wrong with it; empty when nothing is
std::string CsvErrors(const std::string& name, const std::string& text);

} // namespace test_support

#endif // TESTS_SUPPORT_CSV_TABLE_H
