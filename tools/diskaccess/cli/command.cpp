#include "cli/command.h"

#include <CLI/CLI.hpp>

#include <new>

#include "cli/output.h"
#include "cli/problems.h"
#include "completion/completion.h"

namespace diskaccess {

namespace {

ExitCode Execute(const Command& command, const Options& options) {
    try {
        return command.Execute(options);
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

} // namespace

Command::Command(std::string name, std::string description)
    : m_name(std::move(name)), m_description(std::move(description)) {}

Command& Command::Takes(AddOptions add) {
    m_options.push_back(add);
    return *this;
}

Command& Command::Does(Run run) {
    m_run = std::move(run);
    return *this;
}

void Command::AddTo(CLI::App& app, Options& options, const std::function<void()>& chosen) const {
    CLI::App* const command = app.add_subcommand(m_name, m_description);
    for (const AddOptions add : m_options) {
        add(*command, options);
    }
    command->footer(kHelpFooter);
    command->callback(chosen);
}

int RunCommandLine(const std::vector<Command>& commands, int argc, char** argv) {
    CLI::App app("Shows what is on a video recorder's recording partition. Only ever reads it.",
                 "diskaccess");
    app.set_version_flag("--version", "diskaccess " DISKACCESS_VERSION);
    app.require_subcommand(1);
    app.footer(kHelpFooter);
    Options options;
    ExitCode result = kDone;
    for (const Command& command : commands) {
        command.AddTo(app, options, [&result, &options, &command] { result = Execute(command, options); });
    }
    completion::AddCommand(app);
    try {
        app.parse(argc, argv);
    } catch (const CLI::Success& success) {
        return app.exit(success);
    } catch (const CLI::ParseError& error) {
        app.exit(error);
        return kWrongUse;
    }
    return result;
}

} // namespace diskaccess
