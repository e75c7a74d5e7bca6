#ifndef DISKACCESS_DISK_CLOCK_H
#define DISKACCESS_DISK_CLOCK_H

#include <algorithm>
#include <cstdint>
#include <limits>

#include "recordings/query.h"
#include "render/report.h"

namespace diskaccess {

/// The recorder's clock, which may have been ahead of true time.
class DiskClock {
public:
    /// @param skew seconds that it was ahead; negative: that it was behind
    explicit DiskClock(int64_t skew) : m_skew(skew) {}

    Time TrueTime(uint32_t seconds) const { return {int64_t{seconds} - m_skew}; }
    /// @param micros a time stamp. A damaged disk may hold any.
    Instant TrueInstant(int64_t micros) const {
        return {static_cast<int64_t>(static_cast<uint64_t>(micros) -
                                     static_cast<uint64_t>(m_skew * recordings::kMicros))};
    }
    /// The second that the disk's clock showed, or the nearest that it can show.
    uint32_t DiskSeconds(int64_t trueTime) const {
        constexpr int64_t kLast = std::numeric_limits<uint32_t>::max();
        return static_cast<uint32_t>(std::clamp<int64_t>(trueTime + m_skew, 0, kLast));
    }

private:
    int64_t m_skew;
};

} // namespace diskaccess

#endif // DISKACCESS_DISK_CLOCK_H
