#include "render/timeline/labels.h"

#include <fmt/format.h>

#include "render/amounts.h"

namespace diskaccess::timeline {

namespace {

constexpr uint32_t kSteps[] = {1,    2,    5,    10,    15,    30,    60,    120,    300,     600,     900,
                               1800, 3600, 7200, 10800, 21600, 43200, 86400, 604800, 2592000, 31536000};

std::string Count(uint64_t count, const char* one, const char* several) {
    return fmt::format("{} {}", count, count == 1 ? one : several);
}

} // namespace

uint32_t AxisStep(uint64_t seconds, uint64_t most) {
    for (const uint32_t step : kSteps) {
        if (seconds / step < most) {
            return step;
        }
    }
    return kSteps[std::size(kSteps) - 1];
}

std::string AxisText(const Labels& labels, uint32_t second, uint32_t step) {
    constexpr size_t kDate = 10; // characters of "2026-11-20"
    const std::string text = labels.time(second);
    if (step >= 86400) {
        return text.substr(0, kDate);
    }
    return text.substr(kDate + 1, step >= 60 ? 5 : 8);
}

int64_t FirstMark(const Labels& labels, uint32_t second, uint32_t step) {
    const int64_t onTheWall = second + labels.shift(second);
    const int64_t rest = (onTheWall % step + step) % step;
    return int64_t{second} + (rest == 0 ? 0 : step - rest);
}

std::string JourneyText(const Labels& labels, const recordings::Journey& journey) {
    std::string text = fmt::format("Journey {}: {} to {}, {}, {}", journey.number, labels.time(journey.start),
                                   labels.time(journey.end), DurationText(journey.end - journey.start),
                                   BytesText(journey.bytes));
    if (journey.alarms != 0) {
        text += ", " + Count(journey.alarms, "alarm", "alarms");
    }
    if (journey.losses != 0) {
        text += ", " + Count(journey.losses, "loss", "losses");
    }
    return text;
}

} // namespace diskaccess::timeline
