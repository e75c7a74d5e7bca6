// Payloads that are held while reading goes on.

#include <cstring>
#include <set>

#include "recordings/frames_fixture.h"
#include "recordings/range_frames.h"

namespace {

using namespace test_support;

/// A payload that is held, beside what it must be.
struct Held {
    std::shared_ptr<const void> memory;
    const uint8_t* data;
    const RecordedFrame* recorded;
};

class HeldPayloads : public FramesFixture {
protected:
    /// Reads all frames; @p take gets each, and the frame that was recorded.
    template <typename Take>
    void ReadAll(recordings::Want want, Take take) {
        recordings::Disk& disk = Open();
        const recordings::BlockList blocks = recordings::BlockList::Read(disk);
        recordings::FrameQuery query;
        query.want = want;
        recordings::RangeFrames frames(disk, blocks, query, {});
        size_t at = 0;
        for (recordings::Frame frame; frames.Next(frame); ++at) {
            ASSERT_LT(at, Recorded().size());
            take(frames, frame, Recorded()[at]);
        }
        EXPECT_EQ(at, Recorded().size());
    }

    void HoldAll() {
        std::vector<Held> held;
        ReadAll(recordings::Want::Payloads, [&](const auto& frames, const auto& frame, const auto& recorded) {
            held.push_back({frames.HoldPayload(), frame.data, &recorded});
        });
        for (const Held& one : held) {
            const std::vector<uint8_t>& payload = one.recorded->frame.payload;
            EXPECT_EQ(std::memcmp(one.data, payload.data(), payload.size()), 0)
                << "block " << one.recorded->block << " offset " << one.recorded->offset;
        }
    }
};

constexpr int64_t kSecond = 1000000;

TEST_F(HeldPayloads, StayAsTheyWereWhileOtherBlocksAreRead) {
    Start(0, 1);
    for (int64_t i = 0; i < 20; ++i) {
        Record(1000 * kSecond + i * kSecond, 1, 0, 20000); // three a block
    }
    ASSERT_GT(Recorded().back().block, Recorded().front().block + 3);
    HoldAll();
}

TEST_F(HeldPayloads, StayAsTheyWereInBlocksThatAreNotKeptWhole) {
    Start(0, 1, 80 * 1024 * 1024);
    for (int64_t i = 0; i < 12; ++i) {
        Record(1000 * kSecond + i * kSecond, 1, 0, 300000);
    }
    HoldAll();
}

TEST_F(HeldPayloads, TakeNoNewMemoryWhenTheyAreGivenBackInTime) {
    Start(0, 1);
    for (int64_t i = 0; i < 20; ++i) {
        Record(1000 * kSecond + i * kSecond, 1, 0, 20000);
    }
    std::set<const void*> memories;
    std::shared_ptr<const void> last; // held until the next frame is there, as a loop over frames does
    ReadAll(recordings::Want::Payloads,
            [&](const auto& frames, const auto& /*frame*/, const auto& /*recorded*/) {
                last = frames.HoldPayload();
                memories.insert(last.get());
            });
    EXPECT_EQ(memories.size(), 2u);
}

TEST_F(HeldPayloads, OutliveTheReader) {
    Start(0, 1);
    Record(1000 * kSecond, 1, 0, 20000);
    Held held = {};
    ReadAll(recordings::Want::Payloads, [&](const auto& frames, const auto& frame, const auto& recorded) {
        held = {frames.HoldPayload(), frame.data, &recorded};
    });
    EXPECT_EQ(std::memcmp(held.data, held.recorded->frame.payload.data(), 20000), 0);
    EXPECT_EQ(held.memory.use_count(), 1);
}

TEST_F(HeldPayloads, AreNoneWhenHeadsAloneAreWanted) {
    Start(0, 1);
    Record(1000 * kSecond, 1, 0, 20000);
    ReadAll(recordings::Want::Heads, [](const auto& frames, const auto& /*frame*/, const auto& /*recorded*/) {
        EXPECT_EQ(frames.HoldPayload(), nullptr);
    });
}

} // namespace
