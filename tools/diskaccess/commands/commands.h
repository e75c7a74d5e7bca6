#ifndef DISKACCESS_COMMANDS_H
#define DISKACCESS_COMMANDS_H

#include <optional>

#include "cli/confinement.h"
#include "cli/context.h"

namespace diskaccess {

// The commands, one file each: what the disk is asked, and how the answer is laid out. Each returns the exit status.

ExitCode Info(Context& context);
ExitCode Journeys(Context& context);
ExitCode Timeline(Context& context);
ExitCode List(Context& context);
ExitCode Events(Context& context);
ExitCode Days(Context& context);
ExitCode Units(Context& context);
ExitCode Space(Context& context);
ExitCode Check(Context& context);
ExitCode Play(Context& context);
ExitCode TakeStill(Context& context);
ExitCode Export(Context& context);
ExitCode Extract(Context& context);
ExitCode MakeReport(Context& context);
ExitCode View(Context& context);

// What is wrong with the options of a command alone, thrown before anything is read.

void CheckTimeline(const Options& options);
void CheckJourneys(const Options& options);
void CheckPlay(const Options& options);
void CheckCheck(const Options& options);
void CheckStill(const Options& options);
void CheckExport(const Options& options);
void CheckReport(const Options& options);
void CheckView(const Options& options);
void CheckExtract(const Options& options);

// What commands need of the system. Those that only show something need nothing but the source.

std::optional<Needs> NeedsOfFind(const Options& options);
std::optional<Needs> NeedsOfReading(const Options& options);
std::optional<Needs> NeedsOfWriting(const Options& options);
std::optional<Needs> NeedsOfExport(const Options& options);
std::optional<Needs> NeedsOfView(const Options& options);
std::optional<Needs> NeedsOfTimeline(const Options& options);
std::optional<Needs> NeedsOfVerify(const Options& options);
/// Makes the user's data folder if the catalogue is to lie there: once confined, no folder can be made.
std::optional<Needs> NeedsOfCatalog(const Options& options);

/// Looks for the partitions of recorders on disks: on all of this machine where none is named.
ExitCode Find(const Options& options);
/// Holds a manifest against its files and, if one is given, the source.
ExitCode Verify(const Options& options);
/// What is on many disks, in a database.
ExitCode Catalogue(const Options& options, const std::string& command);
/// Looks at the options of that command.
/// @throws WrongUse
void CheckCatalog(const Options& options);

/// Takes any device as it is, also one that holds no partition.
ExitCode Dump(const Options& options);

} // namespace diskaccess

#endif // DISKACCESS_COMMANDS_H
