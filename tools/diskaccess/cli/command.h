#ifndef DISKACCESS_COMMAND_H
#define DISKACCESS_COMMAND_H

#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "cli/confinement.h"
#include "cli/failure.h"
#include "cli/options.h"

namespace diskaccess {

/// A command of the program: its name, the options it takes, and what it does.
class Command {
public:
    using AddOptions = void (*)(CLI::App& command, Options& options);
    using Check = void (*)(const Options& options);
    using NeedsOf = std::optional<Needs> (*)(const Options& options);
    using Run = std::function<ExitCode(const Options& options, const std::string& name)>;
    using Chosen = std::function<void(const CLI::App& typed)>;

    Command(std::string name, std::string description);

    /// Adds options. Help shows them in the order in which they were added.
    Command& Takes(AddOptions add);
    /// Looks at the options before anything is read. What is wrong with them is thrown.
    Command& Checks(Check check);
    /// @param needs what the command needs of the system, which it is confined to before it reads anything; nothing: it
    ///              cannot be confined
    Command& Confined(NeedsOf needs);
    Command& Does(Run run);

    const std::string& Name() const { return m_name; }
    ExitCode Execute(const Options& options, Confiner confine) const;
    /// Makes the command known to the command line.
    /// @param chosen called when the user types it, with the command line's part that is the command's
    void AddTo(CLI::App& app, Options& options, const Chosen& chosen) const;

private:
    std::string m_name;
    std::string m_description;
    std::vector<AddOptions> m_options;
    Check m_check = nullptr;
    NeedsOf m_needs = nullptr;
    Run m_run;
};

/// Reads a command line and carries it out.
/// @param defaultCommand name of the one that is meant when the first argument is no command, but a file
/// @param confine        gives up what the command does not need
/// @return the program's exit status
int RunCommandLine(const std::vector<Command>& commands, const std::string& defaultCommand, int argc,
                   char** argv, Confiner confine);

} // namespace diskaccess

#endif // DISKACCESS_COMMAND_H
