// Exports to one name that run at the same time: one of them has the name, file and manifest both.

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <thread>

#include "program/export_fixture.h"

namespace {

namespace fs = std::filesystem;
using namespace test_support;

class ParallelExports : public ExportFixture {
protected:
    void SetUp() override {
        RecordOneCamera({0, 10, 10, 1000, 300, 0, 40}, 20);
        fs::create_directory(File("out"));
    }

    /// Two at once, of different stretches of time.
    std::vector<ProgramResult> RunTwo(const std::vector<std::string>& options) const {
        std::vector<ProgramResult> results(2);
        std::vector<std::thread> threads;
        for (size_t i = 0; i < results.size(); ++i) {
            threads.emplace_back([&, i] {
                std::vector<std::string> words = {DISKACCESS_PROGRAM,
                                                  "export",
                                                  File("disk"),
                                                  "--utc",
                                                  "--raw",
                                                  "-o",
                                                  Name(),
                                                  "--from",
                                                  At(static_cast<uint32_t>(i))};
                words.insert(words.end(), options.begin(), options.end());
                results[i] = RunProgram(words);
            });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        return results;
    }

    std::string Name() const { return File("out/film"); }

    /// Expects a file and the manifest of that file, and nothing else.
    void ExpectOneExport() const {
        std::vector<std::string> names;
        for (const auto& entry : fs::directory_iterator(File("out"))) {
            names.push_back(entry.path().filename());
        }
        std::sort(names.begin(), names.end());
        EXPECT_EQ(names, (std::vector<std::string>{"film-ch0.video", "film.json"}));
        const ProgramResult verified = RunProgram({DISKACCESS_PROGRAM, "verify", File("out/film.json")});
        EXPECT_EQ(verified.exitCode, 0) << verified.out << verified.err;
    }

    static constexpr int kRounds = 12;
};

TEST_F(ParallelExports, OneGetsTheNameAndTheOtherSaysSo) {
    for (int round = 0; round < kRounds; ++round) {
        std::vector<ProgramResult> results = RunTwo({});
        std::sort(results.begin(), results.end(), [](const ProgramResult& one, const ProgramResult& other) {
            return one.exitCode < other.exitCode;
        });
        ASSERT_EQ(results[0].exitCode, 0) << results[0].err;
        EXPECT_EQ(results[0].err, "");
        ASSERT_EQ(results[1].exitCode, 1);
        EXPECT_EQ(std::count(results[1].err.begin(), results[1].err.end(), '\n'), 1) << results[1].err;
        EXPECT_NE(results[1].err.find("exists already; give another --output, or --force to replace it"),
                  std::string::npos)
            << results[1].err;
        ExpectOneExport();
        fs::remove_all(File("out"));
        fs::create_directory(File("out"));
    }
}

TEST_F(ParallelExports, ThatReplaceLeaveTheFilesOfOne) {
    for (int round = 0; round < kRounds; ++round) {
        for (const ProgramResult& result : RunTwo({"--force"})) {
            EXPECT_EQ(result.exitCode, 0) << result.err;
            EXPECT_EQ(result.err, "");
        }
        ExpectOneExport();
    }
}

/// One that replaces has the name in any case; the other one had it before, or says that it is taken.
TEST_F(ParallelExports, OfWhichOneReplaces) {
    for (int round = 0; round < kRounds; ++round) {
        ProgramResult plain;
        std::thread other([&] {
            plain = RunProgram({DISKACCESS_PROGRAM, "export", File("disk"), "--utc", "--raw", "-o", Name()});
        });
        const ProgramResult forced = RunProgram({DISKACCESS_PROGRAM, "export", File("disk"), "--utc", "--raw",
                                                 "-o", Name(), "--force", "--from", At(5)});
        other.join();
        EXPECT_EQ(forced.exitCode, 0) << forced.err;
        EXPECT_LE(plain.exitCode, 1);
        EXPECT_EQ(std::count(plain.err.begin(), plain.err.end(), '\n'), plain.exitCode) << plain.err;
        ExpectOneExport();
        fs::remove_all(File("out"));
        fs::create_directory(File("out"));
    }
}

} // namespace
