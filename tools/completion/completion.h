#ifndef COMPLETION_COMPLETION_H
#define COMPLETION_COMPLETION_H

#include <CLI/CLI.hpp>

namespace completion {

/// Adds the command "completion SHELL", which prints a script that has bash, zsh or fish complete @p program's
/// command line. The script is made from the program's own tables: commands and options with their
/// descriptions, and what their values may be. An option or argument of type FILE takes files, one whose
/// validator names its values in braces, as OneOf (values.h) does, takes these.
///
/// Called last, when the program has all its commands.
void AddCommand(CLI::App& program);

} // namespace completion

#endif // COMPLETION_COMPLETION_H
