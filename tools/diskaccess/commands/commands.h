#ifndef DISKACCESS_COMMANDS_H
#define DISKACCESS_COMMANDS_H

#include "cli/job.h"
#include "render/report.h"

namespace diskaccess {

/// The commands, one file each: what the partition is asked, and how the answer is laid out.

Report Info(Job& job);
Report List(Job& job);
Report Events(Job& job);
Report Days(Job& job);
Report Units(Job& job);
Report Space(Job& job);

/// The commands that write as they go.

ExitCode Play(Job& job);
ExitCode Export(Job& job);

/// The command that takes any device as it is, without a job.

ExitCode Dump(const Options& options);

} // namespace diskaccess

#endif // DISKACCESS_COMMANDS_H
