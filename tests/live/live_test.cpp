// A recorder that writes, while others search and play: what they find can be played, nothing hangs, and when the
// writer has stopped they see what anyone sees who opens the disk afresh.

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <new>
#include <random>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "playback/part_fixture.h"
#include "sample_recorder/live_recording.h"
#include "support/files.h"
#include "support/standard_output.h"
#include "support/transcript.h"

namespace {

using namespace test_support;
using sample_recorder::LiveRecording;
using Clock = std::chrono::steady_clock;

constexpr uint32_t kStart = 1700000000;
constexpr uint32_t kBlocks = 48;
constexpr uint32_t kBlockSize = 0x4000;
constexpr uint32_t kChannels = 3;
/// Recorded seconds a second: some sixty blocks, so that the ring wraps more than once a second.
constexpr double kSpeed = 2000;
constexpr auto kRecordingTime = std::chrono::seconds(LIVE_SECONDS);
/// More frames than a block holds, and the next: a reader that delivers more goes round in circles.
constexpr int kMostFrames = 4 * static_cast<int>(kBlockSize / sizeof(FrameHead_t));

/// Three cameras with a frame a second each, and payloads that tell which frame they belong to.
class TellingSource : public sample_recorder::FrameSource {
public:
    bool Next(sample_recorder::Frame& frame) override {
        const uint32_t second = m_number / kChannels;
        frame = FrameOf(std::string(1, second % 5 == 0 ? 'I' : 'P') + std::to_string(m_number % kChannels) +
                        "@" + std::to_string(kStart + second));
        ++m_number;
        return true;
    }

private:
    uint32_t m_number = 0;
};

/// Rounds of a reader, and records that it plays while nothing writes to their blocks: fewer would tell nothing.
constexpr int kFewestSearches = 5;
constexpr int kFewestWhole = 5;

/// What readers saw. Threads and processes add to it.
struct Sightings {
    std::atomic<int> searches{0};
    std::atomic<int> records{0};
    std::atomic<int> played{0};
    std::atomic<int> whole{0}; ///< of those played: nothing was written to their blocks meanwhile
    std::atomic<int> frames{0};

    bool Enough() const { return searches > kFewestSearches && whole > kFewestWhole; }
};

/// How long writer and readers go on: for the recording's time, until the ring has wrapped twice, and until the readers
/// came to see enough, which a busy machine may need longer for. All processes see it.
class Recording {
public:
    Recording() : m_end(Clock::now() + kRecordingTime) {
        void* const shared =
            mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        if (shared == MAP_FAILED) {
            throw std::runtime_error("no shared memory");
        }
        m_shared = new (shared) Shared;
    }
    ~Recording() { munmap(m_shared, sizeof *m_shared); }
    Recording(const Recording&) = delete;
    Recording& operator=(const Recording&) = delete;

    /// For the writer to ask.
    bool TimeIsUp(uint32_t blocksOpened) const {
        const Clock::time_point now = Clock::now();
        return (now >= m_end && blocksOpened > 2 * kBlocks && m_shared->seen.Enough()) ||
               now >= m_end + kPatience;
    }
    void Close() { m_shared->over = true; }
    bool Over() const { return m_shared->over || Clock::now() >= m_end + kPatience; }
    Sightings& Seen() { return m_shared->seen; }

private:
    static constexpr auto kPatience = std::chrono::seconds(60);

    struct Shared {
        std::atomic<bool> over{false};
        Sightings seen;
    };

    Clock::time_point m_end;
    Shared* m_shared = nullptr;
};

/// The writing process.
void Write(PartitionImage& image, Recording& recording) {
    sample_recorder::RecorderSettings settings;
    settings.channels = (1u << kChannels) - 1;
    settings.preRecordSeconds = 3;
    settings.alarmDelaySeconds = 3;
    sample_recorder::Recorder recorder(image, settings);
    TellingSource source;
    LiveRecording live(recorder, source, kSpeed);
    live.RepeatEvents(17, 0);
    live.Run([&] { return recording.TimeIsUp(recorder.BlocksOpened()); });
    recorder.CutPower(); // the newest block stays as a recorder leaves it that is still running
    recording.Close();
}

/// The numbers at both ends of a block, as they lie on the disk at this moment.
struct Ends {
    BlockHead_t head = {};
    BlockTail_t tail = {};

    bool Closed() const { return head.RecSeq != 0 && head.RecSeq == tail.RecSeq; }
    bool SameAs(const Ends& other) const {
        return head.RecSeq == other.head.RecSeq && tail.RecSeq == other.tail.RecSeq;
    }
};

/// What objects find and play now. A media search tags its records with the events that the search before it left
/// loaded, so all objects are brought to the same end first.
std::string ResultsOf(CSearchDisk& searches, CReadDisk& playback) {
    SearchTranscript(searches);
    return SearchTranscript(searches) + PlaybackTranscript(playback, searches);
}

/// An application of its own: it searches and plays for as long as the recorder writes.
class Reader {
public:
    Reader(const PartitionImage& image, uint32_t seed, Sightings& sightings)
        : m_image(image), m_random(seed), m_sightings(sightings) {
        PartAccess_t access = image.Access();
        m_searches.Init(&access);
        m_playback.Init(&access);
    }
    ~Reader() {
        std::free(m_payload);
        m_playback.Quit();
        m_searches.Quit();
    }
    Reader(const Reader&) = delete;
    Reader& operator=(const Reader&) = delete;

    void Until(const Recording& recording) {
        while (!recording.Over()) {
            Round();
        }
    }

    std::string Results() { return ResultsOf(m_searches, m_playback); }

private:
    Ends EndsOf(uint32_t block) const {
        return {m_image.Get<BlockHead_t>(m_image.HeadOffset(block)),
                m_image.Get<BlockTail_t>(m_image.TailOffset(block))};
    }

    void Round() {
        std::vector<Ends> before;
        for (uint32_t block = 0; block < kBlocks; ++block) {
            before.push_back(EndsOf(block));
        }
        RecordList records;
        Search(records);
        const std::vector<RecordItem_t> found = Elements(records);
        m_sightings.records += static_cast<int>(found.size());
        for (int i = 0; i < 4 && !found.empty(); ++i) {
            const RecordItem_t& record = found[m_random() % found.size()];
            const uint32_t block = record.recId >> 16;
            ASSERT_LT(block, kBlocks);
            PlayRecord(record, before[block]);
        }
    }

    void Search(RecordList& records) {
        SearchParam_t everything = {0, 0, 0x7FFFFFFF, kAll};
        SearchParam_t channel = {0, kStart, 0x7FFFFFFF, static_cast<uint32_t>(m_random() % kChannels)};
        SearchParam_t alarms = {0x5, 0, 0x7FFFFFFF, kAll};
        EventList events;
        UnitList units;
        DayList days;
        RecordList others;
        DiskSpaceInfo_t space = {};
        const int count = m_searches.SearchMedia(m_random() % 2 == 0 ? &everything : &channel, &records);
        EXPECT_EQ(count, records.m_nCount);
        switch (m_random() % 4) {
        case 0:
            EXPECT_EQ(m_searches.SearchMedia(&alarms, &others), others.m_nCount);
            break;
        case 1:
            EXPECT_EQ(m_searches.MixSearch(&everything, &others), others.m_nCount);
            EXPECT_EQ(m_searches.SearchEvent(&alarms, &events), events.m_nCount);
            break;
        case 2:
            EXPECT_LE(m_searches.GetUnitInfo(&units), static_cast<int>(kBlocks));
            break;
        default:
            EXPECT_EQ(m_searches.GetDateInfo(&days), days.m_nCount);
            EXPECT_EQ(m_searches.GetSpaceInfo(&space), 0);
        }
        EXPECT_LT(m_searches.GetLastRecBlockId(), static_cast<int>(kBlocks));
        ++m_sightings.searches;
    }

    /// Plays a record to its end. If its block was closed before the search and nothing was written to it since,
    /// it must be there whole.
    void PlayRecord(RecordItem_t record, const Ends& before) {
        const uint32_t block = record.recId >> 16;
        void* const reader = m_playback.StartRead(0, &record);
        ASSERT_NE(reader, nullptr);
        FrameInfo_t info = {};
        int result = 0;
        int frames = 0;
        int own = 0;
        int wrong = 0;
        while (frames <= kMostFrames && (result = m_playback.ReadFrame(reader, &info, &m_payload)) == 0) {
            ++frames;
            // What the next block continues the record with may be the writer's, or, in a block opened a moment ago,
            // left over from the turn before. Events have payloads of their own.
            const uint64_t second = info.pts / 1000000;
            if (info.type <= sample_recorder::kAudio && record.startTime <= second &&
                second <= record.endTime) {
                ++own;
                wrong += info.chn == record.chn && PayloadFits(info, m_payload) ? 0 : 1;
            }
        }
        m_playback.StopRead(reader);
        EXPECT_LE(frames, kMostFrames);
        EXPECT_TRUE(result == 1 || result == -1) << result;
        m_sightings.frames += frames;
        ++m_sightings.played;
        if (before.Closed() && before.SameAs(EndsOf(block)) && record.flag == 0) {
            ++m_sightings.whole;
            EXPECT_EQ(wrong, 0) << Describe(record);
            // From its first I-frame on it has a frame a second; of five seconds, one has an I-frame.
            const auto seconds = static_cast<int>(record.endTime - record.startTime + 1);
            EXPECT_GE(own, seconds - 4) << Describe(record);
            EXPECT_LE(own, seconds) << Describe(record);
        }
    }

    const PartitionImage& m_image;
    std::mt19937 m_random;
    Sightings& m_sightings;
    CSearchDisk m_searches;
    CReadDisk m_playback;
    void* m_payload = nullptr;
};

/// Runs an action in a process of its own.
/// @return its id, for ExpectSuccess()
template <typename Action>
pid_t InProcess(Action action) {
    const pid_t child = fork();
    if (child == 0) {
        try {
            action();
        } catch (const std::exception& error) {
            std::fprintf(stderr, "%s\n", error.what());
            _exit(2);
        }
        std::fflush(stdout);
        _exit(::testing::Test::HasFailure() ? 1 : 0);
    }
    return child;
}

void ExpectSuccess(pid_t child) {
    int status = -1;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
}

/// A directory in memory where there is one to be had: a file there is flushed at no cost.
class Place {
public:
    Place() {
        for (const auto& parent :
             {std::filesystem::path("/dev/shm"), std::filesystem::temp_directory_path()}) {
            std::string name = (parent / "diskaccess-live-XXXXXX").string();
            if (mkdtemp(name.data()) != nullptr) {
                m_path = name;
                return;
            }
        }
        throw std::runtime_error("no place for a disk");
    }
    ~Place() {
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored);
    }
    Place(const Place&) = delete;
    Place& operator=(const Place&) = delete;
    std::string File(const std::string& name) const { return (m_path / name).string(); }

private:
    std::filesystem::path m_path;
};

class Live : public ::testing::TestWithParam<uint32_t> {
protected:
    Live() : m_image(PartitionImage::Create(m_place.File("disk"), RingFormat())) { m_image.SetBad(7); }

    static Format RingFormat() {
        Format format;
        format.fmtVersion = GetParam();
        format.blockCount = kBlocks;
        format.blockSize = kBlockSize;
        return format;
    }

    /// What a process finds that has never seen the disk while it was written, on a copy of it.
    std::string ResultsAfresh() {
        const std::string copy = m_place.File("copy");
        const std::string results = m_place.File("results");
        std::filesystem::copy_file(m_image.Path(), copy);
        PartAccess_t access = {};
        access.DiskType = m_image.Access().DiskType;
        copy.copy(access.PartName, sizeof access.PartName);
        ExpectSuccess(InProcess([&] {
            CSearchDisk searches;
            CReadDisk playback;
            searches.Init(&access);
            playback.Init(&access);
            std::ofstream(results) << ResultsOf(searches, playback);
            playback.Quit();
            searches.Quit();
        }));
        return ReadFile(results);
    }

    Place m_place;
    PartitionImage m_image;
};

TEST_P(Live, ReadersFindAndPlayWhileTheRecorderWrites) {
    Recording recording;
    Sightings& seen = recording.Seen();
    Silently([&] {
        const pid_t writer = InProcess([&] { Write(m_image, recording); });
        const pid_t other = InProcess([&] { Reader(m_image, 100, seen).Until(recording); });
        Reader first(m_image, 1, seen);
        Reader second(m_image, 2, seen);
        std::thread thread([&] { second.Until(recording); });
        first.Until(recording);
        thread.join();
        ExpectSuccess(other);
        ExpectSuccess(writer);

        const std::string afresh = ResultsAfresh();
        EXPECT_EQ(first.Results(), afresh);
        EXPECT_EQ(second.Results(), afresh);
        EXPECT_GT(afresh.size(), 10000u);
    });
    // The ring wrapped, and readers came to see it.
    uint32_t newest = 0;
    for (uint32_t block = 0; block < kBlocks; ++block) {
        newest = std::max(newest, m_image.Get<BlockHead_t>(m_image.HeadOffset(block)).RecSeq);
    }
    RecordProperty("Blocks", static_cast<int>(newest));
    RecordProperty("Searches", seen.searches);
    RecordProperty("Records", seen.records);
    RecordProperty("Played", seen.played);
    RecordProperty("Whole", seen.whole);
    RecordProperty("Frames", seen.frames);
    EXPECT_GT(newest, 2 * kBlocks);
    EXPECT_GT(seen.searches, kFewestSearches);
    EXPECT_GT(seen.whole, kFewestWhole);
}

INSTANTIATE_TEST_SUITE_P(Layouts, Live, ::testing::Values(0u, 1u));

} // namespace
