// diskaccess-sample: makes partitions to try a reader on.

#include <CLI/CLI.hpp>

#include <chrono>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <system_error>

#include "completion/completion.h"
#include "sample_recorder/generated_source.h"
#include "sample_recorder/indexed_ring.h"
#include "sample_recorder/live_recording.h"
#include "sample_recorder/partition_image.h"
#include "sample_recorder/recorder.h"
#include "sample_recorder/scenario.h"

namespace {

using namespace sample_recorder;

constexpr int kFailed = 1;
constexpr int kWrongUse = 2;

/// The last second that the recorder's clock can tell.
constexpr uint32_t kLastSecond = 0xFFFFFFFF;

struct Options {
    std::string output;
    std::string scenario;
    std::string media;
    uint64_t blocks = 16;
    uint64_t blockSize = 0x400000;
    std::string layout = "normal";
    uint32_t channels = 4;
    uint32_t seed = 1;
    uint32_t start = 1700000000;
    uint32_t seconds = 600;
    bool cutPower = false;
    double speed = 1;
    double realSeconds = 0;
    uint32_t eventPeriod = 0;
};

Format FormatOf(const Options& options) {
    Format format;
    format.fmtVersion = options.layout == "extended" ? 1 : 0;
    format.blockCount = static_cast<uint32_t>(options.blocks);
    format.blockSize = static_cast<uint32_t>(options.blockSize);
    return format;
}

void Record(const Options& options) {
    const std::string beside = std::filesystem::path(options.scenario).parent_path().string();
    const std::string media = !options.media.empty() ? options.media : beside.empty() ? "." : beside;
    RecordScenario(options.scenario, media, options.output);
}

/// Generated cameras for the channels asked for, and what the recorder says of them.
MergedSource OpenCameras(const Options& options, uint32_t seconds, RecorderSettings& settings) {
    MergedSource frames;
    for (uint32_t chn = 0; chn < options.channels; ++chn) {
        GeneratedCamera camera;
        camera.channel = chn;
        camera.framesPerSecond = 10 + chn % 16;
        camera.audioFrameBytes = chn % 2 == 0 ? 320 : 0;
        settings.channels |= 1u << chn;
        settings.properties.at(chn).FrameRate = static_cast<uint8_t>(camera.framesPerSecond);
        settings.properties.at(chn).gop = static_cast<uint8_t>(camera.gop);
        frames.Add(std::make_unique<GeneratedSource>(camera, options.seed, options.start, seconds));
    }
    return frames;
}

void EndRecording(Recorder& recorder, const Options& options) {
    if (options.cutPower) {
        recorder.CutPower();
    } else {
        recorder.PowerOff();
    }
}

void Generate(const Options& options) {
    if (options.seconds > kLastSecond - options.start) {
        throw Error("--start and --seconds: a recording must end by 2106-02-07T06:28:15Z");
    }
    PartitionImage image = PartitionImage::Create(options.output, FormatOf(options));
    RecorderSettings settings;
    MergedSource frames = OpenCameras(options, options.seconds, settings);
    Recorder recorder(image, settings);
    Frame frame;
    while (frames.Next(frame)) {
        recorder.Write(frame);
    }
    EndRecording(recorder, options);
}

/// Runs what makes a partition, and leaves none behind that is not whole.
void MakeWhole(const Options& options, void (*make)(const Options&)) {
    // What is there is nobody's to remove, be it a link that leads nowhere, or have it come up a moment ago.
    const bool existed = std::filesystem::exists(std::filesystem::symlink_status(options.output));
    try {
        make(options);
    } catch (const AlreadyThere&) {
        throw;
    } catch (...) {
        std::error_code ignored;
        if (!existed) {
            std::filesystem::remove(options.output, ignored);
        }
        throw;
    }
}

volatile std::sig_atomic_t g_interrupted = 0;

void Interrupt(int /*signal*/) {
    g_interrupted = 1;
}

/// Records in real time, or faster, until its time is over or somebody interrupts it.
void RecordLive(const Options& options) {
    using Clock = LiveRecording::Clock;
    std::signal(SIGINT, Interrupt);
    std::signal(SIGTERM, Interrupt);
    PartitionImage image = PartitionImage::Create(options.output, FormatOf(options));
    RecorderSettings settings;
    MergedSource frames = OpenCameras(options, kLastSecond - options.start, settings);
    Recorder recorder(image, settings);
    const Clock::time_point begin = Clock::now();
    LiveRecording live(recorder, frames, options.speed, begin);
    live.RepeatEvents(options.eventPeriod, 0);
    const auto end = begin + std::chrono::duration_cast<Clock::duration>(
                                 std::chrono::duration<double>(options.realSeconds));
    live.Run([&] { return g_interrupted != 0 || (options.realSeconds > 0 && Clock::now() >= end); });
    if (g_interrupted == 0 && options.realSeconds > 0) {
        live.WriteDue(end); // on a busy machine it may have fallen behind
    }
    EndRecording(recorder, options);
    std::fprintf(stderr, "%llu frames in %u blocks\n", static_cast<unsigned long long>(live.FramesWritten()),
                 recorder.BlocksOpened());
}

void MakeRing(const Options& options) {
    IndexedRing ring;
    if (options.blocks > (kLastSecond - options.start) / ring.secondsPerBlock) {
        throw Error("--start and --blocks: a ring must end by 2106-02-07T06:28:15Z; each block holds " +
                    std::to_string(ring.secondsPerBlock) + " seconds");
    }
    PartitionImage image = PartitionImage::Create(options.output, FormatOf(options));
    ring.newest = static_cast<uint32_t>(options.blocks / 3);
    ring.firstTime = options.start;
    ring.channels = options.channels;
    WriteIndexedRing(image, ring);
}

/// Ranges let through what is no number.
std::string CheckNumber(const std::string& text) {
    return std::isnan(std::strtod(text.c_str(), nullptr)) ? text + " is no number" : std::string();
}

void AddGeometry(CLI::App& command, Options& options) {
    command.add_option("OUTPUT", options.output, "File to make; never an existing one")
        ->type_name("FILE")
        ->required();
    command.add_option("--blocks", options.blocks, "Blocks in the ring")
        ->capture_default_str()
        ->check(CLI::Range(1u, 0x400000u));
    command.add_option("--block-size", options.blockSize, "Bytes a block: 65536, 8MiB, ...")
        ->capture_default_str()
        ->transform(CLI::AsSizeValue(false))
        ->check(CLI::Range(8192u, 0x80000000u));
    command.add_option("--layout", options.layout, "Block layout")
        ->capture_default_str()
        ->check(CLI::IsMember({"normal", "extended"}));
    command.add_option("--channels", options.channels, "Cameras")
        ->capture_default_str()
        ->check(CLI::Range(1, 32));
    command.add_option("--start", options.start, "First second of the recording, seconds since 1970")
        ->capture_default_str()
        ->check(CLI::Range(0u, 4000000000u));
}

int RunProgram(int argc, char** argv) {
    CLI::App app("Makes sample recording partitions in files, as a recorder in a vehicle would write them.",
                 "diskaccess-sample");
    app.set_version_flag("--version", DISKACCESS_VERSION);
    app.require_subcommand(1);
    Options options;

    CLI::App* const record = app.add_subcommand("record", "Record real video and audio as a scenario says");
    record->add_option("SCENARIO", options.scenario, "The scenario, in JSON")->type_name("FILE")->required();
    record->add_option("OUTPUT", options.output, "File to make; never an existing one")
        ->type_name("FILE")
        ->required();
    record->add_option("--media", options.media, "Where the scenario's files lie (default: beside it)")
        ->type_name("FILE");
    record->callback([&] { MakeWhole(options, Record); });

    CLI::App* const generate = app.add_subcommand("generate", "Record frames made from a seed");
    AddGeometry(*generate, options);
    generate->add_option("--seed", options.seed, "Seed of the frames")->capture_default_str();
    generate->add_option("--seconds", options.seconds, "Length of the recording")->capture_default_str();
    generate->add_flag("--cut-power", options.cutPower, "Leave the last block as a power failure would");
    generate->callback([&] { MakeWhole(options, Generate); });

    CLI::App* const live = app.add_subcommand(
        "live", "Record frames made from a seed as time goes by, for readers that look on meanwhile");
    AddGeometry(*live, options);
    live->add_option("--seed", options.seed, "Seed of the frames")->capture_default_str();
    live->add_option("--speed", options.speed, "Recorded seconds a second")
        ->capture_default_str()
        ->check(CheckNumber)
        ->check(CLI::Range(0.01, 100000.0));
    live->add_option("--for", options.realSeconds, "Seconds until it stops by itself; 0: when interrupted")
        ->capture_default_str()
        ->check(CheckNumber)
        ->check(CLI::Range(0.0, 1e9));
    live->add_option("--events", options.eventPeriod, "Recorded seconds from event to event; 0: none")
        ->capture_default_str();
    live->add_flag("--cut-power", options.cutPower, "Leave the last block as a power failure would");
    live->footer(
        "The blocks are written in a recorder's order: head, frames, and when the block is full its index\n"
        "and tail; then the next block, round and round. Search and play the file meanwhile:\n"
        "  diskaccess-sample live ring.img --blocks 64 --block-size 1MiB --speed 60 --events 30 --for 120 &\n"
        "  diskaccess list ring.img");
    live->callback([&] { RecordLive(options); });

    CLI::App* const ring = app.add_subcommand("ring", "Make a full, wrapped ring of indexes without frames");
    AddGeometry(*ring, options);
    ring->callback([&] { MakeWhole(options, MakeRing); });

    completion::AddCommand(app);
    try {
        app.parse(argc, argv);
    } catch (const CLI::Success& success) {
        return app.exit(success);
    } catch (const CLI::ParseError& error) {
        app.exit(error);
        return kWrongUse;
    }
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    try {
        return RunProgram(argc, argv);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "diskaccess-sample: %s\n", error.what());
        return kFailed;
    }
}
