// Every field of every frame head of small disks, damaged one at a time: the frames stay the same, or a problem names the
// block and is a loss. What cannot be told from a sound disk is listed in CannotBeTold(), and is the only exception.

#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <memory>

#include "recordings/frames_fixture.h"
#include "sample_recorder/generated_source.h"

namespace test_support {

namespace {

using namespace sample_recorder;

constexpr uint32_t kStart = 1795183200; // 2026-11-20 14:00:00 UTC
constexpr uint32_t kOther = 5;          // a frame type that is neither media nor event

/// Streams of one recording may be as far apart, and some more where few frames tell how far.
constexpr int64_t kFarApart = 2000000;

/// What is older than its block by more is of an earlier turn of the ring.
constexpr int64_t kStale = 30000000;

/// A field of a frame head.
struct Field {
    const char* name;
    size_t at;
    size_t size;
};
constexpr Field kFields[] = {
    {"pts", 0, 8}, {"sync", 8, 4}, {"type", 12, 4}, {"chn", 16, 4}, {"len", 20, 4},
};

bool IsMedia(uint32_t type) {
    return type <= kAudio;
}

/// Which of the three tracks a media frame belongs to.
size_t TrackOf(const Frame& frame) {
    return frame.type == kAudio ? 2 : frame.channel;
}

/// A damaged frame, and those around it.
struct Damage {
    const std::vector<RecordedFrame>& frames;
    size_t entry;
    bool open;
    FrameHead_t before;
    FrameHead_t after;

    const Frame& Of() const { return frames[entry].frame; }

    /// The next frame of the same track, forwards or backwards.
    const Frame* Neighbour(int step) const {
        for (size_t i = entry + static_cast<size_t>(step); i < frames.size();
             i += static_cast<size_t>(step)) {
            if (IsMedia(frames[i].frame.type) && TrackOf(frames[i].frame) == TrackOf(Of())) {
                return &frames[i].frame;
            }
        }
        return nullptr;
    }
    bool AtEnd() const { return Neighbour(1) == nullptr || Neighbour(-1) == nullptr; }
};

bool TimeCannotBeTold(const Damage& damage) {
    const int64_t change = std::abs(damage.after.pts - damage.before.pts);
    if (!IsMedia(damage.before.type)) {
        // Events are written when the recorder comes to it; what has other data has any time.
        return damage.before.type == kOther || change < 3600 * kMicrosPerSecond;
    }
    const bool last = damage.open && damage.entry + 1 == damage.frames.size();
    if (last) {
        const int64_t seconds = damage.after.pts / kMicrosPerSecond;
        return 0 <= seconds && seconds <= UINT32_MAX; // the clock may have been set
    }
    if (damage.open && damage.entry == 0 && change < kStale) {
        return true; // its head is not written at the same time
    }
    if (damage.AtEnd()) {
        return change < kFarApart;
    }
    return damage.Neighbour(-1)->pts <= damage.after.pts && damage.after.pts <= damage.Neighbour(1)->pts;
}

bool CannotBeTold(const Damage& damage) {
    if (damage.after.pts != damage.before.pts) {
        // A time stamp that stays between its neighbours': nothing repeats it.
        return TimeCannotBeTold(damage);
    }
    const bool media = damage.after.type <= kAudio;
    if (damage.after.len != damage.before.len) {
        // After the last frame of a block that was not closed nothing tells where it ends.
        return damage.open && damage.entry + 1 == damage.frames.size();
    }
    if (!IsMedia(damage.before.type)) {
        // Of frames that are no media an index has the events' times and places alone, and a block's head no channels.
        // Without an index such a frame may pass for one that a camera sent out of turn: nothing is lost by it.
        return (!media || damage.open) && damage.after.type < 16 && damage.after.chn < 32;
    }
    // The track of a frame without a neighbour in it may as well have begun later, or ended before. An index counts the
    // bytes of video and audio together.
    return damage.AtEnd() && damage.after.type < 16 && damage.after.chn < 2 &&
           (damage.open || (media && damage.after.chn == damage.before.chn));
}

class FrameDamage : public FramesFixture, public ::testing::WithParamInterface<uint32_t> {
protected:
    static constexpr uint32_t kClosed = 1;
    static constexpr uint32_t kOpen = 3;

    /// Two cameras, the second with audio; events, of which every second one is indexed; other data.
    void RecordDisk() {
        properties[0].gop = 10;
        properties[1].gop = 5;
        Start(GetParam(), 3, 0x8000);
        MergedSource source;
        source.Add(
            std::make_unique<GeneratedSource>(GeneratedCamera{0, 10, 10, 1000, 300, 0, 40}, 1, kStart, 20));
        source.Add(
            std::make_unique<GeneratedSource>(GeneratedCamera{1, 5, 5, 800, 200, 32, 40}, 2, kStart, 20));
        uint32_t count = 0;
        for (Frame frame; source.Next(frame) &&
                          (count < 100 || Recorded().back().block < kOpen || Of(kOpen).size() < 70);) {
            Record(frame);
            if (++count % 37 == 0) {
                RecordEvent(frame.pts, uint64_t{1} << count % 60, 0, count % 2 != 0);
            }
            if (count % 53 == 0) {
                Record(frame.pts, kOther, 1, 40 + count % 100);
            }
        }
        Recorder().CutPower();
        ASSERT_EQ(Recorded().back().block, kOpen);
    }

    static std::vector<uint64_t> Values(uint64_t held, size_t bytes) {
        std::vector<uint64_t> values = {0, bytes == 8 ? ~uint64_t{0} : 0xFFFFFFFF, held + 1};
        for (size_t bit = 0; bit < bytes * 8; ++bit) {
            values.push_back(held ^ uint64_t{1} << bit);
        }
        return values;
    }

    void DamageFrame(const std::vector<RecordedFrame>& frames, size_t entry) {
        const auto good = Image().Get<FrameHead_t>(HeadOf(frames[entry]));
        for (const Field& field : kFields) {
            uint64_t held = 0;
            std::memcpy(&held, reinterpret_cast<const uint8_t*>(&good) + field.at, field.size);
            for (const uint64_t value : Values(held, field.size)) {
                FrameHead_t bad = good;
                std::memcpy(reinterpret_cast<uint8_t*>(&bad) + field.at, &value, field.size);
                if (value != held) {
                    Image().Put(HeadOf(frames[entry]), bad);
                    Judge({frames, entry, frames[entry].block == kOpen, good, bad}, field, value);
                }
            }
        }
        Image().Put(HeadOf(frames[entry]), good);
    }

    void Judge(const Damage& damage, const Field& field, uint64_t value) {
        const uint32_t block = damage.frames[damage.entry].block;
        const ReadFrames read = Again(block);
        ++m_cases;
        for (const recordings::Problem& problem : read.problems) {
            EXPECT_EQ(problem.block, block);
        }
        if (Same(read, block) || read.AnyLoss() || CannotBeTold(damage)) {
            return;
        }
        const std::string kind = std::string(field.name) + " of type " + std::to_string(damage.before.type) +
                                 " of block " + std::to_string(block);
        ++m_silent[kind];
        m_examples[kind] = "frame " + std::to_string(damage.entry) + " of " +
                           std::to_string(damage.frames.size()) + " to " + std::to_string(value);
    }

    size_t m_cases = 0;
    std::map<std::string, size_t> m_silent;
    std::map<std::string, std::string> m_examples;
};

TEST_P(FrameDamage, IsNeverPassedOverInSilence) {
    RecordDisk();
    for (const uint32_t block : {kClosed, kOpen}) {
        const ReadFrames sound = Read(block);
        EXPECT_TRUE(Same(sound, block));
        EXPECT_EQ(sound.Lines(), std::vector<std::string>());
        const std::vector<RecordedFrame> frames = Of(block);
        for (size_t entry = 0; entry < frames.size(); ++entry) {
            // The frames at both ends, some of those between, and all that are no media.
            if (entry < 8 || entry + 8 >= frames.size() || entry % 7 == 0 ||
                !IsMedia(frames[entry].frame.type)) {
                DamageFrame(frames, entry);
            }
        }
    }
    for (const auto& [kind, count] : m_silent) {
        ADD_FAILURE() << kind << ": " << count << " in silence, like " << m_examples[kind];
    }
    EXPECT_GE(m_cases, 10000u);
    RecordProperty("cases", static_cast<int>(m_cases));
}

/// An index says nothing that the frames do not say: whatever of it is damaged, all frames are delivered.
TEST_P(FrameDamage, OfAnIndexLosesNoFrame) {
    RecordDisk();
    Read(kClosed);
    const uint64_t start = Image().IndexOffset(kClosed);
    const auto head = Image().Get<BlkIndexHead_t>(start);
    uint64_t end = start + sizeof head + head.eventCount * sizeof(EventIndexItem_t);
    for (uint32_t channel = 0; channel < 32; ++channel) {
        end += head.iframeCount[channel] * sizeof(IFrameItem_t) +
               head.recSegCount[channel] * sizeof(RecSegItem_t);
    }
    size_t silent = 0;
    size_t cases = 0;
    for (uint64_t at = start; at < end; at += 4) {
        const auto held = Image().Get<uint32_t>(at);
        for (const uint64_t value : Values(held, 4)) {
            Image().Put(at, static_cast<uint32_t>(value));
            const ReadFrames read = Again(kClosed);
            ++cases;
            EXPECT_TRUE(Same(read, kClosed)) << at - start << " to " << value;
            silent += read.problems.empty() ? 1u : 0u;
        }
        Image().Put(at, held);
    }
    EXPECT_GE(cases, 3000u);
    // Counts of channels that are not there, and words that are not used, say nothing.
    EXPECT_LT(silent, cases);
}

INSTANTIATE_TEST_SUITE_P(Layouts, FrameDamage, ::testing::Values(0u, 1u),
                         [](const auto& layout) { return layout.param == 1 ? "Extended" : "Normal"; });

} // namespace

} // namespace test_support
