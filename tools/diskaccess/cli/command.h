#ifndef DISKACCESS_COMMAND_H
#define DISKACCESS_COMMAND_H

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "cli/failure.h"
#include "cli/options.h"

namespace diskaccess {

/// A command of the program: its name, the options it takes, and what it does.
class Command {
public:
    using AddOptions = void (*)(CLI::App& command, Options& options);
    using Run = std::function<ExitCode(const Options& options, const std::string& name)>;

    Command(std::string name, std::string description);

    /// Adds options. Help shows them in the order in which they were added.
    Command& Takes(AddOptions add);
    Command& Does(Run run);

    ExitCode Execute(const Options& options) const { return m_run(options, m_name); }
    /// Makes the command known to the command line.
    /// @param chosen called when the user types it
    void AddTo(CLI::App& app, Options& options, const std::function<void()>& chosen) const;

private:
    std::string m_name;
    std::string m_description;
    std::vector<AddOptions> m_options;
    Run m_run;
};

/// Reads a command line and carries it out.
/// @return the program's exit status
int RunCommandLine(const std::vector<Command>& commands, int argc, char** argv);

} // namespace diskaccess

#endif // DISKACCESS_COMMAND_H
