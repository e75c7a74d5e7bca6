// Exports to standard output: what a player at the other end of the pipe gets, and what is said when it is left alone.

#include <array>

#include "digest.h"
#include "program/camera_disk.h"

namespace {

using namespace test_support;
using media_test::ContainerFile;

class StreamedExport : public CameraDisk {
protected:
    void RecordTwoCameras() {
        Begin();
        Record({{0, 0, 30, true}, {1, 0, 30, false}});
        End();
    }

    /// Exports into a pipe that another program reads.
    /// @return the exit status of the export
    ProgramResult Pipe(const std::string& options, const std::string& reader) const {
        return RunProgram({"bash", "-c",
                           DISKACCESS_PROGRAM " export " + File("disk") + " --utc -o - " + options + " | " +
                               reader + "; exit ${PIPESTATUS[0]}"});
    }

    /// Stream, time and bytes of each packet, by stream.
    static std::vector<std::vector<std::pair<int64_t, media_test::Bytes>>>
    PacketsOf(const ContainerFile& file) {
        std::vector<std::vector<std::pair<int64_t, media_test::Bytes>>> packets(file.streams.size());
        for (const ContainerFile::Packet& packet : file.packets) {
            packets.at(packet.stream).emplace_back(packet.micros, packet.data);
        }
        return packets;
    }
};

TEST_F(StreamedExport, HoldsThePacketsOfTheFile) {
    RecordTwoCameras();
    ASSERT_EQ(Export({"-o", File("file.mkv")}).exitCode, 0);
    const ProgramResult result = Pipe("", "cat > " + File("piped.mkv"));
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "");
    const ContainerFile piped = Container("piped.mkv");
    ASSERT_EQ(piped.streams.size(), 4u);
    ASSERT_EQ(piped.packets.size(), 210u); // each second two of each of three tracks, and a text
    EXPECT_EQ(PacketsOf(piped), PacketsOf(Container("file.mkv")));
    // There is no file beside it.
    EXPECT_FALSE(std::filesystem::exists("-.json"));
    EXPECT_FALSE(std::filesystem::exists("standard output.json"));
}

TEST_F(StreamedExport, IsThereBeforeItsEnd) {
    RecordTwoCameras();
    // The first cluster is complete as soon as the next one begins: a player need not wait.
    Pipe("", "head -c 20000 > " + File("begun.mkv"));
    const ContainerFile begun = Container("begun.mkv");
    EXPECT_EQ(begun.streams.size(), 4u);
    EXPECT_FALSE(begun.packets.empty());
}

TEST_F(StreamedExport, HasItsEventsAsChapters) {
    Begin();
    Record({{0, 0, 4, false}});
    Event(4, 0x4);
    Record({{0, 4, 20, false}});
    End();
    Pipe("", "cat > " + File("piped.mkv"));
    const ContainerFile piped = Container("piped.mkv");
    ASSERT_EQ(piped.chapters.size(), 1u);
    EXPECT_EQ(piped.chapters[0].start, 4000000);
}

TEST_F(StreamedExport, TellsInAManifestWhatWentOut) {
    RecordTwoCameras();
    const ProgramResult result = Export({"-o", "-", "--manifest", File("sent.json"), "--case", "4711"});
    EXPECT_EQ(result.exitCode, 0) << result.err;
    const Json manifest = Manifest("sent.json");
    ASSERT_EQ(manifest["outputs"].size(), 1u);
    EXPECT_TRUE(manifest["outputs"][0]["file"].is_null());
    EXPECT_EQ(manifest["outputs"][0]["size_bytes"], result.out.size());
    media::Digest digest;
    digest.Add(result.out.data(), result.out.size());
    const std::string text = digest.Text();
    EXPECT_EQ(manifest["outputs"][0]["sha256"], text);
    EXPECT_EQ(manifest["case"], "4711");
    const ProgramResult verified =
        RunProgram({DISKACCESS_PROGRAM, "verify", File("sent.json"), "--source", File("disk")});
    EXPECT_EQ(verified.exitCode, 0);
    EXPECT_NE(verified.out.find("standard output: what went there is no file"), std::string::npos)
        << verified.out;
    EXPECT_NE(verified.out.find(text), std::string::npos);
}

TEST_F(StreamedExport, HasNoTextTrackWhenToldSo) {
    RecordTwoCameras();
    Pipe("--no-clock", "cat > " + File("piped.mkv"));
    EXPECT_EQ(Container("piped.mkv").packets.size(), 180u);
    EXPECT_EQ(Container("piped.mkv").streams.size(), 3u);
}

TEST_F(StreamedExport, IsTheSameEachTime) {
    RecordTwoCameras();
    EXPECT_EQ(Export({"-o", "-"}).out, Export({"-o", "-"}).out);
}

TEST_F(StreamedExport, EndsQuietlyWhenNobodyReads) {
    RecordTwoCameras();
    ProgramSetting closed;
    closed.closedPipe = true;
    const ProgramResult result = Export({"-o", "-", "--manifest", File("sent.json")}, closed);
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.err, "");
    EXPECT_FALSE(std::filesystem::exists(File("sent.json")));
}

TEST_F(StreamedExport, EndsSoonWhenInterruptedThoughTheReaderSleeps) {
    RecordTwoCameras();
    // The reader takes nothing; the pipe is full at once, and the export waits.
    const ProgramResult result =
        RunProgram({"bash", "-c",
                    "mkfifo " + File("pipe") + "; sleep 30 < " + File("pipe") + " & reader=$!; " +
                        "timeout -s INT 2 " DISKACCESS_PROGRAM " export " + File("disk") + " --utc -o - > " +
                        File("pipe") + "; kill $reader"});
    EXPECT_EQ(result.err, "diskaccess: interrupted; what was written is not whole\n");
}

TEST_F(StreamedExport, SaysWhenItCannotBeWritten) {
    RecordTwoCameras();
    const ProgramResult result =
        RunProgram({"bash", "-c",
                    "trap '' XFSZ; ulimit -f 20; exec " DISKACCESS_PROGRAM " export " + File("disk") +
                        " -o - > " + File("short.mkv")});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(
        result.err,
        "diskaccess: standard output: cannot be written: File too large; what was written is not whole\n");
}

TEST_F(StreamedExport, NamesLossesOnStandardErrorAndEndsWithThree) {
    RecordTwoCameras();
    // The head of the second block's first frame is gone, but for its time.
    Disk().Put(Disk().FrameOffset(1, 0) + 8, std::array<uint32_t, 4>{});
    const ProgramResult result = Pipe("", "cat > " + File("piped.mkv"));
    EXPECT_EQ(result.exitCode, 3);
    EXPECT_NE(result.err, "");
    EXPECT_LT(Container("piped.mkv").packets.size(), 210u);
}

TEST_F(StreamedExport, LeavesAnotherEncodingOutAndSaysSo) {
    Begin();
    Record({{0, 0, 10, false}});
    Record({{0, 10, 20, false, media_test::kLargerH264Sets}});
    End();
    const ProgramResult result = Pipe("", "cat > " + File("piped.mkv"));
    EXPECT_EQ(result.exitCode, 3);
    EXPECT_NE(result.err.find("channel 0: 20 video frames are left out: it begins after the file's tracks "
                              "were laid down: export that time by itself, or use --raw\n"),
              std::string::npos)
        << result.err;
    EXPECT_EQ(Container("piped.mkv").packets.size(), 30u); // of ten seconds, with their texts
}

TEST_F(StreamedExport, IsRefusedAtATerminal) {
    RecordTwoCameras();
    const ProgramResult result = RunAtTerminal(Command({"-o", "-"}), "mpv", "");
    EXPECT_EQ(result.exitCode, 2);
    EXPECT_EQ(result.out, "diskaccess: -o -: standard output is a terminal; lead it to a player (| mpv -) or "
                          "to a file\r\n");
}

TEST_F(StreamedExport, IsRefusedWithWhatStandardOutputCannotTake) {
    RecordTwoCameras();
    for (const std::vector<std::string>& options : std::vector<std::vector<std::string>>{
             {"--raw"}, {"--container", "mp4"}, {"--json"}, {"--case", "1"}, {"--hash-source"}}) {
        std::vector<std::string> all = {"-o", "-"};
        all.insert(all.end(), options.begin(), options.end());
        const ProgramResult result = Export(all);
        EXPECT_EQ(result.exitCode, 2) << options.front();
        EXPECT_EQ(result.out, "") << options.front();
        EXPECT_NE(result.err.find("-o -: "), std::string::npos) << result.err;
    }
    EXPECT_EQ(Export({"-o", File("a.mkv"), "--manifest", File("m.json")}).exitCode, 2);
}

TEST_F(StreamedExport, NeverGoesIntoTheSource) {
    RecordTwoCameras();
    const std::string before = ReadFile(File("disk"));
    const ProgramResult result =
        RunProgram({"bash", "-c", DISKACCESS_PROGRAM " export " + File("disk") + " -o - >> " + File("disk")});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_TRUE(ReadFile(File("disk")) == before);
}

} // namespace
