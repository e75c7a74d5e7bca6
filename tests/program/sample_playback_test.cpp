// The sample partition of real video, played back and exported: what comes out is what the cameras delivered.

#include <cstdlib>
#include <map>
#include <nlohmann/json.hpp>

#include "search/search_fixture.h"
#include "support/files.h"
#include "support/run_program.h"
#include "support/schema.h"

namespace {

using namespace test_support;
using Json = nlohmann::json;

const std::string kDirectory = SAMPLE_DIRECTORY;
const std::string kSample = kDirectory + "/sample.img";
const char* const kCameras[] = {"front", "rear", "saloon", "door"};

/// A media frame as it lies on the disk, or as it was played.
struct Seen {
    uint32_t block;
    uint32_t type;
    int64_t pts;
    std::string payload;

    bool operator==(const Seen& other) const {
        return block == other.block && type == other.type && pts == other.pts && payload == other.payload;
    }
};

/// The media frames of one channel in recording order, taken from the bytes of the disk.
std::vector<Seen> FramesOnDisk(const std::string& disk, uint32_t channel) {
    const auto blockSize = At<uint32_t>(disk, 12);
    std::map<uint32_t, uint32_t> blocks; // by sequence number
    for (uint32_t block = 0; block < At<uint32_t>(disk, 8); ++block) {
        const size_t start = 0x800000 + size_t{block} * blockSize;
        if (At<uint32_t>(disk, start) == 0xAA55AA55 && At<uint32_t>(disk, start + 8) != 0) {
            blocks[At<uint32_t>(disk, start + 8)] = block;
        }
    }
    std::vector<Seen> frames;
    for (const auto& [sequence, block] : blocks) {
        const size_t start = 0x800000 + size_t{block} * blockSize;
        const int64_t opened = At<uint32_t>(disk, start + 4);
        for (size_t at = start + 2048; At<uint32_t>(disk, at + 8) == 0xAA55AA55;
             at += 24 + At<uint32_t>(disk, at + 20)) {
            const auto pts = At<int64_t>(disk, at);
            if (pts / 1000000 < opened) {
                break; // left over from the ring's previous turn
            }
            const auto type = At<uint32_t>(disk, at + 12);
            if (type <= 2 && At<uint32_t>(disk, at + 16) == channel) {
                frames.push_back({block, type, pts, disk.substr(at + 24, At<uint32_t>(disk, at + 20))});
            }
        }
    }
    return frames;
}

std::string Joined(const std::vector<Seen>& frames, bool video) {
    std::string stream;
    for (const Seen& frame : frames) {
        stream += (frame.type <= 1) == video ? frame.payload : "";
    }
    return stream;
}

std::vector<Seen>::iterator FirstKeyFrame(std::vector<Seen>& frames, uint32_t block) {
    return std::find_if(frames.begin(), frames.end(),
                        [block](const Seen& frame) { return frame.block == block && frame.type == 1; });
}

// ---- the library

/// Plays a record's channel to the end.
std::vector<Seen> Play(CReadDisk& disk, RecordItem_t record) {
    std::vector<Seen> frames;
    void* payload = nullptr;
    void* const reader = disk.StartRead(0, &record);
    FrameInfo_t frame = {};
    while (disk.ReadFrame(reader, &frame, &payload) == 0) {
        EXPECT_EQ(frame.chn, record.chn);
        if (frame.type <= 2) {
            frames.push_back({0, frame.type, static_cast<int64_t>(uint64_t{frame.pts}),
                              std::string(static_cast<const char*>(payload), frame.len)});
        }
    }
    std::free(payload);
    disk.StopRead(reader);
    return frames;
}

TEST(SamplePlayback, EveryRecordPlayedGivesEveryFrameOnce) {
    PartAccess_t access = {};
    kSample.copy(access.PartName, sizeof access.PartName - 1);
    CSearchDisk search;
    CReadDisk player;
    const std::string disk = ReadFile(kSample);
    std::vector<std::vector<Seen>> played(4);
    Quietly([&] {
        search.Init(&access);
        player.Init(&access);
        SearchParam_t everything = {0, 0, 0x7FFFFFFF, kAll};
        RecordList records;
        search.SearchMedia(&everything, &records);
        for (const RecordItem_t& record : Elements(records)) {
            for (Seen& frame : Play(player, record)) {
                played.at(record.chn).push_back(std::move(frame));
            }
        }
        player.Quit();
    });
    for (uint32_t channel = 0; channel < 4; ++channel) {
        std::vector<Seen> expected = FramesOnDisk(disk, channel);
        // Block 11 is suspect, and no search finds its records. Playing the block before it leads into it, but
        // only to its first key frame; and nothing leads into block 12, whose own record begins with a key frame.
        expected.erase(FirstKeyFrame(expected, 11), FirstKeyFrame(expected, 12));
        // The oldest block begins within a group of pictures, whose key frame is overwritten.
        expected.erase(expected.begin(), FirstKeyFrame(expected, 9));
        for (Seen& frame : expected) {
            frame.block = 0;
        }
        ASSERT_EQ(played[channel].size(), expected.size()) << kCameras[channel];
        EXPECT_TRUE(played[channel] == expected) << kCameras[channel];
    }
}

// ---- exports

class SampleExport : public SearchFixture {
protected:
    /// Exports the sample partition to a file of the test's, and gives the manifest.
    Json Export(const std::string& name, std::vector<std::string> options) {
        options.insert(options.begin(), {DISKACCESS_PROGRAM, "export", kSample, "--utc", "-o", File(name)});
        const ProgramResult result = RunProgram(options);
        EXPECT_EQ(result.exitCode, 0) << result.err;
        const Json manifest = Json::parse(ReadFile(File(name + ".json")));
        EXPECT_EQ(SchemaErrors("manifest", manifest), "");
        for (const Json& output : manifest["outputs"]) {
            const std::string path = File(output["file"]);
            EXPECT_EQ(output["size_bytes"], std::filesystem::file_size(path));
            EXPECT_EQ(output["sha256"], RunProgram({"sha256sum", path}).out.substr(0, 64));
        }
        return manifest;
    }

    static ptrdiff_t CountOf(const Json& problems, const char* kind) {
        return std::count_if(problems.begin(), problems.end(),
                             [kind](const Json& problem) { return problem["problem"] == kind; });
    }

    /// What ffmpeg has to say when it decodes a file.
    std::string DecoderComplaints(const std::string& name) {
        // PCM of one channel in Matroska does not say where its loudspeaker stands; ffmpeg is not to guess.
        const ProgramResult result =
            RunProgram({"ffmpeg", "-nostdin", "-v", "warning", "-guess_layout_max", "0", "-i", File(name),
                        "-map", "0:v", "-map", "0:a?", "-f", "null", "-"});
        EXPECT_EQ(result.exitCode, 0);
        return result.err;
    }

    Json Probe(const std::string& name) {
        return Json::parse(RunProgram({"ffprobe", "-v", "error", "-of", "json", "-count_packets",
                                       "-show_streams", "-show_chapters", "-show_format", File(name)})
                               .out);
    }
};

TEST_F(SampleExport, RawStreamsAreWhatTheCamerasDelivered) {
    // The second journey is on the disk whole: it crosses the ring's seam and a bad block, and its last block
    // was never closed.
    Export("out", {"--raw", "--from", "2026-11-20"});
    for (uint32_t channel = 0; channel < 4; ++channel) {
        const std::string exported = ReadFile(File("out-ch" + std::to_string(channel) + ".h264"));
        EXPECT_TRUE(exported == ReadFile(kDirectory + "/" + kCameras[channel] + "-2.h264"))
            << kCameras[channel];
    }
    const std::string sound = ReadFile(kDirectory + "/front-2.wav");
    const std::string exported = ReadFile(File("out-ch0.alaw"));
    ASSERT_EQ(exported.size(), 160u * 8000);
    EXPECT_TRUE(sound.find(exported) != std::string::npos);
    EXPECT_TRUE(ReadFile(kDirectory + "/saloon-2.wav").find(ReadFile(File("out-ch2.s16le"))) !=
                std::string::npos);
}

TEST_F(SampleExport, EveryFrameOfTheDiskComesOut) {
    const Json manifest = Export("out", {"--raw"});
    const std::string disk = ReadFile(kSample);
    for (uint32_t channel = 0; channel < 4; ++channel) {
        std::vector<Seen> expected = FramesOnDisk(disk, channel);
        if (channel == 0 || channel == 2) {
            const std::string audio =
                ReadFile(File("out-ch" + std::to_string(channel) + (channel == 0 ? ".alaw" : ".s16le")));
            EXPECT_TRUE(audio == Joined(expected, false)) << kCameras[channel];
        }
        expected.erase(expected.begin(), FirstKeyFrame(expected, 9));
        const std::string video = ReadFile(File("out-ch" + std::to_string(channel) + ".h264"));
        EXPECT_TRUE(video == Joined(expected, true)) << kCameras[channel];
    }
    EXPECT_EQ(manifest["losses"].size(), 0u);
    EXPECT_EQ(manifest["gaps"].size(), 6u); // between the journeys, in each track
    EXPECT_EQ(manifest["left_out"].size(), 0u);
    // The oldest block begins within a group of pictures, whose key frame is overwritten.
    EXPECT_EQ(CountOf(manifest["notes"], "not_decodable"), 4);
    EXPECT_EQ(manifest["blocks"].size(), 15u); // all but the bad one
    for (const Json& block : manifest["blocks"]) {
        EXPECT_EQ(block["suspect"], block["block"] == 11);
        EXPECT_EQ(block["closed"], block["block"] != 8);
        EXPECT_EQ(block["records"].size(), block["block"] == 8 ? 0u : 4u);
    }
}

TEST_F(SampleExport, MatroskaDecodesWithoutAWord) {
    const Json manifest = Export("out.mkv", {"--from", "2026-11-20"});
    EXPECT_EQ(manifest["container"], "matroska");
    EXPECT_EQ(DecoderComplaints("out.mkv"), "");
    const Json probe = Probe("out.mkv");
    ASSERT_EQ(probe["streams"].size(), 7u);
    EXPECT_EQ(probe["streams"][6]["codec_name"], "subrip");
    EXPECT_EQ(probe["streams"][6]["nb_read_packets"], "160"); // one text a second
    std::vector<std::string> streams;
    for (size_t i = 0; i < 6; ++i) {
        const Json& stream = probe["streams"][i];
        streams.push_back(stream["codec_name"].get<std::string>() + " " +
                          stream["tags"]["title"].get<std::string>() + " " +
                          stream["nb_read_packets"].get<std::string>());
        EXPECT_EQ(stream["nb_read_packets"], std::to_string(manifest["tracks"][i]["frame_count"].get<int>()));
    }
    EXPECT_EQ(streams, (Lines{"h264 channel 0 1920", "pcm_alaw channel 0 4000", "h264 channel 1 4000",
                              "h264 channel 2 2400", "pcm_s16le channel 2 4000", "h264 channel 3 1600"}));
    EXPECT_EQ(probe["streams"][0]["width"], 1280);
    EXPECT_EQ(probe["streams"][5]["height"], 288);
    EXPECT_EQ(probe["format"]["tags"]["creation_time"], "2026-11-20T16:20:00.000000Z");
    EXPECT_EQ(probe["format"]["duration"], "160.000000");
    // Two events from the index, one from the frames of the block that was never closed.
    ASSERT_EQ(probe["chapters"].size(), 3u);
    EXPECT_EQ(probe["chapters"][0]["start_time"], "40.000000");
    EXPECT_EQ(probe["chapters"][2]["start_time"], "155.000000");
    EXPECT_EQ(probe["chapters"][2]["tags"]["title"], "event 0x1, 2026-11-20 16:22:35");
}

TEST_F(SampleExport, Mp4DecodesWithoutAWord) {
    const Json manifest = Export("out.mp4", {"--from", "2026-11-20 16:21", "--channel", "0,3"});
    EXPECT_EQ(manifest["container"], "mp4");
    EXPECT_EQ(DecoderComplaints("out.mp4"), "");
    const Json probe = Probe("out.mp4");
    EXPECT_EQ(probe["streams"][0]["nb_read_packets"], "1200"); // 100 s of 12 frames
    EXPECT_EQ(probe["streams"][1]["nb_read_packets"], "1000");
    // MP4 has no A-law.
    ASSERT_EQ(manifest["left_out"].size(), 1u);
    EXPECT_EQ(manifest["left_out"][0]["media"], "audio");
    EXPECT_EQ(manifest["left_out"][0]["frame_count"], 2500);
}

TEST_F(SampleExport, BothJourneysInOneFileKeepTheirGap) {
    const Json manifest = Export("out.mkv", {"--channel", "3"});
    const Json probe = Probe("out.mkv");
    EXPECT_EQ(probe["format"]["tags"]["creation_time"], "2026-11-18T08:00:14.000000Z");
    // From 2026-11-18 08:00:14 to 2026-11-20 16:22:39.9 and one frame of 0.1 s.
    EXPECT_NEAR(std::stod(probe["format"]["duration"].get<std::string>()), 202946.0, 0.2);
    EXPECT_EQ(manifest["gaps"][0]["start"], "2026-11-18T08:01:29.900000Z");
    EXPECT_EQ(manifest["gaps"][0]["end"], "2026-11-20T16:20:00.000000Z");
    EXPECT_EQ(manifest["gaps"][0]["block"], 14);
}

TEST_F(SampleExport, IsCutToTheSecondFromTheKeyFrameBefore) {
    // Key frames come every two seconds, at even ones. Block 2 ends within second 22.
    const Json manifest =
        Export("out.mkv", {"--from", "2026-11-20 16:21:23", "--to", "2026-11-20 16:21:25", "--channel", "0"});
    const Json& video = manifest["tracks"][0];
    EXPECT_EQ(video["start"], "2026-11-20T16:21:22.000000Z");
    EXPECT_EQ(video["end"], "2026-11-20T16:21:25.916666Z");
    EXPECT_EQ(video["frame_count"], 48); // 4 s of 12 frames
    EXPECT_EQ(video["key_frame_count"], 2);
    EXPECT_EQ(manifest["blocks"].size(), 2u); // the key frame lies in the block before
    EXPECT_EQ(DecoderComplaints("out.mkv"), "");
}

TEST_F(SampleExport, H265AndMuLawComeOutToo) {
    const std::string clip = File("clip.h265");
    const std::string sound = File("sound.wav");
    ASSERT_EQ(RunProgram({"ffmpeg", "-nostdin", "-v", "error", "-f", "lavfi", "-i",
                          "testsrc2=size=320x240:rate=10:duration=4", "-c:v", "libx265", "-x265-params",
                          "bframes=0:keyint=20:log-level=none", "-f", "hevc", clip})
                  .exitCode,
              0);
    ASSERT_EQ(RunProgram({"ffmpeg", "-nostdin", "-v", "error", "-f", "lavfi", "-i", "sine=r=8000:d=4", "-c:a",
                          "pcm_mulaw", sound})
                  .exitCode,
              0);
    std::ofstream(File("scenario.json"))
        << Json{{"partition", {{"block_count", 8}, {"block_size", 65536}}},
                {"cameras", {{{"channel", 7}, {"frame_rate", 10}, {"audio_frame", 400}}}},
                {"recordings",
                 {{{"start", "2026-11-20T16:00:00Z"},
                   {"seconds", 4},
                   {"clips", {{{"channel", 7}, {"video", "clip.h265"}, {"audio", "sound.wav"}}}}}}}};
    ASSERT_EQ(RunProgram({DISKACCESS_SAMPLE_PROGRAM, "record", File("scenario.json"), File("disk")}).exitCode,
              0);
    for (const char* const name : {"out.mkv", "out.mp4"}) {
        EXPECT_EQ(RunProgram({DISKACCESS_PROGRAM, "export", File("disk"), "-o", File(name)}).exitCode, 0);
        EXPECT_EQ(DecoderComplaints(name), "") << name;
        const Json probe = Probe(name);
        EXPECT_EQ(probe["streams"][0]["codec_name"], "hevc");
        EXPECT_EQ(probe["streams"][0]["width"], 320);
        EXPECT_EQ(probe["streams"][0]["nb_read_packets"], "40");
    }
    EXPECT_EQ(Probe("out.mkv")["streams"][1]["codec_name"], "pcm_mulaw");
    EXPECT_EQ(RunProgram({DISKACCESS_PROGRAM, "export", File("disk"), "--raw", "-o", File("out")}).exitCode,
              0);
    EXPECT_TRUE(ReadFile(File("out-ch7.h265")) == ReadFile(clip));
    EXPECT_TRUE(ReadFile(sound).find(ReadFile(File("out-ch7.mulaw"))) != std::string::npos);
}

TEST_F(SampleExport, GoesOnWhereTheRecordersClockWasSetBack) {
    // Two recordings of five seconds, the second from a clock an hour behind.
    const auto journey = [](const char* start) {
        return Json{
            {"start", start}, {"seconds", 5}, {"clips", {{{"channel", 3}, {"video", "door-1.h264"}}}}};
    };
    std::ofstream(File("scenario.json"))
        << Json{{"partition", {{"block_count", 8}, {"block_size", 524288}}},
                {"cameras", {{{"channel", 3}, {"frame_rate", 10}}}},
                {"recordings", {journey("2026-11-20T16:00:00Z"), journey("2026-11-20T15:00:00Z")}}};
    ASSERT_EQ(RunProgram({DISKACCESS_SAMPLE_PROGRAM, "record", File("scenario.json"), File("disk"), "--media",
                          kDirectory})
                  .exitCode,
              0);
    EXPECT_EQ(RunProgram({DISKACCESS_PROGRAM, "export", File("disk"), "-o", File("out.mkv")}).exitCode, 0);
    EXPECT_EQ(DecoderComplaints("out.mkv"), "");
    const Json probe = Probe("out.mkv");
    EXPECT_EQ(probe["streams"][0]["nb_read_packets"], "100");
    EXPECT_NEAR(std::stod(probe["format"]["duration"].get<std::string>()), 10.0, 0.2);
}

TEST_F(SampleExport, TakesTheSameMemoryForMore) {
    for (const std::string name : {"out.mkv", "out.mp4", "out"}) {
        const auto peak = [&](std::vector<std::string> options) {
            options.insert(options.begin(),
                           {DISKACCESS_PROGRAM, "export", kSample, "--force", "-o", File(name)});
            if (name == "out") {
                options.emplace_back("--raw");
            }
            const ProgramResult result = RunProgram(options);
            EXPECT_EQ(result.exitCode, 0) << result.err;
            return result.memoryPeak;
        };
        // A twentieth of it, and all 58 MB.
        const uint64_t little =
            peak({"--utc", "--from", "2026-11-20 16:20:02", "--to", "2026-11-20 16:20:12"});
        EXPECT_LT(peak({}), little + (12u << 20)) << name;
    }
}

TEST_F(SampleExport, CutOffMatroskaStillPlays) {
    Export("out.mkv", {"--from", "2026-11-20", "--channel", "3"});
    std::filesystem::resize_file(File("out.mkv"), std::filesystem::file_size(File("out.mkv")) / 2);
    const Json probe = Probe("out.mkv");
    EXPECT_GT(std::stoi(probe["streams"][0]["nb_read_packets"].get<std::string>()), 700);
}

} // namespace
