#ifndef DISKACCESS_COMMANDS_H
#define DISKACCESS_COMMANDS_H

#include "report.h"
#include "session.h"

namespace diskaccess {

/// The commands, one file each: what the partition is asked, and how the answer is laid out.

Report Info(Session& session);
Report List(Session& session);
Report Events(Session& session);
Report Days(Session& session);
Report Units(Session& session);
Report Space(Session& session);

/// The commands that write as they go.

ExitCode Play(Session& session);
ExitCode Export(Session& session);

/// The command that takes any device as it is, without a session.

ExitCode Dump(const Options& options);

} // namespace diskaccess

#endif // DISKACCESS_COMMANDS_H
