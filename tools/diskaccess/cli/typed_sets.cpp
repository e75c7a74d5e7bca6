#include "cli/typed_sets.h"

#include <algorithm>
#include <functional>
#include <stdexcept>

#include "cli/failure.h"

namespace diskaccess {

namespace {

using recordings::ChannelSet;
using recordings::EventMask;

bool HasOnly(const std::string& text, const char* allowed) {
    return text.find_first_not_of(allowed) == std::string::npos;
}

/// Hands over what stands between commas. A name may hold commas itself: the whole text is tried first.
/// @param take whether it took the item
/// @return whether all were taken
bool TakeItems(const std::string& text, const std::function<bool(const std::string& item)>& take) {
    if (take(text)) {
        return true;
    }
    bool all = true;
    for (size_t begin = 0; all && begin <= text.size();) {
        const size_t end = std::min(text.find(',', begin), text.size());
        all = take(text.substr(begin, end - begin));
        begin = end + 1;
    }
    return all;
}

std::optional<uint32_t> ReadChannel(const std::string& text) {
    const bool digits = !text.empty() && text.size() <= 2 && HasOnly(text, "0123456789");
    if (!digits || std::stoul(text) >= recordings::kChannels) {
        return std::nullopt;
    }
    return static_cast<uint32_t>(std::stoul(text));
}

/// One number, or a range of them.
std::optional<ChannelSet> ReadNumbers(const std::string& item) {
    const size_t dash = item.find('-');
    const std::optional<uint32_t> first = ReadChannel(item.substr(0, dash));
    const std::optional<uint32_t> last =
        dash == std::string::npos ? first : ReadChannel(item.substr(dash + 1));
    if (!first || !last) {
        return std::nullopt;
    }
    if (*first > *last) {
        throw WrongUse("--channel: '" + item + "' runs backwards");
    }
    ChannelSet set;
    for (uint32_t channel = *first; channel <= *last; ++channel) {
        set.Add(channel);
    }
    return set;
}

/// @return 0 when the text is not a number, or too large
uint64_t ReadMask(const std::string& text) {
    const bool hexadecimal = text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
    const std::string digits = hexadecimal ? text.substr(2) : text;
    if (digits.empty() || !HasOnly(digits, hexadecimal ? "0123456789abcdefABCDEF" : "0123456789")) {
        return 0;
    }
    try {
        return std::stoull(digits, nullptr, hexadecimal ? 16 : 10);
    } catch (const std::out_of_range&) {
        return 0;
    }
}

} // namespace

ChannelSet ReadChannels(const std::string& text, const Names& names) {
    if (text == "all") {
        return ChannelSet::All();
    }
    ChannelSet set;
    const bool read = TakeItems(text, [&](const std::string& item) {
        const ChannelSet taken = ReadNumbers(item).value_or(names.ChannelsNamed(item));
        set.bits |= taken.bits;
        return !taken.Empty();
    });
    if (!read) {
        throw WrongUse(
            "--channel: '" + text +
            "' is not a list of channels; give numbers from 0 to 31, like 0,2-4, or names of the names file");
    }
    return set;
}

std::optional<EventMask> ReadEventTypes(const std::string& text, const std::string& option,
                                        const Names& names) {
    if (text.empty()) {
        return std::nullopt;
    }
    if (text == "all") {
        return recordings::kAllEvents;
    }
    EventMask mask = 0;
    const bool read = TakeItems(text, [&](const std::string& item) {
        const uint64_t number = ReadMask(item);
        const EventMask taken = number != 0 ? number : names.EventTypesNamed(item);
        mask |= taken;
        return taken != 0;
    });
    if (!read) {
        throw WrongUse(
            option + ": '" + text +
            "' is not a set of event types; give a mask like 0x5, names of the names file, or all");
    }
    return mask;
}

} // namespace diskaccess
