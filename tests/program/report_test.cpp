// A report: one page that holds everything, and in which what is from the disk is text.

#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <regex>

#include "program/one_camera.h"
#include "render/html_text.h"
#include "render/report_page.h"
#include "support/files.h"
#include "support/run_program.h"

namespace {

using namespace test_support;

const std::string kHostile = "</title><script>alert(1)</script><img src=x>&\"'";

TEST(HtmlText, IsNeverMarkup) {
    EXPECT_EQ(diskaccess::HtmlText("a<b>&\"c'"), "a&lt;b&gt;&amp;&quot;c&#39;");
}

TEST(Base64, IsThatOfRfc4648) {
    EXPECT_EQ(diskaccess::Base64(""), "");
    EXPECT_EQ(diskaccess::Base64("f"), "Zg==");
    EXPECT_EQ(diskaccess::Base64("foobar"), "Zm9vYmFy");
    const std::string large(size_t{4} << 20, 'a'); // more than one piece
    const std::string encoded = diskaccess::Base64(large);
    EXPECT_EQ(encoded.size(), (large.size() + 2) / 3 * 4);
    EXPECT_EQ(encoded.substr(0, 4 * size_t{0x100000} + 8), [&] {
        std::string expected;
        for (size_t i = 0; i < size_t{0x100000} + 2; ++i) {
            expected += "YWFh";
        }
        return expected;
    }());
}

TEST(PolicyHash, IsTheSha256InBase64) {
    EXPECT_EQ(diskaccess::PolicyHash(""), "sha256-47DEQpj8HBSa+/TImW+5JCeuQeRkm5NMpJWZG3hSuFU=");
}

/// One camera, recorded for ten seconds, on a disk whose texts try to be markup.
class ReportCommand : public OneCamera {
protected:
    void SetUp() override {
        OneCameraRecording recording;
        recording.description = kHostile;
        Record(recording);
    }

    ProgramResult Report(std::vector<std::string> options = {}) const {
        options.insert(options.begin(),
                       {DISKACCESS_PROGRAM, "report", File("disk"), "--utc", "-o", File("report.html")});
        return RunProgram(options);
    }
};

TEST_F(ReportCommand, HasEverySection) {
    const ProgramResult result = Report({"--case", "K 17", "--operator", "J. Doe", "--note", "as agreed"});
    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_NE(result.out.find("Journeys          1\n"), std::string::npos) << result.out;
    const std::string page = ReadFile(File("report.html"));
    size_t at = 0;
    for (const char* const section :
         {"Origin", "Disk", "Journeys", "Timeline", "Events", "Health", "Hashes"}) {
        at = page.find("<h2>" + std::string(section) + "</h2>", at);
        ASSERT_NE(at, std::string::npos) << section;
    }
    for (const char* const text : {"<td>K 17</td>", "<td>J. Doe</td>", "<td>as agreed</td>",
                                   "<td class=\"time\">2026-11-20 14:00:00</td>", "No events.",
                                   "data:image/svg+xml;base64,", "Nothing was found in the tables"}) {
        EXPECT_NE(page.find(text), std::string::npos) << text;
    }
}

/// Two events on a disk whose only channel is locked.
class ReportOfALockedDisk : public ReportCommand {
protected:
    void SetUp() override {
        OneCameraRecording recording;
        recording.events = {3, 7};
        Record(recording);
        Disk().EditHead([](PartHead_t& head) {
            head.Encrypt = 1;
            head.EncryptMap = 1;
            std::strcpy(head.CipherCode, "secret");
        });
    }
};

TEST_F(ReportOfALockedDisk, HasTheEvents) {
    const ProgramResult result = Report();
    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_NE(result.err.find("channel 0 is locked and left out"), std::string::npos) << result.err;
    EXPECT_NE(result.out.find("Events            2\n"), std::string::npos) << result.out;
    const std::string page = ReadFile(File("report.html"));
    for (const char* const text :
         {"<td class=\"time\">2026-11-20 14:00:03</td>", "<td class=\"time\">2026-11-20 14:00:07</td>",
          "Nothing is recorded of channels that are not locked.", "not recorded, or locked"}) {
        EXPECT_NE(page.find(text), std::string::npos) << text;
    }
    const ProgramResult timeline = RunProgram({DISKACCESS_PROGRAM, "timeline", File("disk")});
    EXPECT_EQ(timeline.out, "Nothing is recorded of channels that are not locked.\n");
}

/// Those who read the page do it on another machine.
TEST_F(ReportCommand, NamesTheZoneOfItsTimes) {
    ProgramSetting kathmandu;
    kathmandu.environment = {"TZ=Asia/Kathmandu"}; // without summer time
    const ProgramResult result =
        RunProgram({DISKACCESS_PROGRAM, "report", File("disk"), "-o", File("report.html")}, kathmandu);
    EXPECT_EQ(result.exitCode, 0) << result.err;
    const std::string page = ReadFile(File("report.html"));
    EXPECT_NE(page.find("<td>that of the machine it was made on: +0545 (UTC+05:45)</td>"), std::string::npos);
    EXPECT_NE(page.find("<td class=\"time\">2026-11-20 19:45:00</td>"), std::string::npos);
    EXPECT_EQ(Report({"--force"}).exitCode, 0);
    EXPECT_NE(ReadFile(File("report.html")).find("<td>UTC</td>"), std::string::npos);
}

TEST_F(ReportCommand, SaysWhatItsColoursMean) {
    EXPECT_EQ(Report().exitCode, 0);
    EXPECT_NE(ReadFile(File("report.html")).find("Green: recorded."), std::string::npos);
}

/// The place of a digest is exact: others are to read the same bytes.
TEST_F(ReportCommand, HasPlacesInBytes) {
    EXPECT_EQ(Report().exitCode, 0);
    EXPECT_NE(ReadFile(File("report.html"))
                  .find("<td>partition head</td><td class=\"number\">0</td><td class=\"number\">200</td>"),
              std::string::npos);
}

TEST_F(ReportCommand, TextOfTheDiskIsNoMarkup) {
    EXPECT_EQ(Report({"--case", kHostile}).exitCode, 0);
    const std::string page = ReadFile(File("report.html"));
    EXPECT_EQ(page.find("<script"), std::string::npos);
    EXPECT_EQ(page.find("<img src=x"), std::string::npos);
    EXPECT_NE(page.find("&lt;script&gt;alert(1)"), std::string::npos);
    std::smatch policy;
    ASSERT_TRUE(std::regex_search(page, policy, std::regex("Security-Policy\" content=\"([^\"]*)\"")));
    EXPECT_TRUE(std::regex_match(policy[1].str(),
                                 std::regex("default-src 'none'; style-src 'sha256-[A-Za-z0-9+/=]{44}'; "
                                            "img-src data:; base-uri 'none'; form-action 'none'")))
        << policy[1];
}

TEST_F(ReportCommand, ALossEndsItWith3) {
    Disk().Put(Disk().FrameOffset(0, 0), FrameHead_t{});
    const ProgramResult result = Report();
    EXPECT_EQ(result.exitCode, 3);
    EXPECT_NE(result.err.find("findings that are losses: "), std::string::npos) << result.err;
    EXPECT_NE(result.err.find("report.html names them under Health\n"), std::string::npos) << result.err;
    EXPECT_NE(ReadFile(File("report.html")).find("<td>loss</td>"), std::string::npos);
}

TEST_F(ReportCommand, KeepsWhatIsThere) {
    EXPECT_EQ(Report().exitCode, 0);
    const ProgramResult again = Report();
    EXPECT_EQ(again.exitCode, 1);
    EXPECT_NE(again.err.find("--force to replace it"), std::string::npos) << again.err;
    EXPECT_EQ(Report({"--force"}).exitCode, 0);
    EXPECT_EQ(Report({"--pictures", "1001"}).exitCode, 2);
}

} // namespace
