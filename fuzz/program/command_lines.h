#ifndef FUZZ_PROGRAM_COMMAND_LINES_H
#define FUZZ_PROGRAM_COMMAND_LINES_H

#include <cstdint>
#include <map>
#include <random>
#include <string>
#include <vector>

namespace fuzzing {

/// What follows the program's name.
using CommandLine = std::vector<std::string>;

/// Whether a name is one of several, as an option of a command line.
bool Has(const std::vector<std::string>& names, const std::string& name);

/// The command lines of runs: each command in turn, and of each command each option in turn, with some others. They are made
/// from the program's own table, so that none is left out.
class CommandLines {
public:
    /// @param places what stands for a name in braces: {disk}, {out}, ...
    /// @throws std::runtime_error for an option that it knows no values of
    explicit CommandLines(std::map<std::string, std::string> places);

    size_t Commands() const { return m_commands.size(); }
    const std::string& CommandName(size_t command) const { return m_commands.at(command).name; }
    /// The index of a run's command.
    size_t CommandOf(uint64_t number) const { return static_cast<size_t>(number % m_commands.size()); }
    /// The lines of a run, of which the last is the one that counts.
    std::vector<CommandLine> Of(uint64_t number) const;

private:
    struct Option {
        std::string name;                ///< as it is typed; empty: by its place
        std::vector<std::string> values; ///< to choose from; empty: takes none
        std::vector<std::string> wrong;  ///< to choose from on lines that are mistaken
        bool needed = false;
        std::vector<std::string> excludes;
        std::vector<std::string> needs;
    };
    struct Command {
        std::string name;
        std::vector<Option> options;
    };

    static std::vector<Command> ReadTable();
    CommandLine Line(const Command& command, size_t turn, std::mt19937_64& random) const;
    std::string Filled(std::string text) const;

    std::map<std::string, std::string> m_places;
    std::vector<Command> m_commands;
};

} // namespace fuzzing

#endif // FUZZ_PROGRAM_COMMAND_LINES_H
