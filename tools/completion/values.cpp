#include "values.h"

#include <charconv>

#include "tables.h"

namespace completion {

CLI::Validator OneOf(const std::vector<std::string>& words) {
    CLI::Validator validator;
    validator.description("{" + Join(words, ",") + "}");
    validator.operation([words](std::string& value) {
        for (const std::string& word : words) {
            if (CLI::detail::to_lower(value) == word) {
                value = word;
                return std::string();
            }
        }
        return "'" + value + "' is " +
               (words.size() == 1 ? "not " + words.front() + ", which is all there is"
                                  : "none of " + Join(words, ", "));
    });
    return validator;
}

CLI::Validator WholeNumber(int64_t least, int64_t most) {
    CLI::Validator validator;
    validator.operation([least, most](const std::string& text) {
        const char* const end = text.data() + text.size();
        int64_t number = 0;
        const std::from_chars_result read = std::from_chars(text.data(), end, number);
        if (read.ec == std::errc() && read.ptr == end && number >= least && number <= most) {
            return std::string();
        }
        return "'" + text + "' is not a whole number from " + std::to_string(least) + " to " +
               std::to_string(most);
    });
    return validator;
}

} // namespace completion
