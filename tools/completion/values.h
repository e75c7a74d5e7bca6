#ifndef COMPLETION_VALUES_H
#define COMPLETION_VALUES_H

#include <CLI/CLI.hpp>

#include <cstdint>
#include <string>
#include <vector>

namespace completion {

/// For Option::transform: has an option take one of these words, in any case. Scripts complete them.
CLI::Validator OneOf(const std::vector<std::string>& words);

/// For Option::check: has an option take a decimal number with or without a sign.
CLI::Validator WholeNumber(int64_t least, int64_t most);

} // namespace completion

#endif // COMPLETION_VALUES_H
