// Everything that can still be read from a recorder's disk: its recordings, its events, every frame past whatever is
// damaged, and at last what is lost.
//
//   read_everything DEVICE_OR_IMAGE

#include <cinttypes>
#include <cstdio>
#include <ctime>
#include <string>

#include "recordings/disk.h"
#include "recordings/error.h"
#include "recordings/range_frames.h"
#include "recordings/records.h"

namespace {

std::string UtcText(int64_t seconds) {
    const auto time = static_cast<time_t>(seconds);
    std::tm parts = {};
    char text[32] = "";
    if (gmtime_r(&time, &parts) != nullptr) {
        std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &parts);
    }
    return text;
}

void PrintRecord(const recordings::Record& record) {
    std::printf("block %5u  channel %2u  %s to %s  %" PRIu64 " bytes%s\n", record.block, record.channel,
                UtcText(record.start).c_str(), UtcText(record.end).c_str(), record.bytes,
                record.closed ? "" : "  (never closed)");
}

int ReadEverything(const char* path) {
    const recordings::Disk disk(recordings::OpenSource(path));
    const recordings::BlockList blocks = recordings::BlockList::Read(disk);
    recordings::ProblemList problems;

    recordings::ForEachRecord(disk, blocks, {}, problems.Sink(), {}, PrintRecord);
    for (const recordings::Event& event :
         recordings::FindEvents(disk, blocks, {}, recordings::kAllEvents, problems.Sink())) {
        std::printf("event 0x%" PRIx64 " at %s\n", event.type, UtcText(event.time).c_str());
    }

    uint64_t count = 0;
    uint64_t bytes = 0;
    recordings::RangeFrames frames(disk, blocks, {}, problems.Sink());
    for (recordings::Frame frame; frames.Next(frame); ++count) {
        bytes += frame.size; // frame.data holds them, until the next call
    }
    std::printf("%" PRIu64 " frames, %" PRIu64 " bytes\n", count, bytes);

    const auto timeText = [](int64_t micros) { return UtcText(micros / 1000000); };
    for (const recordings::Problem& problem : problems.All()) {
        std::printf("%s: %s\n", problem.severity == recordings::Severity::Loss ? "LOST" : "note",
                    recordings::Describe(problem, timeText).c_str());
    }
    return problems.AnyLoss() ? 3 : 0;
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: read_everything DEVICE_OR_IMAGE\n");
        return 2;
    }
    try {
        return ReadEverything(argv[1]);
    } catch (const recordings::Error& error) {
        std::fprintf(stderr, "%s\n", error.what());
        return 1;
    }
}
