#include "tables.h"

#include <CLI/CLI.hpp>

namespace completion {

namespace {

/// The values that a type's description lists in braces: "{a,b}", or "{a->1,b->2}" where they are translated.
std::vector<std::string> ListedValues(const std::string& type) {
    const size_t open = type.find('{');
    const size_t close = type.find('}', open);
    if (open == std::string::npos || close == std::string::npos) {
        return {};
    }
    std::vector<std::string> values = CLI::detail::split(type.substr(open + 1, close - open - 1), ',');
    for (std::string& value : values) {
        value = value.substr(0, value.find("->"));
    }
    return values;
}

Argument ArgumentOf(const CLI::Option& option) {
    Argument argument;
    argument.longNames = option.get_lnames();
    argument.shortNames = option.get_snames();
    argument.description = option.get_description();
    argument.takesValue = option.get_items_expected_max() != 0;
    if (argument.takesValue) {
        const std::string type = option.get_type_name();
        argument.valueName = option.nonpositional() ? option.get_option_text() : option.get_name(true);
        argument.values = ListedValues(type);
        argument.takesFile = type == "FILE";
    }
    return argument;
}

} // namespace

std::vector<std::string> Argument::Spellings() const {
    std::vector<std::string> spellings;
    for (const std::string& name : longNames) {
        spellings.push_back("--" + name);
    }
    for (const std::string& name : shortNames) {
        spellings.push_back("-" + name);
    }
    return spellings;
}

Program ReadTables(const CLI::App& app) {
    Program program;
    program.name = app.get_name();
    for (const CLI::Option* const option : app.get_options()) {
        program.options.push_back(ArgumentOf(*option));
    }
    for (const CLI::App* const sub : app.get_subcommands({})) {
        Command command = {sub->get_name(), sub->get_description(), {}, {}};
        for (const CLI::Option* const option : sub->get_options()) {
            (option->nonpositional() ? command.options : command.positionals).push_back(ArgumentOf(*option));
        }
        program.commands.push_back(std::move(command));
    }
    return program;
}

std::string Join(const std::vector<std::string>& words, const std::string& between) {
    std::string text;
    for (const std::string& word : words) {
        text += (text.empty() ? "" : between) + word;
    }
    return text;
}

std::string Replaced(std::string text, const std::string& what, const std::string& with) {
    for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + with.size())) {
        text.replace(at, what.size(), with);
    }
    return text;
}

} // namespace completion
