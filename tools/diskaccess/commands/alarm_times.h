#ifndef DISKACCESS_ALARM_TIMES_H
#define DISKACCESS_ALARM_TIMES_H

#include <cstdint>
#include <vector>

#include "cli/context.h"
#include "recordings/records.h"

namespace diskaccess {

/// An alarm: a time, and the types of the events in it. Seconds of the disk, both ends included.
struct Alarm {
    uint32_t first = 0;
    uint32_t last = 0;
    uint64_t types = 0;
};

/// When there were alarms. Questions take a time that grows with the logarithm of the number of alarms.
class AlarmTimes {
public:
    /// @param alarms in any order; they may overlap
    explicit AlarmTimes(const std::vector<Alarm>& alarms);

    /// The types of all alarms that have a second in common with the stretch from @p first to @p last.
    uint64_t TypesIn(uint32_t first, uint32_t last) const;

    /// The parts of the time from @p first to @p last in which there were alarms. Alarms that meet each other are one part.
    std::vector<Alarm> PartsIn(uint32_t first, uint32_t last) const;

    /// The time from @p first to @p last, cut where the types of alarms change. Each part ends where the next begins;
    /// parts without alarms are among them.
    std::vector<Alarm> CutInto(uint32_t first, uint32_t last) const;

private:
    void MakeSteps(const std::vector<Alarm>& alarms);
    void MakeTree();
    void MakeStretches();

    /// From its second on to the next step's, these types are on.
    struct Step {
        int64_t second;
        uint64_t types;
    };
    std::vector<Step> m_steps;
    std::vector<uint64_t>
        m_tree; ///< types of the steps from m_steps.size() on; before that, of pairs of entries
    /// A time without a second that is in no alarm.
    struct Stretch {
        uint32_t first;
        uint32_t last;
    };
    std::vector<Stretch> m_stretches;
};

/// Events as alarms of the second they happened in.
std::vector<Alarm> MomentsOf(const std::vector<recordings::Event>& events);

/// Events as alarms from the recorder's pre-record time before them to its delay after them.
std::vector<Alarm> AlarmsAround(const recordings::Disk& disk, const std::vector<recordings::Event>& events);

/// The same, for cutting: each alarm ends just before its last second, at which what follows begins.
std::vector<Alarm> UpToLastSecond(std::vector<Alarm> alarms);

/// The range in which events may lie whose alarms reach into @p range.
recordings::TimeRange EventRangeOf(const recordings::TimeRange& range);

} // namespace diskaccess

#endif // DISKACCESS_ALARM_TIMES_H
