#ifndef DISKACCESS_PROGRAM_H
#define DISKACCESS_PROGRAM_H

#include <vector>

#include "cli/command.h"
#include "cli/confinement.h"

namespace diskaccess {

/// The program's commands, in the order in which help shows them.
std::vector<Command> AllCommands();

/// Carries a command line out. Answers go to descriptor 1, complaints to descriptor 2. May be called again and again in a
/// process that does not stay confined.
/// @param confine gives up what the command does not need
/// @return the exit status
int RunProgram(int argc, char** argv, Confiner confine);

} // namespace diskaccess

#endif // DISKACCESS_PROGRAM_H
