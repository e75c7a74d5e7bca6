#include <fmt/format.h>

#include <algorithm>
#include <ctime>
#include <map>
#include <set>
#include <vector>

#include "commands/commands.h"
#include "recordings/records.h"

namespace diskaccess {

namespace {

constexpr int64_t kSecondsPerDay = 86400;

/// The parts of a date.
std::tm PartsOf(int64_t day) {
    const time_t time = day * kSecondsPerDay;
    std::tm parts = {};
    gmtime_r(&time, &parts);
    return parts;
}

/// A month as a calendar leaf, weeks from Monday, recorded days in brackets.
std::string MonthText(int64_t firstDay, const std::set<int64_t>& recorded) {
    const std::tm first = PartsOf(firstDay);
    char title[32];
    std::strftime(title, sizeof title, "%B %Y", &first);
    const size_t margin = (27 - std::string(title).size()) / 2;
    std::string text = std::string(margin, ' ') + title + "\n Mo  Tu  We  Th  Fr  Sa  Su\n";
    std::string week(static_cast<size_t>((first.tm_wday + 6) % 7) * 4, ' ');
    for (int64_t day = firstDay; PartsOf(day).tm_mon == first.tm_mon; ++day) {
        const bool isRecorded = recorded.count(day) != 0;
        week +=
            fmt::format("{}{:>2}{}", isRecorded ? '[' : ' ', PartsOf(day).tm_mday, isRecorded ? ']' : ' ');
        if (PartsOf(day).tm_wday == 0) {
            text += week.substr(0, week.find_last_not_of(' ') + 1) + "\n";
            week.clear();
        }
    }
    return week.empty() ? text : text + week.substr(0, week.find_last_not_of(' ') + 1) + "\n";
}

std::string CalendarText(const std::set<int64_t>& recorded) {
    std::string text;
    int64_t lastMonth = 0;
    for (const int64_t day : recorded) {
        const int64_t firstOfMonth = day - (PartsOf(day).tm_mday - 1);
        if (text.empty() || firstOfMonth != lastMonth) {
            text += (text.empty() ? "" : "\n") + MonthText(firstOfMonth, recorded);
            lastMonth = firstOfMonth;
        }
    }
    return text;
}

/// Days on which something was recorded, in the user's zone and of true time.
class RecordedDays {
public:
    explicit RecordedDays(const Context& context) : m_context(context) {}

    /// Adds the days of a time, both end seconds included.
    void Add(uint32_t first, uint32_t last) {
        ++m_changes[DayOf(first)];
        --m_changes[std::max(DayOf(first), DayOf(last)) + 1]; // a zone may have left a day out
    }

    std::set<int64_t> All() const {
        std::set<int64_t> days;
        int64_t recordings = 0;
        int64_t day = 0;
        for (const auto& [next, change] : m_changes) {
            for (; recordings != 0 && day < next; ++day) {
                days.insert(days.end(), day);
            }
            day = next;
            recordings += change;
        }
        return days;
    }

    int64_t DayOf(uint32_t time) const {
        return m_context.Zone().DayOf(m_context.Clock().TrueTime(time).seconds);
    }

private:
    const Context& m_context;
    /// Of each day: stretches that begin on it, less those that ended the day before.
    std::map<int64_t, int64_t> m_changes;
};

/// Adds the days of a block. Where its head and its tail do not tell them all, its records do.
void AddDaysOf(Context& context, const recordings::Block& block, RecordedDays& days) {
    days.Add(block.start, block.start);
    days.Add(block.end, block.end);
    const int64_t length = days.DayOf(block.end) - days.DayOf(block.start);
    const bool told = block.closed && (length == 0 || length == 1);
    if (!told) {
        for (const recordings::Record& record : RecordsOf(context.Disk(), block, context.Problems())) {
            days.Add(record.start, std::max(record.start, record.end));
        }
    }
}

std::set<int64_t> FindDays(Context& context) {
    const std::vector<recordings::Block>& blocks = context.Blocks().All();
    const recordings::Watch watch = context.Watch("reading blocks");
    RecordedDays days(context);
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
    const std::set<int64_t> recorded = FindDays(context);
    context.ReportBlocks();
    Renderer& answer = context.Answer();
    answer.ShowProse({CalendarText(recorded)});
    Table days = {"days", {{"date", ""}}, {}};
    for (const int64_t day : recorded) {
        days.rows.push_back({Date{day}});
    }
    ShowTable(answer, days);
    answer.ShowFacts({{"day_count", "Days", uint64_t{recorded.size()}}});
    return context.Finish();
}

} // namespace diskaccess
