#include <fmt/format.h>

#include <ctime>
#include <limits>
#include <set>
#include <vector>

#include "commands/commands.h"
#include "recordings/records.h"

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

/// Days on which something was recorded.
class RecordedDays {
public:
    RecordedDays() : m_changes(DayOf(std::numeric_limits<uint32_t>::max()) + 2) {}

    /// Adds the days of a time, both end seconds included.
    void Add(uint32_t first, uint32_t last) {
        ++m_changes[DayOf(first)];
        --m_changes[DayOf(std::max(first, last)) + 1];
    }

    std::set<uint32_t> All() const {
        std::set<uint32_t> days;
        int64_t recordings = 0;
        for (uint32_t day = 0; day + 1 < m_changes.size(); ++day) {
            recordings += m_changes[day];
            if (recordings != 0) {
                days.insert(day);
            }
        }
        return days;
    }

    static constexpr uint32_t DayOf(uint32_t time) { return time / kSecondsPerDay; }

private:
    std::vector<int64_t>
        m_changes; ///< of each day: stretches that begin on it, less those that ended the day before
};

/// Adds the days of a block. Where its head and its tail do not tell them all, its records do.
void AddDaysOf(Context& context, const recordings::Block& block, RecordedDays& days) {
    days.Add(block.start, block.start);
    days.Add(block.end, block.end);
    const bool told = block.closed && RecordedDays::DayOf(block.end) - RecordedDays::DayOf(block.start) <= 1;
    if (!told) {
        for (const recordings::Record& record : RecordsOf(context.Disk(), block, context.Problems())) {
            days.Add(record.start, record.end);
        }
    }
}

std::set<uint32_t> FindDays(Context& context) {
    const std::vector<recordings::Block>& blocks = context.Blocks().All();
    const recordings::Watch watch = context.Watch("reading blocks");
    RecordedDays days;
    for (size_t i = 0; i < blocks.size(); ++i) {
        watch({i, blocks.size(), 0});
        if (!blocks[i].unreadable && !blocks[i].wiped) {
            AddDaysOf(context, blocks[i], days);
        }
    }
    return days.All();
}

} // namespace

ExitCode Days(Context& context) {
    const std::set<uint32_t> recorded = FindDays(context);
    context.ReportBlocks();
    Renderer& answer = context.Answer();
    answer.ShowProse({CalendarText(recorded)});
    Table days = {"days", {{"date", ""}}, {}};
    for (const uint32_t day : recorded) {
        days.rows.push_back({Date{day}});
    }
    ShowTable(answer, days);
    answer.ShowFacts({{"day_count", "Days", uint64_t{recorded.size()}}});
    return context.Finish();
}

} // namespace diskaccess
