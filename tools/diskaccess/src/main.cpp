// diskaccess: what is on a recorder's partition.

#include <CLI/CLI.hpp>

#include <csignal>
#include <functional>
#include <map>

#include "commands.h"
#include "failure.h"
#include "session.h"

namespace {

using namespace diskaccess;

struct Command {
    const char* name;
    const char* description;
    Report (*run)(Session& session);
    bool takesRange;
    bool takesChannels;
    bool takesAlarm;
};

constexpr Command kCommands[] = {
    {"info", "What the partition is: layout, recorded span, vehicle, channels", Info, false, false, false},
    {"list", "The recordings, oldest block first; with --alarm those around events", List, true, true, true},
    {"events", "The events", Events, true, false, true},
    {"days", "A calendar of the days that hold recordings (the recorder's own days, UTC)", Days, false, false,
     false},
    {"units", "The blocks of the ring: recorded ones oldest first, then unusable ones", Units, false, false,
     false},
    {"space", "How much of the ring was ever written", Space, false, false, false},
};

constexpr const char* kFooter =
    "A TIME is '2026-11-20 14:30:00' (an offset like +01:00 or Z may follow), 2026-11-20,\n"
    "14:30 (today), today, yesterday, now, -2h (also s, m, d, w), or @1700000000.\n"
    "Exit status: 0 done, 1 failed or incomplete, 2 wrong use, 3 done but data was lost.";

void AddCommonOptions(CLI::App& command, Options& options) {
    static const std::map<std::string, Format> formats = {
        {"text", Format::Text}, {"json", Format::Json}, {"ndjson", Format::Ndjson}, {"csv", Format::Csv}};
    command
        .add_option("PARTITION", options.partition,
                    "The recorder's partition: a block device or an image file")
        ->required();
    command.add_option("--format", options.format, "text, json, ndjson or csv")
        ->transform(CLI::Transformer(formats, CLI::ignore_case).description(""))
        ->option_text("FORMAT")
        ->default_str("text");
    command.add_flag_callback(
        "--json", [&options] { options.format = Format::Json; }, "Short for --format json");
    auto* const zone = command
                           .add_option("--tz", options.zone,
                                       "Zone of all times, like Europe/Berlin (default: this "
                                       "machine's)")
                           ->option_text("ZONE");
    command
        .add_flag_callback(
            "--utc", [&options] { options.zone = "UTC"; }, "Short for --tz UTC")
        ->excludes(zone);
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
                           ->option_text("FILE");
    command
        .add_flag("--ask-password", options.askPassword,
                  "Ask for the disk's password (else: environment variable DISKACCESS_PASSWORD)")
        ->excludes(file);
    command.add_flag("--verbose", options.verbose, "Show the library's messages on standard error");
    command.footer(kFooter);
}

void AddSearchOptions(CLI::App& command, const Command& description, Options& options) {
    if (description.takesRange) {
        command.add_option("--from", options.from, "First second (a date: its first)")->option_text("TIME");
        command.add_option("--to", options.to, "Last second (a date: its last)")->option_text("TIME");
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
        Session session(options, command.name);
        Report report = command.run(session);
        return session.Finish(std::move(report));
    } catch (const Failure& failure) {
        Complain(failure.what());
        return failure.Code();
    }
}

int RunProgram(int argc, char** argv) {
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
        AddSearchOptions(*sub, command, options);
        sub->callback([&result, &options, &command] { result = Run(command, options); });
    }
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
