#include "support/printed.h"

#include <algorithm>
#include <initializer_list>
#include <string_view>

#include "host/messages.h"

namespace test_support {

namespace {

/// Puts # in the place of each number that stands between @p before and one of @p after.
std::string MaskNumbers(const std::string& text, std::string_view before,
                        std::initializer_list<std::string_view> after) {
    std::string masked;
    size_t copied = 0;
    for (size_t at = text.find(before); at != std::string::npos; at = text.find(before, at + 1)) {
        const size_t number = at + before.size();
        const size_t end = text.find_first_not_of("0123456789", number);
        const auto follows = [&](std::string_view with) { return text.compare(end, with.size(), with) == 0; };
        if (end != std::string::npos && end != number && std::any_of(after.begin(), after.end(), follows)) {
            masked.append(text, copied, number - copied) += '#';
            copied = end;
        }
    }
    return masked.append(text, copied);
}

} // namespace

std::string Printed(const std::function<void()>& action) {
    const CapturedMessages messages;
    action();
    return messages.Text();
}

std::string PrintedWithoutLines(const std::function<void()>& action) {
    return MaskNumbers(MaskNumbers(Printed(action), " : ", {", Failed"}), ", ", {" : fail", " : chn = "});
}

void Quietly(const std::function<void()>& action) {
    const DiscardedMessages messages;
    action();
}

} // namespace test_support
