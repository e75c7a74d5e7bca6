#include "render/amounts.h"

#include <fmt/format.h>

#include <ctime>

namespace diskaccess {

std::string BytesText(uint64_t bytes) {
    if (bytes < 1024) {
        return fmt::format("{} B", bytes);
    }
    const char* const units[] = {"KiB", "MiB", "GiB", "TiB", "PiB", "EiB"};
    auto amount = static_cast<double>(bytes) / 1024;
    size_t unit = 0;
    while (amount >= 1023.95 && unit < 5) {
        amount /= 1024;
        ++unit;
    }
    return fmt::format("{:.1f} {}", amount, units[unit]);
}

std::string DurationText(uint64_t seconds) {
    const uint64_t hours = seconds / 3600;
    return hours == 0 ? fmt::format("{}:{:02}", seconds / 60, seconds % 60)
                      : fmt::format("{}:{:02}:{:02}", hours, seconds / 60 % 60, seconds % 60);
}

std::string ChannelSetText(ChannelSet channels) {
    std::string text;
    for (uint32_t first = 0; first < recordings::kChannels; ++first) {
        if (!channels.Has(first)) {
            continue;
        }
        uint32_t last = first;
        while (channels.Has(last + 1)) {
            ++last;
        }
        text += text.empty() ? "" : ",";
        text += last == first ? std::to_string(first) : fmt::format("{}-{}", first, last);
        first = last;
    }
    return text.empty() ? "none" : text;
}

std::string DateText(const Date& date) {
    const time_t time = date.day * 86400;
    std::tm parts = {};
    gmtime_r(&time, &parts);
    return fmt::format("{:04}-{:02}-{:02}", parts.tm_year + 1900, parts.tm_mon + 1, parts.tm_mday);
}

} // namespace diskaccess
