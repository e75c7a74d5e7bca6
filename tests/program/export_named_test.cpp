// Exports of a record, of a journey, and of what lies around an event: the time that they name, and no other.

#include <nlohmann/json.hpp>

#include <cstring>
#include <filesystem>
#include <memory>

#include "sample_recorder/generated_source.h"
#include "sample_recorder/recorder.h"
#include "search/search_fixture.h"
#include "support/files.h"
#include "support/run_program.h"

namespace {

using namespace test_support;
using namespace sample_recorder;
using Json = nlohmann::json;

constexpr uint32_t kStart = 1795183200; // 2026-11-20 14:00:00 UTC

/// Channels 0 and 1, two minutes each; an event in the second minute. After twenty minutes, ten seconds of
/// channel 1; after another twenty, of channel 0.
class NamedExport : public SearchFixture {
protected:
    void SetUp() override {
        Format format;
        format.blockCount = 8;
        format.blockSize = 0x100000;
        MakeDisk(format);
        RecorderSettings settings;
        settings.channels = 0x3;
        m_recorder = std::make_unique<Recorder>(Disk(), settings);
        Recorder& recorder = *m_recorder;
        MergedSource source;
        source.Add(
            std::make_unique<GeneratedSource>(GeneratedCamera{0, 5, 5, 400, 100, 0, 0}, 1, kStart, 120));
        source.Add(
            std::make_unique<GeneratedSource>(GeneratedCamera{1, 5, 5, 400, 100, 0, 0}, 2, kStart, 120));
        bool told = false;
        for (Frame frame; source.Next(frame);) {
            if (!told && frame.pts >= Pts(kStart + 70)) {
                recorder.WriteEvent(Pts(kStart + 70), 0x4, 0);
                told = true;
            }
            recorder.Write(frame);
        }
        recorder.PowerOff();
        for (const auto& [channel, later] : {std::pair(1u, 1200u), std::pair(0u, 2400u)}) {
            GeneratedSource alone(GeneratedCamera{channel, 5, 5, 400, 100, 0, 0}, 3, kStart + later, 10);
            for (Frame frame; alone.Next(frame);) {
                recorder.Write(frame);
            }
            recorder.PowerOff();
        }
    }

    ProgramResult Export(std::vector<std::string> options) const {
        options.insert(options.begin(), {DISKACCESS_PROGRAM, "export", File("disk"), "--utc", "--raw", "-o",
                                         File("out"), "--force"});
        return RunProgram(options);
    }

    /// The manifest of an export: its range, and its tracks' channels.
    std::string Exported(const std::vector<std::string>& options) const {
        const ProgramResult result = Export(options);
        EXPECT_EQ(result.exitCode, 0) << result.err;
        const Json manifest = Json::parse(ReadFile(File("out.json")));
        const auto timeOfDay = [&](const char* key) {
            return manifest[key].get<std::string>().substr(11, 8);
        };
        std::string text = timeOfDay("from") + "-" + timeOfDay("to");
        for (const Json& track : manifest["tracks"]) {
            text += " " + std::to_string(track["channel"].get<int>());
        }
        return text;
    }

    std::unique_ptr<Recorder> m_recorder;

    std::string Refused(const std::vector<std::string>& options, int exitCode) const {
        const ProgramResult result = Export(options);
        EXPECT_EQ(result.exitCode, exitCode) << result.err;
        return result.err;
    }
};

TEST_F(NamedExport, AroundAnEvent) {
    EXPECT_EQ(Exported({"--event", "0/0"}), "14:00:40-14:01:40 0 1");
    EXPECT_EQ(Exported({"--event", "0/0", "--around", "5s", "--channel", "1"}), "14:01:05-14:01:15 1");
}

TEST_F(NamedExport, OfARecord) {
    EXPECT_EQ(Exported({"--record", "0/1"}), "14:00:00-14:01:59 1");
    EXPECT_EQ(Exported({"--record", "0/0/0"}), "14:00:00-14:01:59 0");
}

TEST_F(NamedExport, OfAJourney) {
    EXPECT_EQ(Exported({"--journey", "1"}), "14:00:00-14:01:59 0 1");
    EXPECT_EQ(Exported({"--journey", "1", "--channel", "0"}), "14:00:00-14:01:59 0");
    EXPECT_EQ(Exported({"--journey", "2"}), "14:20:00-14:20:09 1");
    EXPECT_EQ(Exported({"--journey", "1", "--silence", "1h"}), "14:00:00-14:40:09 0 1");
}

/// A journey has one number, whichever channels are asked for.
TEST_F(NamedExport, OfAJourneyByItsOneNumber) {
    const auto numbers = [this](const std::string& channels) {
        const ProgramResult result =
            RunProgram({DISKACCESS_PROGRAM, "journeys", File("disk"), "--json", "--channel", channels});
        const Json answer = Json::parse(result.out);
        std::string text;
        for (const Json& row : answer["journeys"]) {
            text += row["journey"].dump() + " ";
        }
        return text;
    };
    EXPECT_EQ(numbers("0,1"), "1 2 3 ");
    EXPECT_EQ(numbers("0"), "1 3 ");
    EXPECT_EQ(numbers("1"), "1 2 ");
    EXPECT_EQ(Exported({"--journey", "3", "--channel", "0"}), "14:40:00-14:40:09 0");
    EXPECT_EQ(Exported({"--journey", "2", "--channel", "0,1"}), "14:20:00-14:20:09 1");
    std::filesystem::remove(File("out.json"));
    const std::string about = "diskaccess: " + File("disk") + ": journey ";
    EXPECT_EQ(Refused({"--journey", "2", "--channel", "0"}, 1),
              about + "2 holds nothing of channel 0; see journeys\n");
    EXPECT_EQ(Refused({"--journey", "3", "--channel", "1,5-7"}, 1),
              about + "3 holds nothing of channels 1,5-7; see journeys\n");
    EXPECT_FALSE(std::filesystem::exists(File("out.json")));
}

/// What channel 1 holds is not known without the password.
TEST_F(NamedExport, OfAJourneyOfLockedChannels) {
    Disk().EditHead([](PartHead_t& head) {
        head.Encrypt = 1;
        head.EncryptMap = 0x2;
        std::strcpy(head.CipherCode, "open");
    });
    EXPECT_EQ(Exported({"--journey", "2"}), "14:40:00-14:40:09 0"); // the second that is known of
    const ProgramResult locked = Export({"--journey", "1", "--channel", "1"});
    EXPECT_NE(locked.err.find("these channels are locked; nothing was written"), std::string::npos)
        << locked.err;
    EXPECT_NE(Refused({"--journey", "2", "--channel", "1,5"}, 1).find("holds nothing of channel 5;"),
              std::string::npos);
}

TEST_F(NamedExport, OfAJourneyHasNothingToDoWithLossesInAnother) {
    // A fourth one, of some 400 KB a second: blocks 3 to 6.
    GeneratedSource later(GeneratedCamera{1, 5, 5, 200000, 50000, 0, 0}, 4, kStart + 3600, 10);
    for (Frame frame; later.Next(frame);) {
        m_recorder->Write(frame);
    }
    m_recorder->PowerOff();
    const std::vector<uint8_t> zeros(0x100000);
    Disk().Write(Disk().HeadOffset(4), zeros.data(), zeros.size());
    const ProgramResult first = Export({"--journey", "1"});
    EXPECT_EQ(first.exitCode, 0) << first.err;
    EXPECT_EQ(first.err, "");
    const std::string lost = "block 4: was recorded, but holds no recording any more";
    const ProgramResult fourth = Export({"--journey", "4"});
    EXPECT_EQ(fourth.exitCode, 3);
    EXPECT_NE(fourth.err.find(lost), std::string::npos) << fourth.err;
    // Where there is no such journey, it may be what is lost.
    EXPECT_NE(Export({"--journey", "9"}).err.find(lost), std::string::npos);
}

TEST_F(NamedExport, OfWhatIsNotThere) {
    EXPECT_NE(Refused({"--event", "0/1"}, 1).find("holds no event 0/1"), std::string::npos);
    EXPECT_NE(Refused({"--event", "3/0"}, 1).find("holds no event 3/0"), std::string::npos);
    EXPECT_NE(Refused({"--record", "0/7"}, 1).find("holds no record 0/7"), std::string::npos);
    EXPECT_NE(Refused({"--journey", "4"}, 1).find("holds no journey 4; journeys shows those there are"),
              std::string::npos);
}

TEST_F(NamedExport, WrongUse) {
    EXPECT_NE(Refused({"--event", "0"}, 2).find("is not an event"), std::string::npos);
    EXPECT_NE(Refused({"--record", "x"}, 2).find("is not a record"), std::string::npos);
    EXPECT_NE(Refused({"--event", "0/0", "--from", "14:00"}, 2).find("leave --from and --to out"),
              std::string::npos);
    EXPECT_NE(Refused({"--journey", "1", "--to", "14:00"}, 2).find("leave --from and --to out"),
              std::string::npos);
    Refused({"--event", "0/0", "--record", "0/0"}, 2);
    Refused({"--journey", "1", "--record", "0/0"}, 2);
    Refused({"--journey", "1", "--event", "0/0"}, 2);
    Refused({"--journey", "0"}, 2);
    Refused({"--journey", "1", "--silence", "soon"}, 2);
    Refused({"--around", "5s"}, 2);
    Refused({"--event", "0/0", "--around", "soon"}, 2);
}

} // namespace
