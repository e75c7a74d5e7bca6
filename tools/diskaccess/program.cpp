#include "program.h"

#include <exception>
#include <string>

#include "cli/context.h"
#include "cli/output.h"
#include "commands/commands.h"

namespace diskaccess {

namespace {

/// What is done with a disk by itself.
constexpr const char* kDefaultCommand = "journeys";

/// A command on a disk, which shows times.
Command Timed(const char* name, const char* description, Command::AddOptions addFormat) {
    Command command(name, description);
    return command.Takes(AddPartition).Takes(AddZoneOptions).Takes(addFormat).Takes(AddDiskOptions);
}

/// A command that reads the recordings of a disk.
Command OnDisk(const char* name, const char* description) {
    return Timed(name, description, AddFormatOptions).Confined(NeedsOfReading);
}

/// A command that shows the recordings of a disk to people alone.
Command Shown(const char* name, const char* description) {
    return Timed(name, description, AddTextFormatOption)
        .Takes(AddRangeOptions)
        .Takes(AddChannelOption)
        .Takes(AddSilenceOption);
}

/// Opens the disk, and has it answer.
Command::Run Asks(ExitCode (*answer)(Context& context)) {
    return [answer](const Options& options, const std::string& name) {
        Context context(options, name);
        return answer(context);
    };
}

} // namespace

std::vector<Command> AllCommands() {
    return {
        Command("find", "Looks for the partitions of recorders, on all disks or on those named")
            .Takes(AddDisks)
            .Takes(AddVerboseOption)
            .Takes(AddZoneOptions)
            .Takes(AddFormatOptions)
            .Takes(AddSkewOption)
            .Confined(NeedsOfFind)
            .Does([](const Options& options, const std::string& /*name*/) { return Find(options); }),
        OnDisk(kDefaultCommand,
               "What was recorded when, from one silence to the next; also without a command")
            .Takes(AddChannelOption)
            .Takes(AddSilenceOption)
            .Checks(CheckJourneys)
            .Does(Asks(Journeys)),
        Shown("timeline", "What was recorded when, drawn: in the terminal, as a picture or as a page")
            .Takes(AddTimelineOptions)
            .Checks(CheckTimeline)
            .Confined(NeedsOfTimeline)
            .Does(Asks(Timeline)),
        OnDisk("info", "What the partition is: layout, recorded span, vehicle, channels").Does(Asks(Info)),
        OnDisk("list", "The recordings, oldest block first; with --alarm those around events")
            .Takes(AddRangeOptions)
            .Takes(AddChannelOption)
            .Takes(AddAlarmOption)
            .Takes(AddListOptions)
            .Does(Asks(List)),
        OnDisk("events", "The events").Takes(AddRangeOptions).Takes(AddAlarmOption).Does(Asks(Events)),
        OnDisk("days", "A calendar of the days that hold recordings").Does(Asks(Days)),
        OnDisk("units", "The blocks of the ring: recorded ones oldest first, then unusable ones")
            .Does(Asks(Units)),
        OnDisk("space", "How much of the ring was ever written").Does(Asks(Space)),
        OnDisk("check", "How healthy the disk is: what contradicts what, what that means and what to do")
            .Takes(AddCheckOptions)
            .Checks(CheckCheck)
            .Does(Asks(Check)),
        OnDisk("play", "The frames of recordings, a line each")
            .Takes(AddRangeOptions)
            .Takes(AddChannelOption)
            .Takes(AddPlayOptions)
            .Checks(CheckPlay)
            .Does(Asks(Play)),
        OnDisk("still", "The pictures that the channels showed at a moment, as JPEG or PNG files")
            .Takes(AddRangeOptions)
            .Takes(AddChannelOption)
            .Takes(AddStillOptions)
            .Checks(CheckStill)
            .Confined(NeedsOfWriting)
            .Does(Asks(TakeStill)),
        OnDisk("export", "Gets the video and audio of a time range out, as a file that players open")
            .Takes(AddRangeOptions)
            .Takes(AddChannelOption)
            .Takes(AddExportOptions)
            .Takes(AddSilenceOption)
            .Takes(AddEvidenceOptions)
            .Checks(CheckExport)
            .Confined(NeedsOfExport)
            .Does(Asks(Export)),
        Shown("report", "One page to hand on: the disk, its journeys, events with pictures, and its health")
            .Takes(AddReportOptions)
            .Checks(CheckReport)
            .Confined(NeedsOfWriting)
            .Does(Asks(MakeReport)),
        Command("view", "Shows the recordings in the browser: all cameras in step, on a timeline")
            .Takes(AddPartition)
            .Takes(AddZoneOptions)
            .Takes(AddDiskOptions)
            .Takes(AddViewOptions)
            .Checks(CheckView)
            .Confined(NeedsOfView)
            .Does(Asks(View)),
        OnDisk("extract",
               "Copies the blocks of a time range, byte for byte, to an image that opens as the disk does")
            .Takes(AddRangeOptions)
            .Takes(AddChannelOption)
            .Takes(AddExtractOptions)
            .Takes(AddEvidenceOptions)
            .Checks(CheckExtract)
            .Confined(NeedsOfWriting)
            .Does(Asks(Extract)),
        Command("verify", "Whether files are still what was made from a disk, by their manifest")
            .Takes(AddVerifyOptions)
            .Takes(AddVerboseOption)
            .Takes(AddZoneOptions)
            .Takes(AddFormatOptions)
            .Takes(AddDiskOptions)
            .Confined(NeedsOfVerify)
            .Does([](const Options& options, const std::string& /*name*/) { return Verify(options); }),
        Command("catalog",
                "What is on many disks, kept in a database: which vehicle was recorded when, and where")
            .Takes(AddCatalogOptions)
            .Takes(AddVerboseOption)
            .Takes(AddZoneOptions)
            .Takes(AddFormatOptions)
            .Takes(AddDiskOptions)
            .Checks(CheckCatalog)
            .Confined(NeedsOfCatalog)
            .Does(Catalogue),
        Command("dump", "The partition field by field, as it lies on the disk: for those who know the format")
            .Takes(AddPartition)
            .Takes(AddZoneOptions)
            .Takes(AddTextFormatOption)
            .Takes(AddPartitionNumber)
            .Takes(AddDumpOptions)
            .Confined(NeedsOfReading)
            .Does([](const Options& options, const std::string& /*name*/) { return Dump(options); }),
    };
}

int RunProgram(int argc, char** argv, Confiner confine) {
    try {
        return RunCommandLine(AllCommands(), kDefaultCommand, argc, argv, confine);
    } catch (const std::exception& error) {
        Complain(error.what());
        return kFailed;
    }
}

} // namespace diskaccess
