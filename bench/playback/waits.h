#ifndef BENCH_PLAYBACK_WAITS_H
#define BENCH_PLAYBACK_WAITS_H

/// @file waits.h
/// How long single operations keep a player waiting.

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include "playback/frame_set.h"

namespace playback_bench {

constexpr size_t kTimes = 1000;

/// Microseconds that operations took, one by one.
struct Waits {
    std::vector<double> all;
    std::vector<double> unflushed; ///< the same, less those in fsync()
};

/// An operation done kTimes times.
struct Operation {
    std::string name;
    std::function<Waits()> run;
};

/// Microseconds; each value is the median of all rounds'.
struct Wait {
    double median;
    double p99; ///< 99 in a hundred take no longer
    double medianUnflushed;
    double p99Unflushed;
};

/// Seeks, steps and starts of the library's, and libavformat's seeks. @p set has no sound.
std::vector<Operation> Operations(const FrameSet& set);

/// Measures operations, each once in every round.
std::vector<Wait> MeasureWaits(const std::vector<Operation>& operations, int rounds);

} // namespace playback_bench

#endif // BENCH_PLAYBACK_WAITS_H
