#include "playback/table.h"

#include <cstdio>

namespace playback_bench {

namespace {

double Ratio(uint64_t a, uint64_t b) {
    return static_cast<double>(a) / static_cast<double>(b);
}

void PrintColumns() {
    std::printf("%-39s %8s %5s %6s %6s %6s %6s %6s %6s %6s %6s %6s %6s\n", "", "frames/s", "GB/s", "cpu s",
                "fsync", "peak", "calls", "read", "copied", "speed", "cpu", "lib x", "cpu");
}

void PrintReader(const Variant& variant, const Measurement& m, const Measurement& floor,
                 const Measurement& library) {
    const uint64_t frames = library.account.frames;
    const uint64_t bytes = library.account.bytes;
    const double seconds = MedianOf(m, &Timing::seconds);
    std::printf("%-39s %8.0f %5.2f %6.3f %6.3f", variant.name.c_str(), static_cast<double>(frames) / seconds,
                static_cast<double>(bytes) / seconds * 1e-9, MedianOf(m, &Timing::processorSeconds),
                MedianOf(m, &Timing::flushSeconds));
    if (variant.kind == Kind::Floor) {
        std::printf(" %6s", ""); // its list of calls is most of it
    } else {
        std::printf(" %6.1f", static_cast<double>(m.peakKiB) / 1024);
    }
    const Calls& calls = m.account.calls;
    std::printf(" %6.2f %6.3f %6.3f %6.2f %6.2f", Ratio(calls.seeks + calls.reads, frames),
                Ratio(calls.bytesRead, bytes), Ratio(calls.bytesCopied, bytes),
                MedianRatio(floor, m, &Timing::seconds), MedianRatio(floor, m, &Timing::processorSeconds));
    if (variant.kind == Kind::Container) {
        std::printf(" %6.2f %6.2f", MedianRatio(m, library, &Timing::seconds),
                    MedianRatio(m, library, &Timing::processorSeconds));
    }
    std::printf("\n");
}

} // namespace

void PrintLegend() {
    std::printf(
        "frames/s, GB/s, cpu s: medians, the time in fsync() left out, which is shown beside them; peak: "
        "memory, "
        "MB (a\nprocess that does nothing: %.1f); calls: seeks and reads a frame; read: bytes that the "
        "kernel "
        "copied to the process,\nfor each byte of payload; copied: bytes copied on from memory to memory, "
        "likewise; speed, cpu: beside the floor,\n1.00 is as fast; lib x, cpu: how many times faster the "
        "library is. All lines but the floor delivered the same\nframes: the bytes of their NAL units, and "
        "of "
        "their sound, agree.\n",
        static_cast<double>(IdlePeak()) / 1024);
}

void PrintReaders(const std::string& title, const std::vector<Variant>& variants,
                  const std::vector<Measurement>& measurements) {
    const Measurement& floor = OfKind(Kind::Floor, variants, measurements);
    const Measurement& library = OfKind(Kind::Library, variants, measurements);
    std::printf("\n%s\n", title.c_str());
    PrintColumns();
    for (size_t i = 0; i < variants.size(); ++i) {
        PrintReader(variants[i], measurements[i], floor, library);
    }
}

void PrintWaits(const std::vector<Operation>& operations, const std::vector<Wait>& waits) {
    std::printf("\nSingle operations, in microseconds, each done %zu times\n%-60s %8s %8s   %s\n", kTimes, "",
                "median", "p99", "without fsync()");
    for (size_t i = 0; i < operations.size(); ++i) {
        const Wait& wait = waits[i];
        std::printf("%-60s %8.1f %8.1f", operations[i].name.c_str(), wait.median, wait.p99);
        if (wait.medianUnflushed != wait.median) {
            std::printf("   %8.1f %8.1f", wait.medianUnflushed, wait.p99Unflushed);
        }
        std::printf("\n");
    }
}

} // namespace playback_bench
