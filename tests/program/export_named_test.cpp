// Exports of a record, of a journey, and of what lies around an event: the time that they name, and no other.

#include <nlohmann/json.hpp>

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

/// Channels 0 and 1, two minutes each; an event in the second minute. After twenty minutes, ten seconds of channel 1.
class NamedExport : public SearchFixture {
protected:
    void SetUp() override {
        Format format;
        format.blockCount = 4;
        format.blockSize = 0x100000;
        MakeDisk(format);
        RecorderSettings settings;
        settings.channels = 0x3;
        Recorder recorder(Disk(), settings);
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
        GeneratedSource later(GeneratedCamera{1, 5, 5, 400, 100, 0, 0}, 3, kStart + 1200, 10);
        for (Frame frame; later.Next(frame);) {
            recorder.Write(frame);
        }
        recorder.PowerOff();
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
    EXPECT_EQ(Exported({"--journey", "1", "--silence", "1h"}), "14:00:00-14:20:09 0 1");
}

TEST_F(NamedExport, OfWhatIsNotThere) {
    EXPECT_NE(Refused({"--event", "0/1"}, 1).find("holds no event 0/1"), std::string::npos);
    EXPECT_NE(Refused({"--event", "3/0"}, 1).find("holds no event 3/0"), std::string::npos);
    EXPECT_NE(Refused({"--record", "0/7"}, 1).find("holds no record 0/7"), std::string::npos);
    EXPECT_NE(Refused({"--journey", "3"}, 1).find("holds no journey 3; journeys shows those there are"),
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
