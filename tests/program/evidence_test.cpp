// The chain from the disk to the files, through the program: what it prints and writes fits the schemas.

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <nlohmann/json.hpp>

#include "support/files.h"
#include "support/run_program.h"
#include "support/schema.h"
#include "support/temp_dir.h"

namespace {

using namespace test_support;
using Json = nlohmann::json;

class Evidence : public ::testing::Test {
protected:
    std::string File(const std::string& name) const { return m_dir.File(name); }

    ProgramResult Run(const std::vector<std::string>& words) const {
        std::vector<std::string> command = {DISKACCESS_PROGRAM};
        command.insert(command.end(), words.begin(), words.end());
        return RunProgram(command);
    }

    /// Runs a command that ends with a code, and holds what it prints against its schema.
    Json Document(std::vector<std::string> words, int exitCode) const {
        const std::string schema = words.front();
        words.emplace_back("--json");
        const ProgramResult result = Run(words);
        EXPECT_EQ(result.exitCode, exitCode) << result.err;
        const Json document = Json::parse(result.out, nullptr, false);
        EXPECT_EQ(SchemaErrors(schema, document), "") << result.out;
        return document;
    }

    Json ManifestOf(const std::string& name, const std::string& schema) const {
        const Json manifest = Json::parse(ReadFile(File(name)));
        EXPECT_EQ(SchemaErrors(schema, manifest), "");
        return manifest;
    }

    const std::string m_sample = std::string(SAMPLE_DIRECTORY) + "/sample.img";
    const std::vector<std::string> m_range = {"--utc", "--from", "2026-11-20 16:20:30", "--to",
                                              "2026-11-20 16:21:00"};

private:
    TempDir m_dir;
};

std::vector<std::string> Joined(std::vector<std::string> words, const std::vector<std::string>& more) {
    words.insert(words.end(), more.begin(), more.end());
    return words;
}

TEST_F(Evidence, FitsItsSchemas) {
    const Json extract = Document(
        Joined({"extract", m_sample, "-o", File("part.img"), "--case", "A 7", "--hash-source"}, m_range), 0);
    EXPECT_EQ(extract["file"], File("part.img"));
    EXPECT_EQ(extract["signature_file"], nullptr);
    const Json manifest = ManifestOf("part.img.json", "extract_manifest");
    EXPECT_EQ(manifest["case"], "A 7");
    EXPECT_EQ(manifest["blocks"].size(), extract["copied_block_count"]);
    EXPECT_EQ(manifest["source"]["digest"]["size_bytes"], std::filesystem::file_size(m_sample));
    EXPECT_EQ(manifest["image"]["size_bytes"], std::filesystem::file_size(m_sample));
    Document(Joined({"export", File("part.img"), "-o", File("part.mkv")}, m_range), 0);
    const Json exported = ManifestOf("part.mkv.json", "manifest");
    EXPECT_EQ(Document({"verify", File("part.mkv.json"), "--source", m_sample}, 0)["verified"], true);
    // The same as from the disk itself.
    Document(Joined({"export", m_sample, "-o", File("disk.mkv")}, m_range), 0);
    std::filesystem::rename(File("part.mkv"), File("part-of-disk"));
    EXPECT_EQ(ManifestOf("disk.mkv.json", "manifest")["blocks"], exported["blocks"]);
    const Json failed = Document({"verify", File("part.mkv.json")}, 1);
    EXPECT_EQ(failed["verified"], false);
    EXPECT_EQ(failed["checks"][0]["result"], "bad");
}

TEST_F(Evidence, OfNothingIsADocument) {
    const Json nothing =
        Document({"extract", m_sample, "-o", File("part.img"), "--utc", "--from", "2030-01-01"}, 0);
    EXPECT_EQ(nothing["file"], nullptr);
    EXPECT_EQ(nothing["copied_block_count"], 0);
    EXPECT_FALSE(std::filesystem::exists(File("part.img")));
}

TEST_F(Evidence, IsRefusedInOneLine) {
    const auto line = [this](const std::vector<std::string>& words) {
        const ProgramResult result = Run(words);
        EXPECT_NE(result.exitCode, 0);
        EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1) << result.err;
        return result.err;
    };
    EXPECT_EQ(
        line({"verify", m_sample}),
        "diskaccess: " + m_sample +
            ": is no manifest that can be verified: it is no JSON document; give the .json file beside what "
            "was made\n");
    EXPECT_EQ(line({"export", m_sample, "-o", File("a.mkv"), "--sign", m_sample}),
              "diskaccess: " + m_sample +
                  ": is larger than 65536 bytes; make one with openssl genpkey -algorithm ed25519\n");
    EXPECT_NE(line({"extract", m_sample, "-o", m_sample, "--force"}).find("is never written"),
              std::string::npos);
    line({"extract", m_sample, "-o", File("")});
    line({"list", m_sample, "--skew", "1", "--clock-check", "14:00=14:01"});
}

} // namespace
