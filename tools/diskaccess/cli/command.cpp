#include "cli/command.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <filesystem>
#include <new>

#include "cli/output.h"
#include "cli/problems.h"
#include "cli/usage_error.h"
#include "completion/completion.h"

namespace diskaccess {

namespace {

ExitCode Execute(const Command& command, const CLI::App& typed, const Options& options, Confiner confine) {
    try {
        RefuseEmptyValues(typed);
        return command.Execute(options, confine);
    } catch (const NobodyReads&) {
        return kDone; // a closed pipe is not an error
    } catch (const Failure& failure) {
        Complain(failure.what());
        return failure.Code();
    } catch (const recordings::Error& error) {
        Complain(ToFailure(error).what());
        return kFailed;
    } catch (const std::bad_alloc&) {
        Complain("memory is short; give the program more, or ask for a shorter time");
        return kFailed;
    }
}

/// Makes names of files of what follows "--", whatever it begins with: the parser knows no "--" after a command.
void TakeNamesAfterDashes(std::vector<std::string>& arguments) {
    const auto dashes = std::find(arguments.begin(), arguments.end(), "--");
    if (dashes == arguments.end()) {
        return;
    }
    for (auto name = arguments.erase(dashes); name != arguments.end(); ++name) {
        if (name->compare(0, 1, "-") == 0) {
            name->insert(0, "./");
        }
    }
}

/// The arguments, last first, as the parser takes them; with the default command before a file.
std::vector<std::string> ArgumentsOf(const CLI::App& app, const std::string& defaultCommand, int argc,
                                     char** argv) {
    std::vector<std::string> arguments(argv + std::min(argc, 1), argv + argc);
    TakeNamesAfterDashes(arguments);
    const std::vector<const CLI::App*> commands = app.get_subcommands({});
    const bool named = !arguments.empty() && arguments.front().compare(0, 1, "-") != 0;
    const bool isCommand =
        named && std::any_of(commands.begin(), commands.end(),
                             [&](const CLI::App* command) { return command->check_name(arguments.front()); });
    std::error_code none;
    if (named && !isCommand && std::filesystem::exists(arguments.front(), none)) {
        arguments.insert(arguments.begin(), defaultCommand);
    }
    std::reverse(arguments.begin(), arguments.end());
    return arguments;
}

} // namespace

Command::Command(std::string name, std::string description)
    : m_name(std::move(name)), m_description(std::move(description)) {}

Command& Command::Takes(AddOptions add) {
    m_options.push_back(add);
    return *this;
}

Command& Command::Checks(Check check) {
    m_check = check;
    return *this;
}

Command& Command::Confined(NeedsOf needs) {
    m_needs = needs;
    return *this;
}

Command& Command::Does(Run run) {
    m_run = std::move(run);
    return *this;
}

ExitCode Command::Execute(const Options& options, Confiner confine) const {
    if (m_check != nullptr) {
        m_check(options);
    }
    const std::optional<Needs> needs = m_needs == nullptr ? std::nullopt : m_needs(options);
    const std::string confined =
        needs ? confine(*needs).Text()
              : "the program is not confined: this command reaches further than to a disk and its outputs";
    if (options.verbose) {
        Complain(confined);
    }
    return m_run(options, m_name);
}

void Command::AddTo(CLI::App& app, Options& options, const Chosen& chosen) const {
    CLI::App* const command = app.add_subcommand(m_name, m_description);
    for (const AddOptions add : m_options) {
        add(*command, options);
    }
    command->footer(kHelpFooter);
    command->callback([chosen, command] { chosen(*command); });
}

int RunCommandLine(const std::vector<Command>& commands, const std::string& defaultCommand, int argc,
                   char** argv, Confiner confine) {
    CLI::App app("Shows what is on a video recorder's recording partition. Only ever reads it.",
                 "diskaccess");
    app.set_version_flag("--version", "diskaccess " DISKACCESS_VERSION);
    app.require_subcommand(1);
    app.footer(kHelpFooter);
    Options options;
    options.arguments.assign(argv + 1, argv + std::max(argc, 1));
    ExitCode result = kDone;
    for (const Command& command : commands) {
        command.AddTo(app, options, [&result, &options, &command, confine](const CLI::App& typed) {
            result = Execute(command, typed, options, confine);
        });
    }
    completion::AddCommand(app);
    try {
        app.parse(ArgumentsOf(app, defaultCommand, argc, argv));
    } catch (const CLI::Success& success) {
        return app.exit(success);
    } catch (const CLI::ParseError& error) {
        Complain(UsageErrorText(app, error));
        return kWrongUse;
    }
    return result;
}

} // namespace diskaccess
