#include <fmt/format.h>

#include <algorithm>
#include <ctime>
#include <set>

#include "commands/commands.h"

namespace diskaccess {

namespace {

constexpr uint32_t kSecondsPerDay = 86400;

std::tm UtcDate(uint32_t day) {
    const time_t time = time_t{day} * kSecondsPerDay;
    std::tm parts = {};
    gmtime_r(&time, &parts);
    return parts;
}

/// A month as a calendar leaf, weeks from Monday, recorded days in brackets.
std::string MonthText(uint32_t firstDay, const std::set<uint32_t>& recorded) {
    const std::tm first = UtcDate(firstDay);
    char title[32];
    std::strftime(title, sizeof title, "%B %Y", &first);
    const size_t margin = (27 - std::string(title).size()) / 2;
    std::string text = std::string(margin, ' ') + title + "\n Mo  Tu  We  Th  Fr  Sa  Su\n";
    std::string week(static_cast<size_t>((first.tm_wday + 6) % 7) * 4, ' ');
    for (uint32_t day = firstDay; UtcDate(day).tm_mon == first.tm_mon; ++day) {
        const bool isRecorded = recorded.count(day) != 0;
        week +=
            fmt::format("{}{:>2}{}", isRecorded ? '[' : ' ', UtcDate(day).tm_mday, isRecorded ? ']' : ' ');
        if (UtcDate(day).tm_wday == 0) {
            text += week.substr(0, week.find_last_not_of(' ') + 1) + "\n";
            week.clear();
        }
    }
    return week.empty() ? text : text + week.substr(0, week.find_last_not_of(' ') + 1) + "\n";
}

std::string CalendarText(const std::set<uint32_t>& recorded) {
    std::string text;
    uint32_t lastMonth = 0;
    for (const uint32_t day : recorded) {
        const uint32_t firstOfMonth = day - static_cast<uint32_t>(UtcDate(day).tm_mday - 1);
        if (text.empty() || firstOfMonth != lastMonth) {
            text += (text.empty() ? "" : "\n") + MonthText(firstOfMonth, recorded);
            lastMonth = firstOfMonth;
        }
    }
    return text;
}

} // namespace

Report Days(Job& job) {
    CCommList<unsigned int> found;
    job.Search().GetDateInfo(&found);
    std::set<uint32_t> recorded;
    for (const auto* node = found.m_pHead; node != nullptr; node = node->pNext) {
        recorded.insert(node->data / kSecondsPerDay);
    }
    Table days = {"days", {{"date", ""}}, {}};
    for (const uint32_t day : recorded) {
        days.rows.push_back({Date{day}});
    }
    return {{Prose{CalendarText(recorded)}, std::move(days),
             Facts{{"day_count", "Days", uint64_t{recorded.size()}}}}};
}

} // namespace diskaccess
