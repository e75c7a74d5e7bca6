#include "commands/alarm_times.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <limits>
#include <map>
#include <utility>

namespace diskaccess {

namespace {

constexpr uint32_t kLastSecond = std::numeric_limits<uint32_t>::max();

/// The longest time before or after an event that a recorder is expected to count as its alarm.
constexpr uint32_t kLongestAlarm = 3600;

/// Parts that a record is cut into at most; the last one takes the rest. No sound record comes near it, and a forged disk
/// may claim many alarms in each of many records.
constexpr size_t kMostParts = 1000;

/// How many alarms of each type are on.
class TypeCounts {
public:
    void Add(uint64_t types, int64_t change) {
        for (size_t bit = 0; bit < m_counts.size(); ++bit) {
            if ((types >> bit & 1) != 0) {
                m_counts.at(bit) += change;
                const uint64_t mask = uint64_t{1} << bit;
                m_types = m_counts.at(bit) != 0 ? m_types | mask : m_types & ~mask;
            }
        }
    }
    uint64_t Types() const { return m_types; }

private:
    std::array<int64_t, 64> m_counts = {};
    uint64_t m_types = 0;
};

uint32_t Clamped(int64_t second) {
    return static_cast<uint32_t>(std::clamp<int64_t>(second, 0, kLastSecond));
}

} // namespace

AlarmTimes::AlarmTimes(const std::vector<Alarm>& alarms) {
    MakeSteps(alarms);
    MakeTree();
    MakeStretches();
}

void AlarmTimes::MakeSteps(const std::vector<Alarm>& alarms) {
    struct Change {
        int64_t second;
        uint64_t types;
        int64_t count;
    };
    std::vector<Change> changes;
    for (const Alarm& alarm : alarms) {
        changes.push_back({alarm.first, alarm.types, 1});
        changes.push_back({int64_t{alarm.last} + 1, alarm.types, -1});
    }
    std::sort(changes.begin(), changes.end(),
              [](const Change& a, const Change& b) { return a.second < b.second; });
    TypeCounts counts;
    for (size_t i = 0; i < changes.size(); ++i) {
        counts.Add(changes[i].types, changes[i].count);
        if (i + 1 == changes.size() || changes[i + 1].second != changes[i].second) {
            m_steps.push_back({changes[i].second, counts.Types()});
        }
    }
}

void AlarmTimes::MakeTree() {
    const size_t size = m_steps.size();
    m_tree.resize(2 * size);
    for (size_t i = 0; i < size; ++i) {
        m_tree[size + i] = m_steps[i].types;
    }
    for (size_t i = size; i-- > 1;) {
        m_tree[i] = m_tree[2 * i] | m_tree[2 * i + 1];
    }
}

void AlarmTimes::MakeStretches() {
    for (size_t i = 0; i + 1 < m_steps.size(); ++i) {
        if (m_steps[i].types == 0) {
            continue;
        }
        const auto last = static_cast<uint32_t>(m_steps[i + 1].second - 1);
        if (i != 0 && m_steps[i - 1].types != 0) {
            m_stretches.back().last = last;
        } else {
            m_stretches.push_back({static_cast<uint32_t>(m_steps[i].second), last});
        }
    }
}

uint64_t AlarmTimes::TypesIn(uint32_t first, uint32_t last) const {
    const auto after = [](int64_t second, const Step& step) { return second < step.second; };
    const auto from = std::upper_bound(m_steps.begin(), m_steps.end(), int64_t{first}, after);
    const auto to = std::upper_bound(m_steps.begin(), m_steps.end(), int64_t{last}, after);
    // The step before the first second is still on.
    auto low =
        static_cast<size_t>(from - m_steps.begin()) - (from == m_steps.begin() ? 0 : 1) + m_steps.size();
    auto high = static_cast<size_t>(to - m_steps.begin()) + m_steps.size();
    uint64_t types = 0;
    for (; low < high; low /= 2, high /= 2) {
        types |= low % 2 != 0 ? m_tree[low++] : 0;
        types |= high % 2 != 0 ? m_tree[--high] : 0;
    }
    return types;
}

std::vector<Alarm> AlarmTimes::PartsIn(uint32_t first, uint32_t last) const {
    auto stretch = std::lower_bound(m_stretches.begin(), m_stretches.end(), first,
                                    [](const Stretch& each, uint32_t second) { return each.last < second; });
    std::vector<Alarm> parts;
    for (; stretch != m_stretches.end() && stretch->first <= last; ++stretch) {
        if (parts.size() == kMostParts) {
            parts.back().last = std::min(last, m_stretches.back().last);
            break;
        }
        parts.push_back({std::max(first, stretch->first), std::min(last, stretch->last), 0});
    }
    for (Alarm& part : parts) {
        part.types = TypesIn(part.first, part.last);
    }
    return parts;
}

std::vector<Alarm> AlarmTimes::CutInto(uint32_t first, uint32_t last) const {
    auto step = std::upper_bound(m_steps.begin(), m_steps.end(), int64_t{first},
                                 [](int64_t second, const Step& each) { return second < each.second; });
    std::vector<Alarm> parts = {{first, last, step == m_steps.begin() ? 0 : std::prev(step)->types}};
    for (; step != m_steps.end() && step->second < last; ++step) {
        if (parts.size() == kMostParts) {
            parts.back().types = TypesIn(parts.back().first, last);
            break;
        }
        if (step->types != parts.back().types) {
            parts.back().last = static_cast<uint32_t>(step->second);
            parts.push_back({parts.back().last, last, step->types});
        }
    }
    return parts;
}

std::vector<Alarm> MomentsOf(const std::vector<recordings::Event>& events) {
    std::vector<Alarm> alarms;
    alarms.reserve(events.size());
    for (const recordings::Event& event : events) {
        alarms.push_back({event.time, event.time, event.type});
    }
    return alarms;
}

std::vector<Alarm> AlarmsAround(const recordings::Disk& disk, const std::vector<recordings::Event>& events) {
    struct Margins {
        uint32_t before = 0;
        uint32_t after = 0;
    };
    std::map<uint32_t, Margins> marginsOfBlock;
    std::vector<Alarm> alarms;
    for (const recordings::Event& event : events) {
        auto margins = marginsOfBlock.find(event.block);
        if (margins == marginsOfBlock.end()) {
            const auto identity = ReadIdentity(disk, event.block);
            const Margins read =
                identity ? Margins{identity->preRecordSeconds, identity->alarmDelaySeconds} : Margins{};
            margins = marginsOfBlock.emplace(event.block, read).first;
        }
        alarms.push_back({Clamped(int64_t{event.time} - margins->second.before),
                          Clamped(int64_t{event.time} + margins->second.after), event.type});
    }
    return alarms;
}

std::vector<Alarm> UpToLastSecond(std::vector<Alarm> alarms) {
    for (Alarm& alarm : alarms) {
        alarm.last -= alarm.last > alarm.first ? 1 : 0;
    }
    return alarms;
}

recordings::TimeRange EventRangeOf(const recordings::TimeRange& range) {
    return {range.first - std::min(range.first, kLongestAlarm),
            range.last + std::min(kLastSecond - range.last, kLongestAlarm)};
}

} // namespace diskaccess
