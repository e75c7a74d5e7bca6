#include "cli/usage_error.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <vector>

#include "cli/failure.h"
#include "cli/nearest.h"

namespace diskaccess {

namespace {

using Words = std::vector<std::string>;

/// The command that was typed; null when there was none.
const CLI::App* ChosenCommand(const CLI::App& program) {
    const std::vector<CLI::App*> chosen = program.get_subcommands();
    return chosen.empty() ? nullptr : chosen.front();
}

Words CommandNames(const CLI::App& program) {
    Words names;
    for (const CLI::App* const command : program.get_subcommands({})) {
        names.push_back(command->get_name());
    }
    return names;
}

/// The long options of a command, without the dashes. Help is known to everybody.
Words OptionNames(const CLI::App& command) {
    Words names;
    for (const CLI::Option* const option : command.get_options()) {
        for (const std::string& name : option->get_lnames()) {
            if (name != "help") {
                names.push_back(name);
            }
        }
    }
    return names;
}

std::string MoreAbout(const CLI::App& command) {
    return fmt::format("`{}{} --help` says more",
                       command.get_parent() == nullptr ? "" : command.get_parent()->get_name() + " ",
                       command.get_name());
}

/// A disk by itself is a command line too, so that a command after it is one word too many.
std::string AboutSurplus(const CLI::App& command, const std::string& word) {
    const CLI::App* const program = command.get_parent();
    const Words names = program == nullptr ? Words() : CommandNames(*program);
    return std::find(names.begin(), names.end(), word) == names.end()
               ? MoreAbout(command)
               : fmt::format("a command comes first, as in `{} {} PARTITION`", program->get_name(), word);
}

std::string NoCommandText(const CLI::App& program) {
    const Words names = CommandNames(program);
    const std::string all = fmt::format("there are {}", fmt::join(names, ", "));
    const Words typed = program.remaining();
    if (typed.empty()) {
        return "no command was given; " + all;
    }
    const std::string nearest = Nearest(typed.front(), names);
    const bool looksLikeFile = typed.front().find_first_of("./") != std::string::npos;
    if (nearest.empty() && looksLikeFile) {
        return fmt::format("'{}' is neither a file that is there nor a command; check the name",
                           typed.front());
    }
    return fmt::format("'{}' is not a command; {}", typed.front(),
                       nearest.empty() ? all : "did you mean " + nearest + "?");
}

/// Whether the first word was meant to be a command, or a disk. The options after it belong to what it should have been.
bool FirstWordIsUnknown(const CLI::App& program) {
    const Words typed = program.remaining();
    return !typed.empty() && typed.front().compare(0, 1, "-") != 0;
}

/// The first word that looks like an option and is none of the command's; empty when there is none.
std::string UnknownOption(const CLI::App& command) {
    for (const std::string& word : command.remaining()) {
        if (word.size() > 1 && word[0] == '-') {
            return word.substr(0, word.find('='));
        }
    }
    return "";
}

std::string UnknownOptionText(const CLI::App& command, const std::string& option) {
    const Words names = OptionNames(command);
    const std::string nearest = Nearest(option.substr(option.find_first_not_of('-')), names);
    return fmt::format("{} has no option {}; {}", command.get_name(), option,
                       nearest.empty() ? fmt::format("it has --{}", fmt::join(names, ", --"))
                                       : "did you mean --" + nearest + "?");
}

/// The option that an error is about: its text begins with that.
std::string ConcernedOption(const CLI::ParseError& error) {
    const std::string text = error.what();
    return text.substr(0, text.find(':'));
}

template <typename Kind>
bool Is(const CLI::ParseError& error) {
    return dynamic_cast<const Kind*>(&error) != nullptr;
}

std::string ErrorText(const CLI::App& command, const CLI::ParseError& error) {
    if (Is<CLI::ExtrasError>(error)) {
        return fmt::format("{}: '{}' is one argument too many; {}", command.get_name(),
                           command.remaining().front(), AboutSurplus(command, command.remaining().front()));
    }
    if (Is<CLI::RequiredError>(error)) {
        return fmt::format("{}: {}; {}", command.get_name(), error.what(), MoreAbout(command));
    }
    if (Is<CLI::ExcludesError>(error)) {
        return std::string(error.what()) + "; leave one of them out";
    }
    if (Is<CLI::RequiresError>(error)) {
        return std::string(error.what()) + "; give both";
    }
    if (Is<CLI::ArgumentMismatch>(error)) {
        const bool missing = std::string(error.what()).find("missing") != std::string::npos;
        return ConcernedOption(error) +
               (missing ? ": its value is missing; give one" : ": is given more than once; give it once");
    }
    return error.what();
}

} // namespace

std::string UsageErrorText(const CLI::App& program, const CLI::ParseError& error) {
    const CLI::App* const command = ChosenCommand(program);
    if (command == nullptr && FirstWordIsUnknown(program)) {
        return NoCommandText(program);
    }
    // A slip in an option's name leaves its value over and other options missing: it is told first.
    for (const CLI::App* const app : {command, &program}) {
        if (app == nullptr) {
            continue;
        }
        const std::string unknown = UnknownOption(*app);
        if (unknown.find_first_not_of('-') != std::string::npos) {
            return UnknownOptionText(*app, unknown);
        }
    }
    return command == nullptr ? NoCommandText(program) : ErrorText(*command, error);
}

void RefuseEmptyValues(const CLI::App& command) {
    for (const CLI::Option* const option : command.get_options()) {
        for (const std::string& value : option->results()) {
            if (value.empty()) {
                throw WrongUse(option->get_name() + ": is empty; give a value" +
                               (option->get_required() ? "" : ", or leave the option out"));
            }
        }
    }
}

} // namespace diskaccess
