#include "tables.h"

namespace completion {

namespace {

std::string Quoted(const std::string& text) {
    return "'" + Replaced(Replaced(text, "\\", "\\\\"), "'", "\\'") + "'";
}

std::string Line(const Program& program, const std::string& condition, const std::string& rest) {
    return "complete -c " + program.name + " -n " + Quoted(condition) + rest + "\n";
}

/// What a value can be: files, some words, or nothing that is known.
std::string ValuePart(const Argument& argument) {
    if (argument.takesFile) {
        return " -r -F";
    }
    return " -x" + (argument.values.empty() ? "" : " -a " + Quoted(Join(argument.values, " ")));
}

std::string OptionPart(const Argument& option) {
    std::string text;
    for (const std::string& name : option.longNames) {
        text += " -l " + name;
    }
    for (const std::string& name : option.shortNames) {
        text += " -s " + name;
    }
    return text + (option.takesValue ? ValuePart(option) : "") + " -d " + Quoted(option.description);
}

std::string PositionalPart(const Argument& positional) {
    return positional.takesFile ? " -F" : " -a " + Quoted(Join(positional.values, " "));
}

} // namespace

std::string FishScript(const Program& program) {
    std::string script = "# fish completion for " + program.name + ", made by \"" + program.name +
                         " completion fish\"\n\ncomplete -c " + program.name + " -f\n";
    for (const Argument& option : program.options) {
        script += Line(program, "__fish_use_subcommand", OptionPart(option));
    }
    for (const Command& command : program.commands) {
        script += "\n" + Line(program, "__fish_use_subcommand",
                              " -a " + command.name + " -d " + Quoted(command.description));
        const std::string condition = "__fish_seen_subcommand_from " + command.name;
        for (const Argument& option : command.options) {
            script += Line(program, condition, OptionPart(option));
        }
        for (const Argument& positional : command.positionals) {
            script += Line(program, condition, PositionalPart(positional));
        }
    }
    return script;
}

} // namespace completion
