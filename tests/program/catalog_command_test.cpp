// diskaccess catalog, as its user meets it: what it prints, where it keeps the catalogue, and what it is kept from.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>

#include "catalog/database.h"
#include "commands/commands.h"
#include "program/one_camera.h"
#include "support/run_program.h"
#include "support/schema.h"

namespace {

namespace fs = std::filesystem;
using namespace test_support;
using Json = nlohmann::json;

/// A disk of one camera.
class CatalogCommand : public OneCamera {
protected:
    void SetUp() override {
        OneCameraRecording recording;
        recording.blocks = 8;
        recording.audio = true;
        recording.seconds = 60;
        Record(recording);
    }

    ProgramResult Run(std::vector<std::string> arguments) const {
        arguments.insert(arguments.begin(), {DISKACCESS_PROGRAM, "catalog"});
        arguments.emplace_back("--utc");
        return RunProgram(arguments, m_setting);
    }

    std::string Database() const { return File("shelf/catalog.db"); }

    ProgramSetting m_setting;
};

TEST_F(CatalogCommand, KeepsTheCatalogueInTheUsersFolder) {
    m_setting.environment = {"HOME=" + File(""), "XDG_DATA_HOME="};
    const ProgramResult added = Run({"add", File("disk")});
    EXPECT_EQ(added.exitCode, 0) << added.err;
    EXPECT_EQ(added.err, "");
    EXPECT_TRUE(fs::exists(File(".local/share/diskaccess/catalog.db")));
    const Json found = Json::parse(Run({"find", "--json"}).out);
    EXPECT_EQ(SchemaErrors("catalog", found), "");
    EXPECT_EQ(found["found"].size(), 1u);
}

TEST_F(CatalogCommand, AddsSeveralDisksAtOnce) {
    fs::create_directory(File("shelf"));
    std::vector<std::string> words = {"add", "--jobs", "3", "--database", Database()};
    for (const char* const name : {"a.img", "b.img", "c.img", "d.img"}) {
        fs::copy_file(File("disk"), File(name));
        words.push_back(File(name));
    }
    const ProgramResult added = Run(words);
    EXPECT_EQ(added.exitCode, 0) << added.err;
    // The same disk, wherever it lies.
    EXPECT_EQ(Json::parse(Run({"list", "--json", "--database", Database()}).out)["catalogued_disks"].size(),
              1u);
    EXPECT_EQ(Run({"remove", "1", "--database", Database()}).exitCode, 0);
}

TEST_F(CatalogCommand, NamesTheDiskThatHasLosses) {
    fs::create_directory(File("shelf"));
    fs::resize_file(File("disk"), Disk().BlockStart(0) + 100); // the first block's frames are gone
    const ProgramResult added = Run({"add", File("disk"), "--json", "--database", Database()});
    EXPECT_EQ(added.exitCode, 3);
    const auto losses = Json::parse(added.out)["added"][0]["loss_count"].get<uint64_t>();
    ASSERT_GT(losses, 0u);
    EXPECT_EQ(added.err, "diskaccess: " + File("disk") +
                             ": not everything that was recorded is there: " + std::to_string(losses) +
                             (losses == 1 ? " loss" : " losses") + "; catalog list says what is missing\n");
}

std::string NoCatalogue(const std::string& shown) {
    return "diskaccess: " + shown +
           ": there is no catalogue; 'catalog add' makes it, or give another --database\n";
}

TEST_F(CatalogCommand, AsksNoCatalogueThatIsNotThere) {
    for (const char* const action : {"list", "find"}) {
        const ProgramResult asked = Run({action, "--database", File("typo.db")});
        EXPECT_EQ(asked.exitCode, 1);
        EXPECT_EQ(asked.err, NoCatalogue(File("typo.db")));
        EXPECT_FALSE(fs::exists(File("typo.db")));
    }
}

TEST_F(CatalogCommand, MakesNoneToAnswerAQuestion) {
    const std::ofstream empty(File("empty.db"));
    for (const std::vector<std::string>& words :
         {std::vector<std::string>{"list"}, {"find"}, {"remove", "1"}}) {
        std::vector<std::string> asked = words;
        asked.insert(asked.end(), {"--database", File("empty.db")});
        const ProgramResult result = Run(asked);
        EXPECT_EQ(result.exitCode, 1);
        EXPECT_EQ(result.err, NoCatalogue(File("empty.db")));
        EXPECT_EQ(fs::file_size(File("empty.db")), 0u);
    }
    EXPECT_EQ(Run({"add", File("disk"), "--database", File("empty.db")}).exitCode, 0);
    EXPECT_EQ(Run({"list", "--database", File("empty.db")}).exitCode, 0);
}

TEST_F(CatalogCommand, MakesNoFolderToAnswerAQuestion) {
    m_setting.environment = {"HOME=" + File(""), "XDG_DATA_HOME="};
    const ProgramResult asked = Run({"list"});
    EXPECT_EQ(asked.exitCode, 1);
    EXPECT_EQ(asked.err, NoCatalogue(File(".local/share/diskaccess/catalog.db")));
    EXPECT_FALSE(fs::exists(File(".local")));
}

TEST_F(CatalogCommand, EscapesAPathOnce) {
    EXPECT_EQ(Run({"list", "--database", File("a\\b.db")}).err, NoCatalogue(File("a\\\\b.db")));
}

TEST_F(CatalogCommand, SaysWhyItCannotLook) {
    const std::string tooLong = File(std::string(300, 'x'));
    EXPECT_EQ(Run({"list", "--database", tooLong}).err,
              "diskaccess: " + tooLong +
                  ": cannot be looked at: File name too long; give another --database\n");
    fs::create_directory(File("closed"));
    fs::permissions(File("closed"), fs::perms::none);
    fs::permissions(File(""), fs::perms::all);
    m_setting.userId = 65534;
    const ProgramResult closed = Run({"list", "--database", File("closed/c.db")});
    if (closed.exitCode == 127) {
        GTEST_SKIP() << "the program lies where another user cannot run it";
    }
    EXPECT_EQ(closed.err, "diskaccess: " + File("closed/c.db") +
                              ": cannot be looked at: Permission denied; give another --database\n");
}

TEST_F(CatalogCommand, LeavesASourceAloneThatBearsItsJournalsName) {
    fs::rename(File("disk"), File("catalog.db-journal"));
    const ProgramResult added = Run({"add", File("catalog.db-journal"), "--database", File("catalog.db")});
    EXPECT_EQ(added.exitCode, 1);
    EXPECT_EQ(added.err,
              "diskaccess: " + File("catalog.db-journal") +
                  ": the catalogue lies in it, and it is never written; give another --database\n");
    EXPECT_TRUE(fs::exists(File("catalog.db-journal")));
    EXPECT_FALSE(fs::exists(File("catalog.db")));
}

TEST_F(CatalogCommand, SaysWhatItIsKeptFrom) {
    fs::create_directory(File("shelf"));
    const ProgramResult added = Run({"add", File("disk"), "--verbose", "--database", Database()});
    EXPECT_EQ(added.exitCode, 0) << added.err;
    EXPECT_EQ(added.err.compare(0, 24, "diskaccess: the program "), 0) << added.err;
    EXPECT_EQ(added.err.find("not confined"), std::string::npos) << added.err;
}

// ---- what it needs

bool Has(const std::vector<std::string>& paths, const std::string& path) {
    return std::find(paths.begin(), paths.end(), path) != paths.end();
}

TEST(NeedsOfCatalog, AreTheDisksAndTheFolderOfTheFile) {
    diskaccess::Options options;
    options.action = "add";
    options.subjects = {"/none/a.img", "/other/b.img"};
    options.database = "/shelf/catalog.db";
    const diskaccess::Needs needs = diskaccess::NeedsOfCatalog(options).value();
    EXPECT_EQ(needs.writable, std::vector<std::string>{"/shelf"});
    EXPECT_TRUE(Has(needs.readable, "/none/a.img"));
    EXPECT_TRUE(Has(needs.readable, "/other/b.img"));
    EXPECT_FALSE(needs.network);
}

TEST(NeedsOfCatalog, HaveNoDisksInAQuestion) {
    diskaccess::Options options;
    options.action = "remove";
    options.subjects = {"7"};
    options.database = "catalog.db";
    const diskaccess::Needs needs = diskaccess::NeedsOfCatalog(options).value();
    EXPECT_EQ(needs.writable, std::vector<std::string>{"."});
    EXPECT_FALSE(Has(needs.readable, "7"));
    EXPECT_FALSE(needs.network);
}

TEST(NeedsOfCatalog, HaveTheNetworkForAServerAlone) {
    if (!catalog::ServersSupported()) {
        GTEST_SKIP() << "built without PostgreSQL's library";
    }
    diskaccess::Options options;
    options.action = "list";
    options.database = "postgresql://reader@shelf/catalog?sslrootcert=/keys/root.crt";
    const diskaccess::Needs needs = diskaccess::NeedsOfCatalog(options).value();
    EXPECT_TRUE(needs.network);
    EXPECT_EQ(needs.writable, std::vector<std::string>());
    EXPECT_TRUE(Has(needs.readable, "/etc/hosts"));
    EXPECT_TRUE(Has(needs.readable, "/keys/root.crt"));
}

/// Beside a server of the test's own: with_postgres.sh.
class CatalogOnServer : public CatalogCommand {
protected:
    void SetUp() override {
        if (std::getenv("DISKACCESS_TEST_SERVER") == nullptr) {
            GTEST_SKIP() << "no PostgreSQL server: CTest runs this beside one";
        }
        CatalogCommand::SetUp();
    }
};

TEST_F(CatalogOnServer, IsReachedWhileConfined) {
    const std::string server = std::getenv("DISKACCESS_TEST_SERVER");
    const ProgramResult added = Run({"add", File("disk"), "--verbose", "--jobs", "2", "--database", server});
    EXPECT_EQ(added.exitCode, 0) << added.err;
    EXPECT_NE(added.err.find("it starts no program\n"), std::string::npos) << added.err;
    const Json found = Json::parse(Run({"find", "--json", "--database", server}).out);
    EXPECT_EQ(found["found"].size(), 1u);
}

} // namespace
