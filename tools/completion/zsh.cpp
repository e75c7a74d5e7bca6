#include "tables.h"

namespace completion {

namespace {

constexpr const char* kBody = R"(#compdef @PROGRAM@
# zsh completion for @PROGRAM@, made by "@PROGRAM@ completion zsh"

_@PROGRAM@() {
    local curcontext=$curcontext state line
    local -A opt_args
    local -a commands
    commands=(
@NAMES@    )
    _arguments -C \
@OPTIONS@        '1: :->command' \
        '*:: :->arguments'
    case $state in
    command) _describe -t commands '@PROGRAM@ command' commands ;;
    arguments)
        curcontext=${curcontext%:*:*}:@PROGRAM@-$words[1]:
        case $words[1] in
@COMMANDS@        esac
        ;;
    esac
}

# Either a function that is loaded when it is first called, or a script that is sourced.
if [[ $funcstack[1] == _@PROGRAM@ ]]; then
    _@PROGRAM@ "$@"
else
    compdef _@PROGRAM@ @PROGRAM@
fi
)";

std::string Quoted(const std::string& text) {
    return "'" + Replaced(text, "'", "'\\''") + "'";
}

/// What _arguments would take for the end of an explanation.
std::string Escaped(const std::string& text) {
    std::string escaped = Replaced(text, "\\", "\\\\");
    for (const char* const special : {"[", "]", ":"}) {
        escaped = Replaced(escaped, special, std::string("\\") + special);
    }
    return escaped;
}

/// ":NAME:action", which says what a value is and where candidates come from.
std::string ValuePart(const Argument& argument) {
    const std::string action = !argument.values.empty() ? "(" + Join(argument.values, " ") + ")"
                               : argument.takesFile     ? "_files"
                                                        : " ";
    const std::string name = argument.valueName.empty() ? "value" : argument.valueName;
    return ":" + Escaped(name) + ":" + action;
}

/// What _arguments is told of an option by one of its spellings: the spellings that it rules out, itself, what it
/// does, and its value.
std::string OptionText(const Argument& option, const std::string& spelling) {
    const bool isLong = spelling.compare(0, 2, "--") == 0;
    std::string text = "(" + Join(option.Spellings(), " ") + ")" + spelling;
    if (option.takesValue) {
        text += isLong ? "=" : "+";
    }
    text += "[" + Escaped(option.description) + "]";
    return option.takesValue ? text + ValuePart(option) : text;
}

std::string OptionLines(const Argument& option, const std::string& indentation) {
    std::string lines;
    for (const std::string& spelling : option.Spellings()) {
        lines += indentation;
        lines += Quoted(OptionText(option, spelling));
        lines += " \\\n";
    }
    return lines;
}

std::string CommandCase(const Command& command) {
    const std::string indentation(12, ' ');
    std::string text = "        " + command.name + ")\n            _arguments \\\n";
    for (const Argument& option : command.options) {
        text += OptionLines(option, indentation + "    ");
    }
    int position = 0;
    for (const Argument& positional : command.positionals) {
        text += indentation + "    " + Quoted(std::to_string(++position) + ValuePart(positional)) + " \\\n";
    }
    // The list of arguments ends with its last line.
    text.replace(text.rfind(" \\\n"), std::string::npos, "\n");
    return text + indentation + ";;\n";
}

} // namespace

std::string ZshScript(const Program& program) {
    std::string options;
    for (const Argument& option : program.options) {
        options += OptionLines(option, std::string(8, ' '));
    }
    std::string names;
    std::string commands;
    for (const Command& command : program.commands) {
        names += "        " + Quoted(command.name + ":" + Replaced(command.description, ":", "\\:")) + "\n";
        commands += CommandCase(command);
    }
    std::string script = Replaced(kBody, "@NAMES@", names);
    script = Replaced(script, "@OPTIONS@", options);
    script = Replaced(script, "@COMMANDS@", commands);
    return Replaced(script, "@PROGRAM@", program.name);
}

} // namespace completion
