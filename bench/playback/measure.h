#ifndef BENCH_PLAYBACK_MEASURE_H
#define BENCH_PLAYBACK_MEASURE_H

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "playback/calls.h"
#include "playback/reader.h"

namespace playback_bench {

enum class Kind {
    Floor, ///< bare calls: the others are measured by them, and they deliver nothing
    Pread,
    Library,
    Container,
};

/// A reader under test.
struct Variant {
    std::string name;
    Kind kind;
    std::function<ReaderPtr()> make;
};

/// What a reader makes of a set.
struct Account {
    uint64_t frames;
    uint64_t bytes; ///< of payload, as delivered
    uint64_t sum;   ///< SummingSink's
    Calls calls;
};

/// A timed run. Its times leave out fsync().
struct Timing {
    uint64_t frames;
    uint64_t bytes;
    double seconds;
    double processorSeconds;
    double flushSeconds; ///< those in fsync()
};

struct Measurement {
    Account account;
    std::vector<Timing> rounds;
    long peakKiB;
};

/// Measures readers of the same frames: each once in every round, so that a noisy moment hits all alike.
std::vector<Measurement> Measure(const std::vector<Variant>& variants, int rounds);

/// The measurement of the first variant of a kind that every table has.
const Measurement& OfKind(Kind kind, const std::vector<Variant>& variants,
                          const std::vector<Measurement>& measurements);

/// Peak memory of a process that does nothing, in KiB.
long IdlePeak();

/// Median of a time of all rounds.
double MedianOf(const Measurement& measurement, double Timing::*time);

/// How many times longer one takes than the other: the median of the rounds, each of which ran both.
double MedianRatio(const Measurement& one, const Measurement& other, double Timing::*time);

/// The value in the middle, or at another part of the way through them.
double Quantile(std::vector<double> values, double part);

} // namespace playback_bench

#endif // BENCH_PLAYBACK_MEASURE_H
