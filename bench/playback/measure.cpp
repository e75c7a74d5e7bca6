#include "playback/measure.h"

#include <algorithm>
#include <chrono>
#include <cmath>

#include "playback/in_child.h"
#include "sample_recorder/partition_image.h"

namespace playback_bench {

namespace {

using sample_recorder::Error;

/// Delivers to two sinks.
class BothSinks : public FrameSink {
public:
    BothSinks(FrameSink& first, FrameSink& second) : m_first(first), m_second(second) {}
    void Take(const FrameView& frame) override {
        m_first.Take(frame);
        m_second.Take(frame);
    }

private:
    FrameSink& m_first;
    FrameSink& m_second;
};

Account TakeAccount(const Variant& variant) {
    const ReaderPtr reader = variant.make();
    reader->Prepare();
    CountingSink counted;
    SummingSink summed(reader->Form());
    BothSinks sink(counted, summed);
    const Calls before = CallsSoFar();
    reader->ReadAll(sink);
    return {counted.Frames(), counted.Bytes(), summed.Sum(), CallsSoFar() - before};
}

Timing TimeOnce(const Variant& variant) {
    const ReaderPtr reader = variant.make();
    reader->Prepare();
    CountingSink sink;
    const Calls callsBefore = CallsSoFar();
    const double processorBefore = ProcessorSeconds();
    const auto begin = std::chrono::steady_clock::now();
    reader->ReadAll(sink);
    const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - begin;
    const double processor = ProcessorSeconds() - processorBefore;
    const Calls calls = CallsSoFar() - callsBefore;
    return {sink.Frames(), sink.Bytes(), elapsed.count() - calls.flushSeconds,
            processor - calls.flushProcessorSeconds, calls.flushSeconds};
}

/// The readers of a table deliver the same frames, to the byte.
void CheckSameFrames(const Variant& variant, const Account& account, const Account& reference) {
    if (variant.kind != Kind::Floor && (account.frames != reference.frames || account.sum != reference.sum)) {
        throw Error(variant.name + ": delivers " + std::to_string(account.frames) + " frames, not the " +
                    std::to_string(reference.frames) + " that the library does");
    }
}

} // namespace

double Quantile(std::vector<double> values, double part) {
    std::sort(values.begin(), values.end());
    return values.at(static_cast<size_t>(std::lround(part * static_cast<double>(values.size() - 1))));
}

double MedianOf(const Measurement& measurement, double Timing::*time) {
    std::vector<double> values;
    values.reserve(measurement.rounds.size());
    for (const Timing& round : measurement.rounds) {
        values.push_back(round.*time);
    }
    return Quantile(values, 0.5);
}

double MedianRatio(const Measurement& one, const Measurement& other, double Timing::*time) {
    std::vector<double> ratios;
    ratios.reserve(one.rounds.size());
    for (size_t i = 0; i < one.rounds.size(); ++i) {
        ratios.push_back(one.rounds[i].*time / other.rounds[i].*time);
    }
    return Quantile(ratios, 0.5);
}

long IdlePeak() {
    long peak = 0;
    InChild([] { return 0; }, &peak);
    return peak;
}

const Measurement& OfKind(Kind kind, const std::vector<Variant>& variants,
                          const std::vector<Measurement>& measurements) {
    const auto found = std::find_if(variants.begin(), variants.end(),
                                    [kind](const Variant& variant) { return variant.kind == kind; });
    return measurements.at(static_cast<size_t>(found - variants.begin()));
}

std::vector<Measurement> Measure(const std::vector<Variant>& variants, int rounds) {
    std::vector<Measurement> measurements;
    measurements.reserve(variants.size());
    for (const Variant& variant : variants) {
        measurements.push_back({InChild([&] { return TakeAccount(variant); }), {}, 0});
    }
    const Account reference = OfKind(Kind::Library, variants, measurements).account;
    for (size_t i = 0; i < variants.size(); ++i) {
        CheckSameFrames(variants[i], measurements[i].account, reference);
    }

    for (int round = 0; round < rounds; ++round) {
        for (size_t i = 0; i < variants.size(); ++i) {
            Measurement& measurement = measurements[i];
            const Timing timing = InChild([&] { return TimeOnce(variants[i]); }, &measurement.peakKiB);
            if (timing.frames != measurement.account.frames || timing.bytes != measurement.account.bytes) {
                throw Error(variants[i].name + ": does not deliver the same frames each time");
            }
            measurement.rounds.push_back(timing);
        }
    }
    return measurements;
}

} // namespace playback_bench
