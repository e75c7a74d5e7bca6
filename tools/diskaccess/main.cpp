// diskaccess: what is on a recorder's partition.

#include <malloc.h>

#include <csignal>
#include <exception>

#include "cli/command.h"
#include "cli/job.h"
#include "cli/output.h"
#include "commands/commands.h"

namespace {

using namespace diskaccess;

/// A command that reads the recordings of a disk.
Command OnDisk(const char* name, const char* description) {
    Command command(name, description);
    return command.Takes(AddPartition).Takes(AddZoneOptions).Takes(AddFormatOptions).Takes(AddDiskOptions);
}

/// Runs a command whose whole answer is a report.
Command::Run Shows(Report (*make)(Job& job)) {
    return [make](const Options& options, const std::string& name) {
        Job job(options, name);
        return job.Finish(make(job));
    };
}

/// Runs a command that writes its answer piece by piece.
Command::Run Tells(ExitCode (*answer)(Job& job)) {
    return [answer](const Options& options, const std::string& name) {
        Job job(options, name);
        return answer(job);
    };
}

std::vector<Command> AllCommands() {
    return {
        OnDisk("info", "What the partition is: layout, recorded span, vehicle, channels").Does(Shows(Info)),
        OnDisk("list", "The recordings, oldest block first; with --alarm those around events")
            .Takes(AddRangeOptions)
            .Takes(AddChannelOption)
            .Takes(AddAlarmOption)
            .Takes(AddListOptions)
            .Does(Shows(List)),
        OnDisk("events", "The events").Takes(AddRangeOptions).Takes(AddAlarmOption).Does(Shows(Events)),
        OnDisk("days", "A calendar of the days that hold recordings (the recorder's own days, UTC)")
            .Does(Shows(Days)),
        OnDisk("units", "The blocks of the ring: recorded ones oldest first, then unusable ones")
            .Does(Shows(Units)),
        OnDisk("space", "How much of the ring was ever written").Does(Shows(Space)),
        OnDisk("play", "The frames of recordings, a line each")
            .Takes(AddRangeOptions)
            .Takes(AddChannelOption)
            .Takes(AddPlayOptions)
            .Does(Tells(Play)),
        OnDisk("export", "Gets the video and audio of a time range out, as a file that players open")
            .Takes(AddRangeOptions)
            .Takes(AddChannelOption)
            .Takes(AddExportOptions)
            .Does(Tells(Export)),
        Command("dump", "The partition field by field, as it lies on the block device: for those who know "
                        "the format")
            .Takes(AddPartition)
            .Takes(AddZoneOptions)
            .Takes(AddTextFormatOption)
            .Takes(AddDumpOptions)
            .Does([](const Options& options, const std::string& /*name*/) { return Dump(options); }),
    };
}

/// The library resizes a payload's buffer to every frame. Buffers that the C library maps by themselves are
/// mapped anew each time, and key frames are large enough for that: they are kept in the heap.
void KeepPayloadsInTheHeap() {
    mallopt(M_MMAP_THRESHOLD, 32 << 20);
    mallopt(M_TRIM_THRESHOLD, 64 << 20);
}

} // namespace

int main(int argc, char** argv) {
    try {
        KeepPayloadsInTheHeap();
        OccupyStandardDescriptors();
        std::signal(SIGPIPE, SIG_IGN); // a closed pipe shows as a failed write, which is no error
        return RunCommandLine(AllCommands(), argc, argv);
    } catch (const std::exception& error) {
        Complain(error.what());
        return kFailed;
    }
}
