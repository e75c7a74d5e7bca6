// Command lines that cannot be carried out: each is refused with one line that says what is wrong and what there is.

#include <sys/stat.h>

#include <algorithm>

#include "search/search_fixture.h"
#include "support/run_program.h"

namespace {

using namespace test_support;
using Words = std::vector<std::string>;

bool Contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

class Usage : public SearchFixture {
protected:
    Usage() { MakeDisk(); }

    std::string Image() const { return File("disk"); }

    static ProgramResult Run(Words arguments) {
        arguments.insert(arguments.begin(), DISKACCESS_PROGRAM);
        return RunProgram(arguments);
    }

    /// Expects a command line to be refused.
    /// @return the line, without the program's name
    static std::string Refused(const Words& arguments) {
        const ProgramResult result = Run(arguments);
        EXPECT_EQ(result.exitCode, 2) << ::testing::PrintToString(arguments);
        EXPECT_EQ(result.out, "");
        EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1) << result.err;
        const std::string name = "diskaccess: ";
        EXPECT_EQ(result.err.substr(0, name.size()), name);
        return result.err.substr(std::min(name.size(), result.err.size()));
    }
};

TEST_F(Usage, AMissingCommandIsAskedForByNamingAll) {
    const std::string line = Refused({});
    EXPECT_EQ(line.rfind("no command was given; there are ", 0), 0u) << line;
    for (const char* const command :
         {"info", "list", "events", "days", "units", "space", "play", "export", "dump", "completion"}) {
        EXPECT_TRUE(Contains(line, std::string(", ") + command)) << command;
    }
}

TEST_F(Usage, ACommandThatIsNoneNamesTheNearest) {
    EXPECT_EQ(Refused({"lst", Image()}), "'lst' is not a command; did you mean list?\n");
    EXPECT_EQ(Refused({"evnets", Image()}), "'evnets' is not a command; did you mean events?\n");
    EXPECT_EQ(Refused({"EXPORT", Image()}), "'EXPORT' is not a command; did you mean export?\n");
    EXPECT_TRUE(Contains(Refused({"frobnicate", Image()}), "'frobnicate' is not a command; there are "));
}

TEST_F(Usage, AFileThatIsNotThereIsSaid) {
    for (const Words& options : {Words{}, Words{"--utc"}, Words{"--channel", "0"}}) {
        Words words = {File("dsk")};
        words.insert(words.end(), options.begin(), options.end());
        EXPECT_EQ(Refused(words),
                  "'" + File("dsk") + "' is neither a file that is there nor a command; check the name\n");
        words.front() = "disk.img";
        EXPECT_EQ(Refused(words),
                  "'disk.img' is neither a file that is there nor a command; check the name\n");
        words.front() = "evnets"; // also with options that its command has
        EXPECT_EQ(Refused(words), "'evnets' is not a command; did you mean events?\n");
    }
}

TEST_F(Usage, AnOptionThatIsNoneNamesTheNearest) {
    const std::string line = "list has no option --chanel; did you mean --channel?\n";
    EXPECT_EQ(Refused({"list", Image(), "--chanel", "0"}), line);
    EXPECT_EQ(Refused({"list", "--chanel", "0", Image()}), line); // 0 is not the partition then
    EXPECT_EQ(Refused({"list", Image(), "--chanel=0"}), line);
    EXPECT_EQ(Refused({"list", Image(), "--chan", "0"}),
              "list has no option --chan; did you mean --channel?\n");
    EXPECT_EQ(Refused({"export", Image(), "--outptu", "x"}),
              "export has no option --outptu; did you mean --output?\n");
    EXPECT_EQ(Refused({"--versoin"}), "diskaccess has no option --versoin; did you mean --version?\n");
}

TEST_F(Usage, AnOptionThatIsLikeNoneNamesAll) {
    const std::string line = Refused({"space", Image(), "--zzzzzzzz"});
    EXPECT_EQ(line.rfind("space has no option --zzzzzzzz; it has --", 0), 0u) << line;
    EXPECT_TRUE(Contains(line, ", --format, --json, ")) << line;
    EXPECT_TRUE(Contains(Refused({"space", Image(), "-x"}), "space has no option -x; it has --"));
}

TEST_F(Usage, NamesMayBeginWithADashAfterTwo) {
    EXPECT_EQ(Run({"info", "--", "-no"}).err,
              "diskaccess: ./-no: cannot be opened: No such file or directory; check the name\n");
    EXPECT_EQ(Run({"info", "--json", "--", "/no"}).err,
              "diskaccess: /no: cannot be opened: No such file or directory; check the name\n");
    EXPECT_EQ(Refused({"info", Image(), "--", "-no"}),
              "info: './-no' is one argument too many; `diskaccess info --help` says more\n");
}

TEST_F(Usage, WhatIsMissingOrTooMuchIsNamed) {
    EXPECT_EQ(Refused({Image(), "list"}),
              "journeys: 'list' is one argument too many; a command comes first, as in `diskaccess list "
              "PARTITION`\n");
    EXPECT_EQ(Refused({Image(), "lost"}),
              "journeys: 'lost' is one argument too many; `diskaccess journeys --help` says more\n");
    EXPECT_EQ(Refused({"list"}), "list: PARTITION is required; `diskaccess list --help` says more\n");
    EXPECT_EQ(Refused({"export", Image()}),
              "export: --output is required; `diskaccess export --help` says more\n");
    EXPECT_EQ(Refused({"list", Image(), "extra"}),
              "list: 'extra' is one argument too many; `diskaccess list --help` says more\n");
    EXPECT_EQ(Refused({"list", Image(), "--from"}), "--from: its value is missing; give one\n");
    EXPECT_EQ(Refused({"list", Image(), "--channel", "0", "--channel", "1"}),
              "--channel: is given more than once; give it once\n");
    EXPECT_EQ(Refused({"list", Image(), "--utc", "--tz", "UTC"}),
              "--tz excludes --utc; leave one of them out\n");
    EXPECT_EQ(Refused({"play", Image(), "--backward"}), "--backward requires --iframes; give both\n");
    EXPECT_EQ(Refused({"completion"}),
              "completion: SHELL is required; `diskaccess completion --help` says more\n");
}

TEST_F(Usage, ValuesThatAreNoneNameThoseThereAre) {
    EXPECT_EQ(Refused({"list", Image(), "--format", "xml"}),
              "--format: 'xml' is none of text, json, ndjson, csv\n");
    EXPECT_EQ(Refused({"export", Image(), "-o", "x", "--container", "avi"}),
              "--container: 'avi' is none of matroska, mkv, mp4\n");
    EXPECT_EQ(Refused({"dump", Image(), "--format", "xml"}),
              "--format: 'xml' is not text, which is all there is\n");
    EXPECT_EQ(Refused({"completion", "tcsh"}), "SHELL: 'tcsh' is none of bash, zsh, fish\n");
}

TEST_F(Usage, NumbersAreCheckedWithTheirLimits) {
    EXPECT_EQ(Refused({"view", Image(), "--port", "x"}),
              "--port: 'x' is not a whole number from 0 to 65535\n");
    EXPECT_EQ(Refused({"view", Image(), "--port", "65536"}),
              "--port: '65536' is not a whole number from 0 to 65535\n");
    EXPECT_EQ(Refused({"catalog", "add", Image(), "--jobs", "0"}),
              "--jobs: '0' is not a whole number from 1 to 256\n");
    const std::string skew = "is not a whole number from -4294967295 to 4294967295\n";
    EXPECT_EQ(Refused({"list", Image(), "--skew", "99999999999"}), "--skew: '99999999999' " + skew);
    EXPECT_EQ(Refused({"list", Image(), "--skew", "99999999999999999999999"}),
              "--skew: '99999999999999999999999' " + skew);
    EXPECT_EQ(Refused({"list", Image(), "--skew", "x"}), "--skew: 'x' " + skew);
    EXPECT_EQ(Refused({"list", Image(), "--skew", "1.5"}), "--skew: '1.5' " + skew);
    EXPECT_EQ(Run({"list", Image(), "--skew", "-4294967295"}).exitCode, 0);
    EXPECT_EQ(Refused({"play", Image(), "--unit", "-1"}),
              "--unit: '-1' is not a whole number from 0 to 4294967295\n");
    EXPECT_TRUE(
        Contains(Refused({"list", Image(), "--disk-type", "x"}), "--disk-type: 'x' is not a whole number"));
    EXPECT_TRUE(
        Contains(Refused({"dump", Image(), "--level", "all"}), "--level: 'all' is not a whole number"));
}

/// A script that leaves a variable unset must not get everything instead of an error.
TEST_F(Usage, AFormIsAskedForOnce) {
    EXPECT_EQ(Refused({"list", Image(), "--json", "--format", "csv"}),
              "--format excludes --json; leave one of them out\n");
}

TEST_F(Usage, TwoPicturesOfATimelineAreTwoFiles) {
    for (const std::string& other : {File("a"), File("./a"), File("new/../a")}) {
        EXPECT_EQ(Refused({"timeline", Image(), "--force", "--svg", File("a"), "--html", other}),
                  "--html: '" + other + "' is the file of --svg; give each its own\n");
    }
}

TEST_F(Usage, TheViewersExportsGoToAFolder) {
    for (const std::string& folder : {File("none"), Image()}) {
        EXPECT_EQ(Refused({"view", Image(), "--no-browser", "--export-dir", folder}),
                  "--export-dir: '" + folder + "' is no folder; make it first\n");
    }
}

TEST_F(Usage, AReportIsAPage) {
    EXPECT_EQ(Refused({"report", Image(), "-o", File("a.PDF")}),
              "--output: '" + File("a.PDF") +
                  "' would not be a PDF file; name a FILE.html, and print it to PDF with a browser\n");
}

TEST_F(Usage, EmptyValuesAreRefused) {
    const std::pair<const char*, const char*> options[] = {
        {"list", "--channel"}, {"list", "--from"}, {"list", "--to"},
        {"list", "--alarm"},   {"list", "--tz"},   {"list", "--password-file"},
        {"play", "--record"},  {"play", "--seek"}, {"export", "--audio"}};
    for (const auto& [command, option] : options) {
        Words words = {command, Image(), option, ""};
        if (std::string(command) == "export") {
            words.insert(words.end(), {"-o", File("out")});
        }
        EXPECT_EQ(Refused(words),
                  std::string(option) + ": is empty; give a value, or leave the option out\n");
    }
    EXPECT_EQ(Refused({"export", Image(), "-o", ""}), "--output: is empty; give a value\n");
    EXPECT_EQ(Refused({"list", ""}), "PARTITION: is empty; give a value\n");
    EXPECT_NE(Run({"list", Image(), "--channel="}).exitCode, 0);
}

TEST_F(Usage, AnOutputThatNamesNoFileIsRefused) {
    for (const Words& more : {Words{}, Words{"--raw"}}) {
        for (const char* const name : {"/", "/.", "/..", "", "/sub/"}) {
            Words words = {"export", Image(), "-o", File("") + name};
            words.insert(words.end(), more.begin(), more.end());
            if (std::string(name).empty()) {
                words[3] = ".";
            }
            const std::string line = Refused(words);
            EXPECT_EQ(line, "--output: '" + words[3] + "' names no file; give a file's name\n");
        }
    }
}

TEST_F(Usage, WhatIsWrongIsSaidBeforeTheDiskIsOpened) {
    EXPECT_TRUE(Contains(Refused({"export", "/nonexistent", "-o", "x/"}), "names no file"));
    EXPECT_TRUE(
        Contains(Refused({"export", "/nonexistent", "-o", "x", "--audio", "alaw"}), "no codec and rate"));
    EXPECT_TRUE(Contains(Refused({"play", "/nonexistent", "--record", "x"}), "is not a record"));
    EXPECT_TRUE(Contains(Refused({"play", "/nonexistent", "--seek", "x"}), "is not a time"));
}

TEST_F(Usage, HelpIsNoError) {
    for (const Words& words : {Words{"--help"}, Words{"list", "--help"}, Words{"--version"}}) {
        const ProgramResult result = Run(words);
        EXPECT_EQ(result.exitCode, 0);
        EXPECT_EQ(result.err, "");
        EXPECT_NE(result.out, "");
    }
}

} // namespace
