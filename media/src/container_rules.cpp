#include "container_rules.h"

#include <algorithm>
#include <limits>

#include "stream_parameters.h"

namespace media {

int64_t NextTime(ClockUnit unit, int64_t last, int64_t micros) {
    return std::max(av_rescale_q(micros, kMicroseconds, {unit.numerator, unit.denominator}), last + 1);
}

int64_t LargestGapOf(Container container, ClockUnit unit) {
    if (container != Container::Mp4 || unit.numerator <= 0) {
        return std::numeric_limits<int64_t>::max();
    }
    return av_rescale_q(std::numeric_limits<int32_t>::max(), {unit.numerator, unit.denominator},
                        kMicroseconds);
}

std::optional<LeftOutReason> RefusalOf(Container container, const Track& track,
                                       const recordings::Frame& frame) {
    Parameters unused;
    return Examine(container, track, frame, unused);
}

} // namespace media
