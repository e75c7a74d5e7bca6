// Names that are taken: an export that needs one only in the middle of its work leaves nothing behind.

#include "program/camera_disk.h"

namespace {

using namespace test_support;

/// Camera 1 is exchanged between two journeys, and both cameras go on alike after a month. A journey takes 70 KB: two blocks.
class TakenNames : public CameraDisk {
protected:
    void SetUp() override {
        Begin();
        Record({{0, 0, 10}, {1, 0, 10}});
        End();
        for (const uint32_t start : {kChange, kMonth}) {
            Record({{0, start, start + 10}, {1, start, start + 10, false, media_test::kLargerH264Sets}});
            End();
        }
    }

    static constexpr uint32_t kChange = 1000;
    static constexpr uint32_t kMonth = 30 * 86400;

    /// The files beside the disk, by name.
    std::vector<std::string> Files() const {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(File(""))) {
            if (entry.path().filename() != "disk") {
                names.push_back(entry.path().filename());
            }
        }
        std::sort(names.begin(), names.end());
        return names;
    }
    using Names = std::vector<std::string>;

    /// Expects that an export is refused because of a file that has a name which it needs late, and that it leaves that
    /// file and @p others.
    /// @param before what it says until then
    void ExpectRefused(const std::string& taken, const std::vector<std::string>& options,
                       const std::string& before, const Names& others = {}) {
        std::ofstream(File(taken)) << "mine";
        const ProgramResult result = Export(options);
        EXPECT_EQ(result.exitCode, 1) << taken;
        EXPECT_EQ(result.out, "") << taken;
        EXPECT_EQ(result.err, before + "diskaccess: " + File(taken) +
                                  ": exists already; give another --output, or --force to replace it\n");
        EXPECT_EQ(ReadFile(File(taken)), "mine");
        std::filesystem::remove(File(taken));
        EXPECT_EQ(Files(), others);
    }

    const std::string m_change = "diskaccess: block 2, channel 1: is encoded otherwise from 2026-11-20 "
                                 "14:16:40.000 on, and goes on in a file of its own\n";
};

TEST_F(TakenNames, OfAChangedEncodingAreRefusedAndNothingIsLeft) {
    ExpectRefused("out-2.mkv", {"-o", File("out.mkv")}, m_change);
    ExpectRefused("out-2.mp4", {"-o", File("out.mp4")}, m_change);
    ExpectRefused("out-ch1-2.h264", {"--raw", "-o", File("out")}, m_change);
    // Which streams there are is not known before the first frame of each, either.
    ExpectRefused("out-ch1.h264", {"--raw", "-o", File("out")}, "");
}

TEST_F(TakenNames, AfterALongPauseAreRefusedAndNothingIsLeft) {
    ExpectRefused("out-2.mp4", {"-o", File("out.mp4"), "--from", At(kChange)}, "");
    ExpectRefused("out-3.mp4", {"-o", File("out.mp4")}, m_change);
}

TEST_F(TakenNames, LeaveTheExportsThatWereFinishedBefore) {
    ExpectRefused("out-ch1-2.mkv", {"--split", "channel", "-o", File("out.mkv")}, m_change,
                  {"out-ch0.mkv", "out-ch0.mkv.json"});
}

/// Nobody has to move a file away that only might have been in the way.
TEST_F(TakenNames, ThatAreNotNeededStayAsTheyAre) {
    std::ofstream(File("out-2.mkv")) << "mine";
    EXPECT_EQ(Export({"-o", File("out.mkv"), "--to", At(kChange - 1)}).exitCode, 0);
    EXPECT_EQ(Files(), (Names{"out-2.mkv", "out.mkv", "out.mkv.json"}));
    EXPECT_EQ(ReadFile(File("out-2.mkv")), "mine");
}

TEST_F(TakenNames, AreReplacedOnRequest) {
    std::ofstream(File("out-2.mkv")) << "mine";
    EXPECT_EQ(Export({"-o", File("out.mkv"), "--force"}).exitCode, 0);
    EXPECT_EQ(Files(), (Names{"out-2.mkv", "out.mkv", "out.mkv.json"}));
    EXPECT_EQ(Container("out-2.mkv").streams.at(0).width, 128);
}

} // namespace
