#ifndef DISKACCESS_RENDER_TIMELINE_LABELS_H
#define DISKACCESS_RENDER_TIMELINE_LABELS_H

#include <cstdint>
#include <functional>
#include <string>

#include "recordings/journeys.h"
#include "recordings/problem.h"

namespace diskaccess::timeline {

/// What the colours of pictures and pages mean.
constexpr const char* kLegend = "Green: recorded. Yellow: the time around an event; the triangle is the "
                                "event. In the row \"damage\" red: "
                                "something is missing; grey: damaged, but nothing is missing.";

/// How a timeline writes what it shows. All texts are printable; that they are no markup, each rendering sees to itself.
struct Labels {
    std::string title;                            ///< of the whole: the disk; empty: none
    std::function<std::string(uint32_t)> time;    ///< a second of the disk: "2026-11-20 14:30:00"
    std::function<int64_t(uint32_t)> shift;       ///< seconds from the disk's clock to the clock on the wall
    std::function<std::string(uint32_t)> channel; ///< its name or number
    std::function<std::string(uint64_t)> eventTypes;                ///< their names or bits
    std::function<std::string(const recordings::Problem&)> problem; ///< a line
};

/// The longest time from one mark of an axis to the next such that there are at most @p most.
/// @return seconds that clocks are read in: 1, 5, 60, 3600, ...
uint32_t AxisStep(uint64_t seconds, uint64_t most);

/// The time of day at a second of the disk: "14:30" where marks are minutes apart, else "14:30:05"; a date where days are.
std::string AxisText(const Labels& labels, uint32_t second, uint32_t step);

/// The first second at or after @p second that has a mark.
int64_t FirstMark(const Labels& labels, uint32_t second, uint32_t step);

/// "Journey 2: 2026-11-20 16:20:00 to 2026-11-20 16:22:39, 2:39, 38.4 MiB, 3 alarms, 1 loss"
std::string JourneyText(const Labels& labels, const recordings::Journey& journey);

} // namespace diskaccess::timeline

#endif // DISKACCESS_RENDER_TIMELINE_LABELS_H
