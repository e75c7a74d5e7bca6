// Files that appear whole or not at all, and replace nothing that they must not.

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <regex>
#include <set>

#include "file_writer.h"
#include "media/error.h"
#include "media/output_file.h"
#include "pipeline.h"
#include "support/files.h"
#include "support/temp_dir.h"

namespace {

using namespace media;
using test_support::ReadFile;
using test_support::TempDir;

class OutputFiles : public ::testing::Test {
protected:
    OutputFiles() : m_source(OpenSource()), m_identity(m_source) {}
    ~OutputFiles() override { close(m_source); }

    int OpenSource() const {
        std::ofstream(m_dir.File("source")) << "evidence";
        return open(m_dir.File("source").c_str(), O_RDONLY | O_CLOEXEC);
    }

    /// The names in the folder, but for the source's.
    std::vector<std::string> Names() const {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(m_dir.File(""))) {
            if (entry.path().filename() != "source") {
                names.push_back(entry.path().filename().string());
            }
        }
        std::sort(names.begin(), names.end());
        return names;
    }

    static void Finish(OutputFile& file) {
        file.Complete();
        file.TakeName();
        file.Keep();
    }

    /// Expects that a file that is whole cannot take its name.
    static void ExpectNoName(OutputFile& file, const std::string& why) {
        try {
            file.TakeName();
            FAIL() << file.Path();
        } catch (const Error& failure) {
            EXPECT_EQ(failure.what(), file.Path() + why);
        }
    }

    TempDir m_dir;
    const std::string m_path = m_dir.File("out");
    // "abc", and a million times "a": the digests are those of the standard's own examples.
    const std::string m_abc = "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad";
    const std::string m_million = "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0";
    const std::string m_isSource = ": is the source, or what the source is stored in, and is never written";
    int m_source;
    SourceIdentity m_identity;
    Pipeline m_pipeline;
    const OutputRules m_careful = {m_identity, false};
    const OutputRules m_replacing = {m_identity, true};
};

TEST_F(OutputFiles, GetTheirNameWhenTheyAreWhole) {
    OutputFile file(m_path, m_careful, m_pipeline);
    file.Bytes().Write("ab", 2);
    file.Bytes().Write("c", 1);
    EXPECT_FALSE(std::filesystem::exists(m_path));
    Finish(file);
    EXPECT_EQ(ReadFile(m_path), "abc");
    EXPECT_EQ(file.Result().sha256, m_abc);
    EXPECT_EQ(file.Result().size, 3u);
    EXPECT_EQ(Names(), std::vector<std::string>{"out"});
}

TEST_F(OutputFiles, HashLargeOnesTooAndThoseThatWereMended) {
    OutputFile file(m_path, m_careful, m_pipeline);
    const std::string as(300000, 'a');
    for (int i = 0; i < 3; ++i) {
        file.Bytes().Write(as.data(), as.size());
    }
    file.Bytes().Write("b", 1);
    file.Bytes().Write(as.data(), 99999);
    file.Bytes().Rewrite(900000, "a", 1);
    Finish(file);
    EXPECT_EQ(file.Result().sha256, m_million);
    EXPECT_EQ(file.Result().size, 1000000u);
}

TEST_F(OutputFiles, GivenUpLeaveNothing) {
    for (const int steps : {0, 1, 2}) {
        {
            OutputFile file(m_path, m_careful, m_pipeline);
            file.Bytes().Write("abc", 3);
            if (steps > 0) {
                file.Complete();
            }
            if (steps > 1) {
                file.TakeName();
            }
        }
        EXPECT_EQ(Names(), std::vector<std::string>()) << steps;
    }
}

TEST_F(OutputFiles, GivenUpBringBackWhatTheyReplaced) {
    std::ofstream(m_path) << "precious";
    {
        OutputFile file(m_path, m_replacing, m_pipeline);
        file.Bytes().Write("abc", 3);
        file.Complete();
        file.TakeName();
        EXPECT_EQ(ReadFile(m_path), "abc");
    }
    EXPECT_EQ(ReadFile(m_path), "precious");
    EXPECT_EQ(Names(), std::vector<std::string>{"out"});
}

TEST_F(OutputFiles, GivenUpLeaveWhatOthersPutInTheirPlace) {
    std::ofstream(m_path) << "precious";
    {
        OutputFile file(m_path, m_replacing, m_pipeline);
        file.Complete();
        file.TakeName();
        std::ofstream(m_dir.File("newer")) << "newer";
        std::filesystem::rename(m_dir.File("newer"), m_path);
    }
    EXPECT_EQ(ReadFile(m_path), "newer");
    // What was there before is lost to nobody.
    ASSERT_EQ(Names().size(), 2u);
    EXPECT_EQ(ReadFile(m_dir.File(Names()[0])), "precious");
}

TEST_F(OutputFiles, DoNotReplaceWhatCameUpMeanwhile) {
    {
        OutputFile file(m_path, m_careful, m_pipeline);
        file.Complete();
        std::ofstream(m_path) << "precious";
        ExpectNoName(file, ": exists already");
    }
    EXPECT_EQ(ReadFile(m_path), "precious");
    EXPECT_THROW(OutputFile(m_path, m_careful, m_pipeline), Error);
    EXPECT_EQ(Names(), std::vector<std::string>{"out"});
    OutputFile replacing(m_path, m_replacing, m_pipeline);
    replacing.Bytes().Write("abc", 3);
    Finish(replacing);
    EXPECT_EQ(ReadFile(m_path), "abc");
    EXPECT_EQ(Names(), std::vector<std::string>{"out"});
}

TEST_F(OutputFiles, DoNotReplaceASourceThatCameUpMeanwhile) {
    for (const bool symbolic : {false, true}) {
        for (const OutputRules& rules : {m_careful, m_replacing}) {
            OutputFile file(m_path, rules, m_pipeline);
            file.Complete();
            if (symbolic) {
                std::filesystem::create_symlink("source", m_path);
            } else {
                std::filesystem::create_hard_link(m_dir.File("source"), m_path);
            }
            ExpectNoName(file, m_isSource);
            EXPECT_EQ(ReadFile(m_path), "evidence");
            std::filesystem::remove(m_path);
        }
    }
    EXPECT_EQ(Names(), std::vector<std::string>());
}

TEST_F(OutputFiles, AreMadeWhereTheirFolderIsNow) {
    // The folder's name is made a link to the source's folder while the file is written.
    std::filesystem::create_directory(m_dir.File("folder"));
    OutputFile file(m_dir.File("folder/source"), m_replacing, m_pipeline);
    file.Bytes().Write("abc", 3);
    file.Complete();
    std::filesystem::rename(m_dir.File("folder"), m_dir.File("moved"));
    std::filesystem::create_directory_symlink(".", m_dir.File("folder"));
    file.TakeName();
    file.Keep();
    EXPECT_EQ(ReadFile(m_dir.File("source")), "evidence");
    EXPECT_EQ(ReadFile(m_dir.File("moved/source")), "abc");
}

TEST_F(OutputFiles, BearNamesThatNobodyCanForesee) {
    std::set<std::string> seen;
    for (int i = 0; i < 100; ++i) {
        const OutputFile file(m_path, m_careful, m_pipeline);
        ASSERT_EQ(Names().size(), 1u);
        const std::string name = Names()[0];
        EXPECT_TRUE(std::regex_match(name, std::regex("diskaccess-[0-9a-f]{16}\\.part"))) << name;
        seen.insert(name);
    }
    EXPECT_EQ(seen.size(), 100u);
}

TEST_F(OutputFiles, HaveTheirFinalModeFromTheStart) {
    for (const auto& [mask, mode] : {std::pair<mode_t, mode_t>{022, 0644}, {077, 0600}, {0, 0666}}) {
        const mode_t before = umask(mask);
        OutputFile file(m_path, m_replacing, m_pipeline);
        struct stat status = {};
        const auto names = Names();
        EXPECT_EQ(stat(m_dir
                           .File(*std::find_if(names.begin(), names.end(),
                                               [](const auto& name) { return name != "out"; }))
                           .c_str(),
                       &status),
                  0);
        umask(before);
        EXPECT_EQ(status.st_mode & 07777, mode);
        Finish(file);
        EXPECT_EQ(stat(m_path.c_str(), &status), 0);
        EXPECT_EQ(status.st_mode & 07777, mode);
    }
}

TEST_F(OutputFiles, GetTheirNamesTogetherOrNotAtAll) {
    std::ofstream(m_path) << "old";
    {
        Outputs outputs(m_replacing);
        // The first one is named last.
        outputs.Make(m_dir.File("third")).Complete();
        outputs.Make(m_dir.File("second")).Complete();
        outputs.Make(m_path).Complete();
        std::filesystem::create_directory(m_dir.File("third"));
        EXPECT_THROW(outputs.Publish(), Error);
    }
    EXPECT_EQ(Names(), (std::vector<std::string>{"out", "third"}));
    EXPECT_EQ(ReadFile(m_path), "old");
    std::filesystem::remove(m_dir.File("third"));
    Outputs outputs(m_replacing);
    for (const char* const name : {"out", "second", "third"}) {
        OutputFile& file = outputs.Make(m_dir.File(name));
        file.Bytes().Write(name, 3);
        file.Complete();
    }
    outputs.Publish();
    EXPECT_EQ(Names(), (std::vector<std::string>{"out", "second", "third"}));
    EXPECT_EQ(ReadFile(m_path), "out");
    EXPECT_EQ(ReadFile(m_dir.File("third")), "thi");
}

TEST_F(OutputFiles, OfOneNameAreRefused) {
    Outputs outputs(m_replacing);
    outputs.Make(m_path);
    EXPECT_THROW(outputs.Make(m_path), Error);
}

} // namespace
