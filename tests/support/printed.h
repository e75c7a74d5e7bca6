#ifndef TESTS_SUPPORT_PRINTED_H
#define TESTS_SUPPORT_PRINTED_H

#include <functional>
#include <string>

namespace test_support {

/// Runs @p action and gives what the library said on this thread meanwhile.
std::string Printed(const std::function<void()>& action);

/// The same, with the line number of each "NAME : LINE, Failed", "NAME, LINE : fail" and "NAME, LINE : chn = N ,
/// fail" replaced by a #.
std::string PrintedWithoutLines(const std::function<void()>& action);

/// Runs @p action, and throws away what the library says on this thread.
void Quietly(const std::function<void()>& action);

} // namespace test_support

#endif // TESTS_SUPPORT_PRINTED_H
