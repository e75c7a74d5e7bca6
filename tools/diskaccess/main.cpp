// diskaccess: what is on a recorder's partition.

#include <CLI/CLI.hpp>

#include <malloc.h>

#include <csignal>
#include <functional>
#include <map>

#include "cli/failure.h"
#include "cli/job.h"
#include "commands/commands.h"
#include "completion/completion.h"

namespace {

using namespace diskaccess;

struct Command {
    const char* name;
    const char* description;
    ExitCode (*run)(const Options& options, const char* name);
    bool asksDisk; ///< and so takes what it takes to do that right: disk type, clock skew, password
    bool takesRange;
    bool takesChannels;
    bool takesAlarm;
    void (*addOptions)(CLI::App& command, Options& options);
};

/// Runs a command that writes its answer piece by piece.
template <ExitCode (*Answer)(Job& job)>
ExitCode Tell(const Options& options, const char* name) {
    Job job(options, name);
    return Answer(job);
}

/// Runs a command whose whole answer is a report.
template <Report (*Make)(Job& job)>
ExitCode Show(const Options& options, const char* name) {
    Job job(options, name);
    return job.Finish(Make(job));
}

void AddListOptions(CLI::App& command, Options& options) {
    command.add_flag("--mix", options.mix, "Cut the recordings where alarms begin and end");
}

ExitCode RunDump(const Options& options, const char* /*name*/) {
    return Dump(options);
}

void AddPlayOptions(CLI::App& command, Options& options) {
    auto* const record = command
                             .add_option("--record", options.record,
                                         "Play one record, as list shows it (segment 0 if left out)")
                             ->option_text("BLOCK/CHANNEL/SEGMENT");
    command.add_option("--unit", options.unit, "Play a whole block, every channel")
        ->option_text("BLOCK")
        ->excludes(record);
    command.add_option("--seek", options.seek, "Begin at the first key frame at or after TIME")
        ->option_text("TIME");
    auto* const iframes = command.add_flag("--iframes", options.iframes, "Step from key frame to key frame");
    command.add_flag("--backward", options.backward, "With --iframes: from the last to the first")
        ->needs(iframes);
}

void AddExportOptions(CLI::App& command, Options& options) {
    command
        .add_option(
            "-o,--output", options.output,
            "File to write; with --raw, what the files' names begin with. FILE.json says what is in it")
        ->option_text("FILE")
        ->type_name("FILE")
        ->required();
    command.add_flag("--raw", options.raw,
                     "Elementary streams as the cameras delivered them, one file a channel and kind");
    command
        .add_option("--container", options.container,
                    "matroska or mp4 (default: as FILE ends, else matroska)")
        ->transform(CLI::CheckedTransformer(
            std::map<std::string, std::string>{{"matroska", "matroska"}, {"mkv", "matroska"}, {"mp4", "mp4"}},
            CLI::ignore_case))
        ->option_text("KIND");
    command
        .add_option("--audio", options.audio,
                    "How audio is encoded, if the disk does not tell: alaw, mulaw, pcm16 or a name of "
                    "libavcodec's, and samples a second, like alaw:8000")
        ->option_text("CODEC:RATE");
    command.add_flag("--force", options.force, "Replace files that exist; never the source");
}

void AddDumpOptions(CLI::App& command, Options& options) {
    command
        .add_option(
            "--level", options.level,
            "-1: size; 1: and head; 0: and bad-block tables; 2: head and blocks; 3: and their indexes")
        ->option_text("N")
        ->default_str("3");
    command.add_flag("--attach", options.attach,
                     "Attach an image file to a loop device for the dump, read-only; takes root");
}

void AddNoOptions(CLI::App& /*command*/, Options& /*options*/) {}

constexpr Command kCommands[] = {
    {"info", "What the partition is: layout, recorded span, vehicle, channels", Show<Info>, true, false,
     false, false, AddNoOptions},
    {"list", "The recordings, oldest block first; with --alarm those around events", Show<List>, true, true,
     true, true, AddListOptions},
    {"events", "The events", Show<Events>, true, true, false, true, AddNoOptions},
    {"days", "A calendar of the days that hold recordings (the recorder's own days, UTC)", Show<Days>, true,
     false, false, false, AddNoOptions},
    {"units", "The blocks of the ring: recorded ones oldest first, then unusable ones", Show<Units>, true,
     false, false, false, AddNoOptions},
    {"space", "How much of the ring was ever written", Show<Space>, true, false, false, false, AddNoOptions},
    {"play", "The frames of recordings, a line each", Tell<Play>, true, true, true, false, AddPlayOptions},
    {"export", "Gets the video and audio of a time range out, as a file that players open", Tell<Export>,
     true, true, true, false, AddExportOptions},
    {"dump", "The partition field by field, as it lies on the block device: for those who know the format",
     RunDump, false, false, false, false, AddDumpOptions},
};

constexpr const char* kFooter =
    "A TIME is '2026-11-20 14:30:00' (an offset like +01:00 or Z may follow), 2026-11-20,\n"
    "14:30 (today), today, yesterday, now, -2h (also s, m, d, w), or @1700000000.\n"
    "Exit status: 0 done, 1 failed or incomplete, 2 wrong use, 3 done but data was lost.";

void AddCommonOptions(CLI::App& command, Options& options) {
    command
        .add_option("PARTITION", options.partition,
                    "The recorder's partition: a block device or an image file")
        ->type_name("FILE")
        ->required();
    auto* const zone = command
                           .add_option("--tz", options.zone,
                                       "Zone of all times, like Europe/Berlin (default: this "
                                       "machine's)")
                           ->option_text("ZONE");
    command
        .add_flag_callback(
            "--utc", [&options] { options.zone = "UTC"; }, "Short for --tz UTC")
        ->excludes(zone);
    command.footer(kFooter);
}

void AddFormatOptions(CLI::App& command, bool textOnly, Options& options) {
    static const std::map<std::string, Format> formats = {
        {"text", Format::Text}, {"json", Format::Json}, {"ndjson", Format::Ndjson}, {"csv", Format::Csv}};
    command
        .add_option("--format", options.format, textOnly ? "text, the only one" : "text, json, ndjson or csv")
        ->transform(textOnly ? CLI::Transformer(formats, CLI::ignore_case).description("{text}")
                             : CLI::Transformer(formats, CLI::ignore_case))
        ->option_text("FORMAT")
        ->default_str("text");
    if (!textOnly) {
        command.add_flag_callback(
            "--json", [&options] { options.format = Format::Json; }, "Short for --format json");
    }
}

void AddDiskOptions(CLI::App& command, Options& options) {
    command
        .add_option("--skew", options.skew, "Seconds that the recorder's clock was ahead (negative: behind)")
        ->option_text("SECONDS");
    command
        .add_option("--disk-type", options.diskType,
                    "The recorder's disk type code (default: as the head says)")
        ->option_text("CODE");
    auto* const file = command
                           .add_option("--password-file", options.passwordFile,
                                       "File whose first line is the disk's password")
                           ->option_text("FILE")
                           ->type_name("FILE");
    command
        .add_flag("--ask-password", options.askPassword,
                  "Ask for the disk's password (else: environment variable DISKACCESS_PASSWORD)")
        ->excludes(file);
    command.add_flag("--verbose", options.verbose, "Show the library's messages on standard error");
}

void AddSearchOptions(CLI::App& command, const Command& description, Options& options) {
    if (description.takesRange) {
        command.add_option("--from", options.from, "First second (a date: its first)")->option_text("TIME");
        command.add_option("--to", options.to, "Last second (a date: its last)")->option_text("TIME");
    }
    if (description.takesRange) {
        command.add_flag(
            "--every-block", options.everyBlock,
            "Also look where the times of the blocks do not lead: for a recorder whose clock was "
            "set back");
    }
    if (description.takesChannels) {
        command.add_option("--channel", options.channels, "Channels, like 0,2-4 (default: all)")
            ->option_text("LIST");
    }
    if (description.takesAlarm) {
        command.add_option("--alarm", options.alarm, "Event types: the sum of their bits, like 0x5, or all")
            ->option_text("MASK");
    }
}

int Run(const Command& command, const Options& options) {
    try {
        return command.run(options, command.name);
    } catch (const Failure& failure) {
        Complain(failure.what());
        return failure.Code();
    }
}

/// The library resizes a payload's buffer to every frame. Buffers that the C library maps by themselves are
/// mapped anew each time, and key frames are large enough for that: they are kept in the heap.
void KeepPayloadsInTheHeap() {
    mallopt(M_MMAP_THRESHOLD, 32 << 20);
    mallopt(M_TRIM_THRESHOLD, 64 << 20);
}

int RunProgram(int argc, char** argv) {
    KeepPayloadsInTheHeap();
    OccupyStandardDescriptors();
    std::signal(SIGPIPE, SIG_IGN); // a closed pipe shows as a failed write, which is no error

    CLI::App app("Shows what is on a video recorder's recording partition. Only ever reads it.",
                 "diskaccess");
    app.set_version_flag("--version", "diskaccess " DISKACCESS_VERSION);
    app.require_subcommand(1);
    app.footer(kFooter);
    Options options;
    int result = kDone;
    for (const Command& command : kCommands) {
        CLI::App* const sub = app.add_subcommand(command.name, command.description);
        AddCommonOptions(*sub, options);
        AddFormatOptions(*sub, !command.asksDisk, options);
        if (command.asksDisk) {
            AddDiskOptions(*sub, options);
        }
        AddSearchOptions(*sub, command, options);
        command.addOptions(*sub, options);
        sub->callback([&result, &options, &command] { result = Run(command, options); });
    }
    completion::AddCommand(app);
    try {
        app.parse(argc, argv);
    } catch (const CLI::Success& success) {
        return app.exit(success);
    } catch (const CLI::ParseError& error) {
        app.exit(error);
        return kWrongUse;
    }
    return result;
}

} // namespace

int main(int argc, char** argv) {
    try {
        return RunProgram(argc, argv);
    } catch (const std::exception& error) {
        Complain(error.what());
        return kFailed;
    }
}
