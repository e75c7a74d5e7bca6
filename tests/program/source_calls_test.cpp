// Every system call of every command that reaches the source, as strace sees them: nothing but reading.

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <sstream>

#include "program.h"
#include "program/export_fixture.h"

namespace {

namespace fs = std::filesystem;
using namespace test_support;

using Words = std::vector<std::string>;

/// Calls that take a descriptor of the source, and only read.
const std::set<std::string> kReading = {
    "read",  "pread64",           "readv",  "preadv",    "lseek",     "fstat",
    "close", "newfstatat",        "statx",  "fadvise64", "readahead", "mmap",
    "fcntl", "landlock_add_rule", "openat", "readlinkat"};
/// Calls that take its name, and only look or open.
const std::set<std::string> kNaming = {"execve",    "openat",     "open",     "stat",
                                       "lstat",     "newfstatat", "statx",    "access",
                                       "faccessat", "faccessat2", "readlink", "readlinkat"};
/// Calls that take bytes, in which its name may occur.
const std::set<std::string> kTelling = {"write",  "pwrite64", "writev", "pwritev",
                                        "sendto", "sendmsg",  "read",   "pread64"};

class SourceCalls : public ExportFixture {
protected:
    void SetUp() override {
        if (RunProgram({"strace", "-o", File("log"), "true"}).exitCode != 0) {
            GTEST_SKIP() << "no strace here, or it may not watch programs (package strace)";
        }
        RecordOneCamera({0, 10, 10, 1000, 300, 0, 40}, 20);
        m_source = fs::canonical(File("disk"));
        ASSERT_EQ(RunProgram({DISKACCESS_PROGRAM, "export", m_source, "--raw", "-o", File("made")}).exitCode,
                  0);
    }

    /// How each command is run: all of the program's own table.
    std::map<std::string, std::vector<Words>> Lines() const {
        const std::string database = File("catalog.db");
        return {
            {"find", {{m_source}}},
            {"journeys", {{m_source}}},
            {"timeline", {{m_source, "--svg", File("a.svg"), "--html", File("a.html")}}},
            {"info", {{m_source}}},
            {"list", {{m_source, "--mix"}}},
            {"events", {{m_source}}},
            {"days", {{m_source}}},
            {"units", {{m_source}}},
            {"space", {{m_source}}},
            {"check", {{m_source, "--full"}}},
            {"play", {{m_source}}},
            {"still", {{m_source, "--at", At(5), "-o", File("still.png")}}},
            {"export", {{m_source, "--raw", "--hash-source", "-o", File("raw")}}},
            {"view", {{m_source, "--no-browser", "--export-dir", File("")}}},
            {"extract", {{m_source, "--hash-source", "-o", File("part.img")}}},
            {"verify", {{File("made.json"), "--source", m_source}}},
            {"catalog",
             {{"add", m_source, "--database", database},
              {"list", "--database", database},
              {"find", "--database", database},
              {"remove", "1", "--database", database}}},
            {"dump", {{m_source}}},
            {"report", {{m_source, "-o", File("report.html")}}},
        };
    }

    /// Runs a command, and gives the calls that name the source or have it open.
    Words CallsOf(const std::string& command, const Words& words) const {
        Words all = {"strace", "-f", "-y", "-s", "4096", "-o", File("log")};
        if (command == "view") {
            all.insert(all.end(), {"timeout", "--signal=INT", "3"});
        }
        all.insert(all.end(), {DISKACCESS_PROGRAM, command});
        all.insert(all.end(), words.begin(), words.end());
        ProgramSetting setting;
        setting.environment = {"ASAN_OPTIONS=detect_leaks=0"}; // that looks into the process, as strace does
        const ProgramResult result = RunProgram(all, setting);
        EXPECT_TRUE(result.exitCode == 0 || (command == "view" && result.exitCode == 124) ||
                    (command == "still" && !HAVE_STILLS))
            << command << ": " << result.err;
        Words calls;
        std::ifstream log(File("log"));
        for (std::string line; std::getline(log, line);) {
            if (HasOpen(line) || HasName(line)) {
                calls.push_back(line.substr(line.find_first_not_of("0123456789 ")));
            }
        }
        return calls;
    }

    bool HasOpen(const std::string& call) const {
        return call.find("<" + m_source + ">") != std::string::npos;
    }
    /// Also by the name that it has in its folder.
    bool HasName(const std::string& call) const {
        return call.find('"' + m_source + '"') != std::string::npos ||
               call.find(">, \"disk\"") != std::string::npos;
    }
    bool OnlyReads(const std::string& call) const {
        const std::string name = call.substr(0, call.find('('));
        if ((HasOpen(call) && kReading.count(name) == 0) ||
            (HasName(call) && !HasOpen(call) && kNaming.count(name) + kTelling.count(name) == 0)) {
            return false;
        }
        const Words writing = {"O_WRONLY", "O_RDWR", "O_CREAT", "O_TRUNC", "O_APPEND", "PROT_WRITE"};
        const bool opens = name == "openat" || name == "open" || name == "mmap";
        return !opens || std::none_of(writing.begin(), writing.end(), [&](const std::string& flag) {
            return call.find(flag) != std::string::npos;
        });
    }

    std::string m_source;
};

TEST_F(SourceCalls, AreThoseOfAReaderInEveryCommand) {
    const std::map<std::string, std::vector<Words>> lines = Lines();
    const std::string bytes = ReadFile(m_source);
    for (const diskaccess::Command& command : diskaccess::AllCommands()) {
        const auto found = lines.find(command.Name());
        ASSERT_NE(found, lines.end()) << "say above how " << command.Name() << " is run";
        struct stat before = {};
        ASSERT_EQ(stat(m_source.c_str(), &before), 0);
        size_t opened = 0;
        for (const Words& words : found->second) {
            for (const std::string& call : CallsOf(command.Name(), words)) {
                EXPECT_TRUE(OnlyReads(call)) << command.Name() << ": " << call.substr(0, 300);
                opened += call.compare(0, 4, "open") == 0 ? 1u : 0u;
            }
        }
        EXPECT_GT(opened, 0u) << command.Name();
        struct stat after = {};
        ASSERT_EQ(stat(m_source.c_str(), &after), 0);
        EXPECT_EQ(after.st_mtim.tv_sec, before.st_mtim.tv_sec) << command.Name();
        EXPECT_EQ(after.st_mtim.tv_nsec, before.st_mtim.tv_nsec) << command.Name();
        EXPECT_EQ(after.st_ctim.tv_sec, before.st_ctim.tv_sec) << command.Name();
        EXPECT_EQ(after.st_ctim.tv_nsec, before.st_ctim.tv_nsec) << command.Name();
    }
    EXPECT_TRUE(ReadFile(m_source) == bytes);
}

/// What this would say of a program that writes.
TEST_F(SourceCalls, OfAWriterAreSeen) {
    for (const std::string& call :
         {"openat(AT_FDCWD</tmp>, \"" + m_source + "\", O_RDWR|O_CLOEXEC) = 4<" + m_source + ">",
          "openat(AT_FDCWD</tmp>, \"" + m_source + "\", O_RDONLY|O_TRUNC) = 4<" + m_source + ">",
          "write(4<" + m_source + ">, \"x\", 1) = 1", "pwrite64(4<" + m_source + ">, \"x\", 1, 0) = 1",
          std::string("unlinkat(5</tmp>, \"disk\", 0) = 0"), "ioctl(4<" + m_source + ">, BLKDISCARD, 0) = 0",
          "unlink(\"" + m_source + "\") = 0", "utimensat(AT_FDCWD, \"" + m_source + "\", NULL, 0) = 0",
          "ftruncate(4<" + m_source + ">, 0) = 0",
          "mmap(NULL, 4096, PROT_READ|PROT_WRITE, MAP_SHARED, 4<" + m_source + ">, 0) = 0x7f"}) {
        EXPECT_FALSE(OnlyReads(call)) << call;
    }
    EXPECT_TRUE(OnlyReads("pread64(4<" + m_source + ">, \"x\", 1, 0) = 1"));
    EXPECT_TRUE(OnlyReads("write(1</tmp/out>, \"" + m_source + "\", 1) = 1"));
}

} // namespace
