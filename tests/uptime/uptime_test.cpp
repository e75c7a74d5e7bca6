// Years of uptime: an application that opens, searches, plays and closes again and again, and one that keeps its
// objects for ever, hold no more memory and no more descriptors in the end than in the beginning.

#include <sys/prctl.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <functional>
#include <stdexcept>

#include "sample_recorder/generated_source.h"
#include "sample_recorder/recorder.h"
#include "search/search_fixture.h"
#include "support/memory_use.h"
#include "uptime/heap_account.h"

namespace {

using namespace test_support;

constexpr uint32_t kStart = 1700000000;
/// Rounds before the process's memory is looked at: allocators and streams take their own first.
constexpr long kWarmUp = 200;

long Rounds() {
    const char* const setting = std::getenv("DISKACCESS_UPTIME_ROUNDS");
    const long rounds = setting == nullptr ? UPTIME_ROUNDS : std::strtol(setting, nullptr, 10);
    if (rounds < 1) {
        throw std::invalid_argument("DISKACCESS_UPTIME_ROUNDS must be a number of rounds, 1 or more");
    }
    return rounds;
}

class Uptime : public SearchFixture {
protected:
    Uptime() {
        prctl(PR_SET_THP_DISABLE, 1, 0, 0, 0); // the kernel must not round its memory up to huge pages
        Format format;
        format.blockCount = 4;
        format.blockSize = 0x2000;
        PartitionImage& image = MakeDisk(format);
        sample_recorder::RecorderSettings settings;
        settings.channels = 3;
        sample_recorder::Recorder recorder(image, settings);
        sample_recorder::GeneratedCamera camera;
        camera.framesPerSecond = 1;
        camera.gop = 3;
        camera.iFrameBytes = 200;
        camera.pFrameBytes = 50;
        sample_recorder::GeneratedSource frames(camera, 1, kStart, 120);
        sample_recorder::Frame frame;
        while (frames.Next(frame)) {
            recorder.Write(frame);
            if (frame.Seconds() % 20 == 0) {
                recorder.WriteEvent(frame.pts, 1, 1);
            }
        }
        recorder.CutPower();
        m_access = image.Access();
    }

    static int SearchAll(CSearchDisk& disk, RecordList& records) {
        SearchParam_t plain = {0, 0, 0x7FFFFFFF, kAll};
        SearchParam_t alarms = {1, kStart, kStart + 60, 0};
        EventList events;
        UnitList units;
        DayList days;
        DiskSpaceInfo_t space = {};
        return disk.SearchMedia(&plain, &records) + disk.SearchMedia(&alarms, &records) +
               disk.SearchEvent(&alarms, &events) + disk.GetUnitInfo(&units) + disk.GetDateInfo(&days) +
               disk.GetSpaceInfo(&space);
    }

    static int Play(CReadDisk& disk, RecordItem_t record) {
        void* const reader = disk.StartRead(0, &record);
        void* payload = nullptr;
        FrameInfo_t info = {};
        long time = static_cast<int32_t>(record.startTime + 5);
        int frames = 0;
        disk.SeekTime(reader, &time);
        while (frames < 10 && disk.ReadFrame(reader, &info, &payload) == 0) {
            ++frames;
        }
        std::free(payload);
        disk.StopRead(reader);
        return frames;
    }

    /// Opens, searches, plays and closes.
    /// @return what was found and played, the same number each time
    int Round(long number) {
        CSearchDisk searches;
        CReadDisk playback;
        RecordList records;
        searches.Init(&m_access);
        playback.Init(&m_access);
        int sum = SearchAll(searches, records);
        sum += Play(playback, Elements(records).at(static_cast<size_t>(number % 2)));
        playback.Quit();
        searches.Quit();
        return sum;
    }

    /// Goes through the rounds. Each must give the same and leave the same on the heap as the first two did: rounds
    /// of even and of odd number play another record.
    static void ExpectAlike(long rounds, const std::function<int(long)>& round) {
        SystemCallLog log(PassUnflushedOf);
        const HeapAccount account;
        const std::array<int, 2> sums = {round(0), round(1)};
        EXPECT_GT(sums[0], 10);
        std::array<Held, 2> left = {};
        for (long i = 0; i < rounds; ++i) {
            log.Clear();
            const auto parity = static_cast<size_t>(i % 2);
            ASSERT_EQ(round(i), sums[parity]) << "round " << i;
            if (i < 2) {
                left[parity] = account.Now();
            }
            ASSERT_EQ(account.Now(), left[parity]) << "round " << i;
            ASSERT_EQ(log.Count(CallKind::Open), log.Count(CallKind::Close)) << "round " << i;
        }
    }

    /// The same, and expects the process not to grow.
    static void ExpectFlat(long rounds, const std::function<int(long)>& round) {
        const size_t descriptors = OpenDescriptors();
        ExpectAlike(kWarmUp, round);
        const size_t resident = ResidentBytes();
        ExpectAlike(rounds, round);
        EXPECT_LE(ResidentBytes(), resident + kResidentSlack);
        EXPECT_EQ(OpenDescriptors(), descriptors);
    }

private:
#ifdef UPTIME_SANITIZED
    /// A sanitizer keeps freed memory for a while, to see whether it is used.
    static constexpr size_t kResidentSlack = size_t{512} << 20;
#elif defined(UPTIME_EMULATED)
    /// What the emulator has translated counts too, and grows while code is run for the first time.
    static constexpr size_t kResidentSlack = size_t{8} << 20;
#else
    static constexpr size_t kResidentSlack = size_t{1} << 20;
#endif

    static Fate PassUnflushedOf(const Call& call, size_t /*index*/) {
        return PassUnflushed(call);
    }

    PartAccess_t m_access = {};
};

TEST_F(Uptime, OpenSearchPlayCloseLeavesNothingBehind) {
    Quietly([this] {
        {
            const HeapAccount account;
            Round(0);
            EXPECT_EQ(account.Now(), Held());
        }
        ExpectFlat(Rounds(), [this](long number) { return Round(number); });
    });
}

TEST_F(Uptime, ObjectsKeptOpenDoNotGrow) {
    Quietly([this] {
        PartAccess_t access = Disk().Access();
        CSearchDisk searches;
        CReadDisk playback;
        searches.Init(&access);
        playback.Init(&access);
        const long rounds = std::max(Rounds() / 4, std::min(Rounds(), 500L)); // fewer would not tell
        ExpectFlat(rounds, [&](long number) {
            RecordList records;
            const int sum = SearchAll(searches, records);
            return sum + Play(playback, Elements(records).at(static_cast<size_t>(number % 2)));
        });
        playback.Quit();
        searches.Quit();
    });
}

} // namespace
