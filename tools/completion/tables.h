#ifndef COMPLETION_TABLES_H
#define COMPLETION_TABLES_H

#include <string>
#include <vector>

namespace CLI { // whose header takes long to compile
class App;
}

namespace completion {

/// An option, or an argument by position.
struct Argument {
    std::vector<std::string> longNames;
    std::vector<std::string> shortNames;
    std::string description;
    bool takesValue = false;
    std::string valueName;           ///< what the help calls the value
    std::vector<std::string> values; ///< all there are; none when it can be anything
    bool takesFile = false;

    /// "--long" and "-s"
    std::vector<std::string> Spellings() const;
};

struct Command {
    std::string name;
    std::string description;
    std::vector<Argument> options;
    std::vector<Argument> positionals;
};

/// What a program's command line can be.
struct Program {
    std::string name;
    std::vector<Argument> options; ///< those before any command
    std::vector<Command> commands;
};

Program ReadTables(const CLI::App& app);

/// The scripts.

std::string BashScript(const Program& program);
std::string ZshScript(const Program& program);
std::string FishScript(const Program& program);

/// What the scripts share.

std::string Join(const std::vector<std::string>& words, const std::string& between);
std::string Replaced(std::string text, const std::string& what, const std::string& with);

} // namespace completion

#endif // COMPLETION_TABLES_H
