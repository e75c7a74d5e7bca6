// Parts of partitions, as partitions.

#include "media/extract.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <set>

#include "media/cameras.h"
#include "media/error.h"
#include "media/forged_manifest.h"
#include "media/verify.h"
#include "recordings/error.h"
#include "recordings/range_frames.h"
#include "recordings/recordings_fixture.h"
#include "sample_recorder/recorder.h"
#include "support/files.h"

namespace {

namespace fs = std::filesystem;
using namespace media;
using namespace media_test;
using test_support::ReadFile;
using Json = nlohmann::json;

constexpr uint32_t kStart = 1795183200; // 2026-11-20 14:00:00 UTC
constexpr int64_t kSecond = 1000000;
constexpr size_t kBase = 0x800000; // where the first block begins
constexpr size_t kBlock = 0x10000;

/// A camera for a minute on blocks of 64 KiB, a key frame a second.
class Extracts : public test_support::RecordingsFixture {
protected:
    void SetUp() override {
        sample_recorder::Format format;
        format.blockCount = 32;
        MakeDisk(format);
        sample_recorder::RecorderSettings settings;
        settings.channels = 1;
        sample_recorder::Recorder recorder(Image(), settings);
        for (uint32_t fifth = 0; fifth < 300; ++fifth) {
            const int64_t time = kStart * kSecond + fifth * kSecond / 5;
            const OwnedFrame owned = fifth % 5 == 0 ? KeyFrame(0, time, 5000) : Picture(0, time, 3000);
            sample_recorder::Frame frame;
            frame.pts = owned.frame.time;
            frame.type = owned.frame.type;
            frame.payload = owned.payload;
            recorder.Write(frame);
            m_blockOf.push_back(*recorder.CurrentBlock());
        }
        recorder.PowerOff();
    }

    Request RequestOf(uint32_t from, uint32_t to) const {
        Request request;
        request.name = File("out");
        request.range = {kStart + from, kStart + to};
        request.wording.timestamp = [](int64_t time) { return std::to_string(time); };
        request.wording.utcTimestamp = request.wording.timestamp;
        request.wording.readableTime = request.wording.timestamp;
        request.wording.readableSecond = request.wording.timestamp;
        request.wording.printable = [](const std::string& text) { return text; };
        return request;
    }

    std::optional<ExtractResult> Run(const Request& request, const recordings::Watch& watch = {}) {
        const recordings::Disk& disk = Open();
        const recordings::BlockList blocks = recordings::BlockList::Read(disk);
        const int source = open(Image().Path().c_str(), O_RDONLY | O_CLOEXEC);
        const SourceIdentity identity(source);
        close(source);
        m_lines.clear();
        return Extract(
            disk, blocks, identity, request,
            [this](const recordings::Problem& problem) { m_lines.push_back(test_support::Brief(problem)); },
            watch);
    }

    /// The partition with nothing in it but the head, its tables and these blocks.
    std::string PartOfDisk(const std::set<uint32_t>& blocks) {
        const std::string disk = ReadFile(Image().Path());
        std::string part(disk.size(), '\0');
        part.replace(0, kBase, disk, 0, kBase);
        for (const uint32_t block : blocks) {
            part.replace(kBase + block * kBlock, kBlock, disk, kBase + block * kBlock, kBlock);
        }
        return part;
    }

    bool Verified(const recordings::Disk* disk = nullptr) const {
        const ManifestFile manifest = ReadManifest(File("out.json"));
        VerifyRequest request{manifest};
        std::optional<recordings::BlockList> blocks;
        if (disk != nullptr) {
            blocks.emplace(recordings::BlockList::Read(*disk));
            request.disk = disk;
            request.blocks = &*blocks;
        }
        return Verify(request, [](const Check&) {});
    }

    static void Flip(const std::string& path, uint64_t offset) {
        std::fstream file(path, std::ios::in | std::ios::out | std::ios::binary);
        file.seekg(static_cast<std::streamoff>(offset));
        const auto byte = static_cast<char>(file.get() ^ 1);
        file.seekp(static_cast<std::streamoff>(offset));
        file.put(byte);
    }

    std::vector<uint32_t> m_blockOf; ///< of each fifth of a second
    std::vector<std::string> m_lines;
};

TEST_F(Extracts, HoldTheBlocksOfTheRangeAndNothingElse) {
    const auto result = Run(RequestOf(20, 29));
    ASSERT_TRUE(result);
    const std::set<uint32_t> blocks(m_blockOf.begin() + 100, m_blockOf.begin() + 150);
    ASSERT_GT(blocks.size(), 2u);
    ASSERT_LT(blocks.size(), 10u);
    EXPECT_TRUE(ReadFile(File("out")) == PartOfDisk(blocks));
    ASSERT_EQ(result->blocks.size(), blocks.size());
    size_t i = 0;
    for (const uint32_t block : blocks) {
        EXPECT_EQ(result->blocks[i].number, block);
        EXPECT_EQ(result->blocks[i++].area.sha256,
                  HashArea(Open().Bytes(), kBase + block * kBlock, kBlock).sha256);
    }
    EXPECT_EQ(m_lines, std::vector<std::string>());
    // Sparse: hardly more is stored than the blocks.
    struct stat status = {};
    ASSERT_EQ(stat(File("out").c_str(), &status), 0);
    EXPECT_LT(static_cast<uint64_t>(status.st_blocks) * 512, (blocks.size() + 24) * kBlock);
}

TEST_F(Extracts, HoldTheBlocksOfLockedChannels) {
    const uint32_t lock[] = {1, 1}; // active, and channel 0 is hidden
    static_assert(offsetof(PartHead_t, EncryptMap) == offsetof(PartHead_t, Encrypt) + sizeof lock[0]);
    Image().Write(offsetof(PartHead_t, Encrypt), lock, sizeof lock);
    const auto result = Run(RequestOf(20, 29));
    ASSERT_TRUE(result);
    const std::set<uint32_t> blocks(m_blockOf.begin() + 100, m_blockOf.begin() + 150);
    std::set<uint32_t> copied;
    for (const auto& block : result->blocks) {
        copied.insert(block.number);
    }
    EXPECT_TRUE(std::includes(copied.begin(), copied.end(), blocks.begin(), blocks.end()));
    EXPECT_LE(copied.size(), blocks.size() + 2); // its neighbours at most
    EXPECT_TRUE(ReadFile(File("out")) == PartOfDisk(copied));
    Request other = RequestOf(20, 29);
    other.name = File("none");
    other.channels = {2};
    EXPECT_FALSE(Run(other));
}

TEST_F(Extracts, BeginWithTheKeyFrameThatTheRangeNeeds) {
    // The range begins a fifth of a second after a block does; its key frame lies in the block before.
    size_t fifth = 100;
    while (m_blockOf[fifth] == m_blockOf[fifth - 1] || fifth % 5 == 0) {
        ++fifth;
    }
    const auto second = static_cast<uint32_t>(fifth / 5) + 1;
    const auto result = Run(RequestOf(second, second + 3));
    ASSERT_TRUE(result);
    EXPECT_EQ(result->blocks.front().number, m_blockOf[second * 5]);
    const auto inside = Run([this, fifth] {
        Request request = RequestOf(static_cast<uint32_t>(fifth / 5), static_cast<uint32_t>(fifth / 5) + 1);
        request.replace = true;
        return request;
    }());
    ASSERT_TRUE(inside);
    EXPECT_EQ(inside->blocks.front().number, m_blockOf[fifth - fifth % 5]);
}

TEST_F(Extracts, OpenAsTheDiskDoes) {
    ASSERT_TRUE(Run(RequestOf(20, 29)));
    const auto framesOf = [](const std::string& path) {
        const recordings::Disk disk(recordings::OpenSource(path));
        const recordings::BlockList blocks = recordings::BlockList::Read(disk);
        recordings::FrameQuery query;
        query.range = {kStart + 20, kStart + 29};
        std::vector<std::string> problems;
        recordings::RangeFrames frames(disk, blocks, query, [&problems](const recordings::Problem& problem) {
            problems.push_back(test_support::Brief(problem));
        });
        std::vector<std::pair<int64_t, std::string>> found;
        for (recordings::Frame frame; frames.Next(frame);) {
            found.emplace_back(frame.time,
                               std::string(reinterpret_cast<const char*>(frame.data), frame.size));
        }
        EXPECT_EQ(problems, std::vector<std::string>()) << path;
        return found;
    };
    const auto frames = framesOf(File("out"));
    EXPECT_EQ(frames.size(), 50u);
    EXPECT_TRUE(frames == framesOf(Image().Path()));
}

TEST_F(Extracts, AreVerified) {
    const auto result = Run(RequestOf(20, 29));
    ASSERT_TRUE(result);
    EXPECT_TRUE(Verified());
    EXPECT_TRUE(Verified(&Open()));
    const uint64_t block = result->blocks[1].area.offset;
    for (const uint64_t at : {uint64_t{30}, block, block + kBlock - 1}) {
        Flip(File("out"), at);
        EXPECT_FALSE(Verified()) << at;
        Flip(File("out"), at);
        Flip(Image().Path(), at);
        EXPECT_TRUE(Verified());
        EXPECT_FALSE(Verified(&Open())) << at;
        Flip(Image().Path(), at);
    }
    EXPECT_TRUE(Verified(&Open()));
    // More than was copied: in the last block of the ring, which was never written.
    Flip(File("out"), kBase + 31 * kBlock + 7);
    EXPECT_FALSE(Verified());
}

/// Somebody takes a block out of the image and out of the manifest.
TEST_F(Extracts, LackNoBlockOfTheirRange) {
    const auto result = Run(RequestOf(20, 29));
    ASSERT_TRUE(result);
    auto manifest = nlohmann::json::parse(ReadFile(File("out.json")));
    const uint64_t offset = result->blocks[1].area.offset;
    manifest["blocks"].erase(1);
    WriteForgedManifest(File("out.json"), manifest);
    std::string image = ReadFile(File("out"));
    image.replace(offset, kBlock, kBlock, '\0');
    std::ofstream(File("out"), std::ios::binary) << image;
    EXPECT_TRUE(Verified()); // the image is what the manifest says
    EXPECT_FALSE(Verified(&Open()));
}

TEST_F(Extracts, NameWhatTheDiskDoesNotDeliver) {
    const uint32_t block = m_blockOf[125];
    const uint64_t from = (Image().FrameOffset(block, 20000) + 511) / 512 * 512;
    Fail(from, from + 512);
    const auto result = Run(RequestOf(20, 29));
    ASSERT_TRUE(result);
    EXPECT_EQ(m_lines.back(), "bytes_unreadable loss block " + std::to_string(block));
    std::string expected = PartOfDisk({m_blockOf.begin() + 100, m_blockOf.begin() + 150});
    expected.replace(from, 512, 512, '\0');
    EXPECT_TRUE(ReadFile(File("out")) == expected);
    uint64_t unreadable = 0;
    for (const CopiedBlock& copied : result->blocks) {
        unreadable += copied.area.unreadable;
    }
    EXPECT_EQ(unreadable, 512u);
    EXPECT_TRUE(Verified(&Open()));
}

TEST_F(Extracts, MakeNothingOfNothing) {
    EXPECT_FALSE(Run(RequestOf(1000, 2000)));
    EXPECT_FALSE(fs::exists(File("out")));
    EXPECT_FALSE(fs::exists(File("out.json")));
}

TEST_F(Extracts, NeverTakeTheSourcesPlace) {
    Request request = RequestOf(20, 29);
    request.name = Image().Path();
    request.replace = true;
    const std::string before = ReadFile(Image().Path());
    try {
        Run(request);
        FAIL();
    } catch (const Error& error) {
        EXPECT_EQ(error.Kind(), ErrorKind::OutputIsSource);
    }
    EXPECT_TRUE(ReadFile(Image().Path()) == before);
}

TEST_F(Extracts, EndWhenToldToAndLeaveNothing) {
    int most = 0;
    Run(RequestOf(20, 29), [&most](const recordings::Progress&) { return ++most > 0; });
    ASSERT_GT(most, 3);
    fs::remove(File("out"));
    fs::remove(File("out.json"));
    for (int last = 0; last < most; ++last) {
        int asked = 0;
        EXPECT_THROW(Run(RequestOf(20, 29), [&](const recordings::Progress&) { return asked++ < last; }),
                     recordings::Error);
        EXPECT_FALSE(fs::exists(File("out"))) << last;
        EXPECT_FALSE(fs::exists(File("out.json"))) << last;
    }
}

} // namespace
