#include "completion.h"

#include <cerrno>
#include <iostream>
#include <map>
#include <memory>
#include <stdexcept>

#include "tables.h"
#include "values.h"

namespace completion {

namespace {

using MakeScript = std::string (*)(const Program& program);

const std::map<std::string, MakeScript> kShells = {
    {"bash", BashScript}, {"zsh", ZshScript}, {"fish", FishScript}};

void Print(const std::string& script) {
    errno = 0;
    if (!(std::cout << script << std::flush) && errno != EPIPE) { // a closed pipe is no error
        throw std::runtime_error("standard output cannot be written");
    }
}

} // namespace

void AddCommand(CLI::App& program) {
    CLI::App* const command =
        program.add_subcommand("completion", "A script for a shell, which completes these command lines");
    const auto shell = std::make_shared<std::string>();
    command->add_option("SHELL", *shell, "The shell")->required()->transform(OneOf({"bash", "zsh", "fish"}));
    command->callback([&program, shell] { Print(kShells.at(*shell)(ReadTables(program))); });
}

} // namespace completion
