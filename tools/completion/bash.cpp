#include "tables.h"

namespace completion {

namespace {

/// Completes one word from the ones in front of it. The shell's own functions alone, so that the script also
/// works where the package bash-completion is missing.
constexpr const char* kBody = R"(# bash completion for @PROGRAM@, made by "@PROGRAM@ completion bash"

_@PROGRAM@() {
    local cur=${COMP_WORDS[COMP_CWORD]} prev=${COMP_WORDS[COMP_CWORD - 1]} command='' word
    if [[ $cur == = ]]; then # --option=value comes as three words
        cur=''
    elif [[ $prev == = ]]; then
        prev=${COMP_WORDS[COMP_CWORD - 2]}
    fi
    for word in "${COMP_WORDS[@]:1:COMP_CWORD-1}"; do
        if [[ $word != -* ]]; then
            command=$word
            break
        fi
    done

    local values='' files=''
    case $command,$prev in
@VALUES@        *)
            case $command in
@COMMANDS@            *) return ;;
            esac
            ;;
    esac

    mapfile -t COMPREPLY < <(compgen -W "$values" -- "$cur")
    if [[ $files ]]; then
        compopt -o filenames 2>/dev/null
        mapfile -t -O "${#COMPREPLY[@]}" COMPREPLY < <(compgen -f -- "$cur")
    fi
}

complete -F _@PROGRAM@ @PROGRAM@
)";

std::string Assignments(const std::vector<std::string>& values, bool files) {
    return std::string(values.empty() ? "" : " values='" + Join(values, " ") + "'") +
           (files ? " files=yes" : "");
}

/// A case of the value of an option: "list,--format) values='text json' ;;".
std::string ValueCase(const Command& command, const Argument& option) {
    std::vector<std::string> patterns;
    for (const std::string& spelling : option.Spellings()) {
        patterns.push_back(command.name + "," + spelling);
    }
    const std::string assignments = Assignments(option.values, option.takesFile);
    return "        " + Join(patterns, " | ") + ")" + (assignments.empty() ? " :" : assignments) + " ;;\n";
}

std::vector<std::string> Spellings(const std::vector<Argument>& options) {
    std::vector<std::string> spellings;
    for (const Argument& option : options) {
        for (const std::string& spelling : option.Spellings()) {
            spellings.push_back(spelling);
        }
    }
    return spellings;
}

/// A case of what can follow a command: its options where the word begins with "-", else its arguments.
std::string CommandCase(const std::string& name, const std::vector<Argument>& options,
                        const std::vector<std::string>& values, bool files) {
    const std::string otherwise = Assignments(values, files);
    return "            " + name + ") if [[ $cur == -* ]]; then" + Assignments(Spellings(options), false) +
           "; else" + (otherwise.empty() ? " :" : otherwise) + "; fi ;;\n";
}

std::string CommandCase(const Command& command) {
    std::vector<std::string> values;
    bool files = false;
    for (const Argument& positional : command.positionals) {
        values.insert(values.end(), positional.values.begin(), positional.values.end());
        files = files || positional.takesFile;
    }
    return CommandCase(command.name, command.options, values, files);
}

} // namespace

std::string BashScript(const Program& program) {
    std::string values;
    std::string commands;
    std::vector<std::string> names;
    for (const Command& command : program.commands) {
        names.push_back(command.name);
        commands += CommandCase(command);
        for (const Argument& option : command.options) {
            if (option.takesValue) {
                values += ValueCase(command, option);
            }
        }
    }
    std::string script = Replaced(kBody, "@VALUES@", values);
    script = Replaced(script, "@COMMANDS@", CommandCase("''", program.options, names, false) + commands);
    return Replaced(script, "@PROGRAM@", program.name);
}

} // namespace completion
