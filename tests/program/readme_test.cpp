// The README and the page about the program show what it prints: every "$ diskaccess ..." in them is run on the sample
// partition, and its output compared. A line of "..." in a page stands for any lines. The commands of a page run in one
// directory, in its order, so that one may read what another has made. What "$ cat FILE" shows is put into that file.

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <set>
#include <sstream>

#include "support/run_program.h"
#include "support/temp_dir.h"

namespace {

struct Example {
    std::string command; ///< without the prompt
    std::vector<std::string> output;
};

/// The commands of a page's fenced blocks marked "console", each with what is shown below it.
std::vector<Example> ReadExamples(const std::string& page) {
    std::ifstream file(PAGES_DIRECTORY "/" + page);
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

/// A directory to run the program in: exports write beside the partition.
class SampleDirectory {
public:
    SampleDirectory() {
        std::filesystem::create_symlink(SAMPLE_DIRECTORY "/sample.img", m_directory.File("sample.img"));
    }

    /// @param arguments as a shell reads them
    test_support::ProgramResult Run(const std::string& arguments) const {
        test_support::ProgramSetting setting;
        setting.environment = {"LC_ALL=C.UTF-8", "COLUMNS=90"}; // for what is drawn
        const std::string command =
            "cd " + m_directory.File("") + " && exec " DISKACCESS_PROGRAM " " + arguments;
        return test_support::RunProgram({"sh", "-c", command}, setting);
    }

    void Write(const std::string& file, const std::vector<std::string>& lines) const {
        std::ofstream output(m_directory.File(file));
        for (const std::string& line : lines) {
            output << line << "\n";
        }
    }

    std::string Contents(const std::string& file) const { return ReadFile(m_directory.File(file)); }

    static std::string ReadFile(const std::string& path) {
        std::ifstream file(path, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }

private:
    test_support::TempDir m_directory;
};

/// Runs a page's commands, and compares.
/// @return how many there were
size_t CheckExamples(const std::string& page) {
    const std::string prompt = "diskaccess ";
    const SampleDirectory directory;
    size_t run = 0;
    const std::string show = "cat ";
    for (Example example : ReadExamples(page)) {
        if (example.command.rfind(show, 0) == 0) {
            directory.Write(example.command.substr(show.size()), example.output);
        }
        if (example.command.rfind(prompt, 0) != 0) {
            continue;
        }
        while (!example.output.empty() && example.output.back().empty()) {
            example.output.pop_back(); // the blank line before the next prompt
        }
        const auto result = directory.Run(example.command.substr(prompt.size()));
        EXPECT_EQ(result.exitCode, 0) << example.command;
        EXPECT_TRUE(Matches(example.output, 0, LinesOf(result.out), 0)) << example.command << " prints:\n"
                                                                        << result.out << result.err;
        ++run;
    }
    return run;
}

/// The commands that the program's help lists.
std::set<std::string> CommandsOfHelp(const std::string& help) {
    std::set<std::string> commands;
    bool inside = false;
    for (const std::string& line : LinesOf(help)) {
        if (line.empty()) {
            inside = false;
        } else if (inside) {
            std::string command;
            std::istringstream(line) >> command;
            commands.insert(command);
        } else {
            inside = line == "Subcommands:";
        }
    }
    return commands;
}

/// What a page's headings of the third level say.
std::set<std::string> HeadingsOf(const std::string& page) {
    const std::string mark = "### ";
    std::set<std::string> headings;
    for (const std::string& line : LinesOf(SampleDirectory::ReadFile(PAGES_DIRECTORY "/" + page))) {
        if (line.rfind(mark, 0) == 0) {
            headings.insert(line.substr(mark.size()));
        }
    }
    return headings;
}

TEST(Pages, ReadmeShowsWhatTheProgramPrints) {
    EXPECT_GE(CheckExamples("README.md"), 5u);
}

TEST(Pages, ProgramPageShowsWhatTheProgramPrints) {
    EXPECT_GE(CheckExamples("docs/program.md"), 20u);
}

TEST(Pages, ProgramPageHasEveryCommand) {
    const std::set<std::string> commands = CommandsOfHelp(SampleDirectory().Run("--help").out);
    EXPECT_GE(commands.size(), 18u);
    EXPECT_EQ(HeadingsOf("docs/program.md"), commands);
}

// The picture at the head of the README. Make it again with the command of docs/program.md when this fails on purpose.
TEST(Pages, PictureIsWhatTheProgramDraws) {
    const SampleDirectory directory;
    ASSERT_EQ(directory.Run("timeline sample.img --utc --svg timeline.svg").exitCode, 0);
    EXPECT_EQ(directory.Contents("timeline.svg"),
              SampleDirectory::ReadFile(PAGES_DIRECTORY "/docs/timeline.svg"));
}

} // namespace
