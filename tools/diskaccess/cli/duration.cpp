#include "cli/duration.h"

#include "cli/failure.h"

namespace diskaccess {

namespace {

/// Digits that a length may have: with a day's 86,400 seconds behind them they still fit 64 bits.
constexpr size_t kMostDigits = 10;
constexpr uint64_t kLongest = 0xFFFFFFFF;

uint64_t SecondsOf(char unit) {
    switch (unit) {
    case 'm':
        return 60;
    case 'h':
        return 3600;
    case 'd':
        return 86400;
    default:
        return 1;
    }
}

} // namespace

uint32_t ReadDuration(const std::string& text, const std::string& option) {
    const size_t digits = std::min(text.find_first_not_of("0123456789"), text.size());
    const std::string unit = text.substr(digits);
    const bool known = unit.empty() || unit == "s" || unit == "m" || unit == "h" || unit == "d";
    if (digits != 0 && digits <= kMostDigits && known) {
        const uint64_t seconds =
            std::stoull(text.substr(0, digits)) * SecondsOf(unit.empty() ? 's' : unit.front());
        if (seconds <= kLongest) {
            return static_cast<uint32_t>(seconds);
        }
    }
    throw WrongUse(option + ": '" + text + "' is no length of time; give one like 5m, 90s or 1h");
}

} // namespace diskaccess
