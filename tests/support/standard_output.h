#ifndef TESTS_SUPPORT_STANDARD_OUTPUT_H
#define TESTS_SUPPORT_STANDARD_OUTPUT_H

#include <functional>
#include <string>

namespace test_support {

/// Runs @p action and gives what the process wrote to standard output meanwhile.
std::string WrittenToStandardOutput(const std::function<void()>& action);

/// Runs @p action with the standard output of the whole process thrown away, whichever of its threads writes.
/// Failures are told on standard error.
void Silently(const std::function<void()>& action);

} // namespace test_support

#endif // TESTS_SUPPORT_STANDARD_OUTPUT_H
