// The README shows what the program prints: every "$ diskaccess ..." in it is run on the sample partition,
// and its output compared. A line of "..." in the README stands for any lines.

#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

#include "support/run_program.h"
#include "support/temp_dir.h"

namespace {

struct Example {
    std::string command; ///< without the prompt
    std::vector<std::string> output;
};

/// The commands of the fenced blocks marked "console", each with what is shown below it.
std::vector<Example> ReadExamples() {
    std::ifstream file(README);
    std::vector<Example> examples;
    std::string line;
    bool inside = false;
    while (std::getline(file, line)) {
        if (line.rfind("```", 0) == 0) {
            inside = line == "```console";
        } else if (inside && line.rfind("$ ", 0) == 0) {
            examples.push_back({line.substr(2), {}});
        } else if (inside && !examples.empty()) {
            examples.back().output.push_back(line);
        }
    }
    return examples;
}

std::vector<std::string> LinesOf(const std::string& text) {
    std::istringstream stream(text);
    std::vector<std::string> lines;
    std::string line;
    while (std::getline(stream, line)) {
        lines.push_back(line);
    }
    return lines;
}

/// Whether the lines shown are those printed, with "..." standing for any.
bool Matches(const std::vector<std::string>& shown, size_t s, const std::vector<std::string>& printed,
             size_t p) {
    if (s == shown.size()) {
        return p == printed.size();
    }
    if (shown[s] == "...") {
        for (size_t rest = p; rest <= printed.size(); ++rest) {
            if (Matches(shown, s + 1, printed, rest)) {
                return true;
            }
        }
        return false;
    }
    return p < printed.size() && shown[s] == printed[p] && Matches(shown, s + 1, printed, p + 1);
}

/// Runs the README's commands, and compares.
/// @return how many there were
size_t CheckExamples() {
    // Exports write beside the partition: in a directory of the test's own.
    const test_support::TempDir directory;
    std::filesystem::create_symlink(SAMPLE_DIRECTORY "/sample.img", directory.File("sample.img"));
    size_t run = 0;
    for (Example example : ReadExamples()) {
        if (example.command.rfind("diskaccess ", 0) != 0) {
            continue;
        }
        while (!example.output.empty() && example.output.back().empty()) {
            example.output.pop_back(); // the blank line before the next prompt
        }
        const std::string command = "cd " + directory.File("") + " && exec " DISKACCESS_PROGRAM " " +
                                    example.command.substr(std::string("diskaccess ").size());
        test_support::ProgramSetting setting;
        setting.environment = {"LC_ALL=C.UTF-8", "COLUMNS=90"}; // for what is drawn
        const auto result = test_support::RunProgram({"sh", "-c", command}, setting);
        EXPECT_EQ(result.exitCode, 0) << example.command;
        EXPECT_TRUE(Matches(example.output, 0, LinesOf(result.out), 0)) << example.command << " prints:\n"
                                                                        << result.out;
        ++run;
    }
    return run;
}

TEST(Readme, ShowsWhatTheProgramPrints) {
    EXPECT_GE(CheckExamples(), 6u);
}

} // namespace
