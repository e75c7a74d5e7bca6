// Where encoded sound lies in a file's time.

#include "sound_clock.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

using media::AacRateOf;
using media::SoundClock;

constexpr int64_t kSecond = 1000000;
using Times = std::vector<int64_t>;

/// Ends the stretch.
/// @return the times of its packets
Times End(SoundClock& clock) {
    Times times;
    while (clock.PacketsLeft() > 0) {
        times.push_back(clock.PacketTime());
    }
    clock.EndStretch();
    return times;
}

TEST(AacRates, AreTheLowestThatLosesNothing) {
    EXPECT_EQ(AacRateOf(8000), 8000u);
    EXPECT_EQ(AacRateOf(8001), 11025u);
    EXPECT_EQ(AacRateOf(4000), 7350u);
    EXPECT_EQ(AacRateOf(22050), 22050u);
    EXPECT_EQ(AacRateOf(96001), 96000u);
    EXPECT_EQ(AacRateOf(192000), 96000u);
    EXPECT_EQ(AacRateOf(0), std::nullopt);
    EXPECT_EQ(AacRateOf(3999), std::nullopt);
    EXPECT_EQ(AacRateOf(192001), std::nullopt);
    EXPECT_EQ(AacRateOf(0xFFFFFFFF), std::nullopt);
}

TEST(SoundClockTest, GivesAPacketBeforeTheSoundAndThenAllOfIt) {
    SoundClock clock(8000, 8000);
    EXPECT_EQ(clock.PacketsLeft(), 0);
    // Half a second from second 2 on: 4000 samples in four packets, of which the last has 96 samples of silence.
    EXPECT_EQ(clock.Take(2 * kSecond, 2000), 0);
    EXPECT_EQ(clock.Take(2 * kSecond + kSecond / 4, 2000), 0);
    EXPECT_EQ(clock.PacketsLeft(), 5);
    EXPECT_EQ(clock.EncodedSamples(), 4096);
    EXPECT_EQ(End(clock), (Times{16000 - 1024, 16000, 17024, 18048, 19072}));
    EXPECT_EQ(clock.PacketsLeft(), 0);
}

TEST(SoundClockTest, BeginsBeforeZero) {
    SoundClock clock(8000, 8000);
    clock.Take(0, 1024);
    EXPECT_EQ(End(clock), (Times{-1024, 0}));
}

TEST(SoundClockTest, FillsWhatIsMissingForLessThanASecond) {
    SoundClock clock(8000, 8000);
    EXPECT_EQ(clock.Take(0, 800), 0);
    EXPECT_EQ(clock.Take(100000 + 10000, 800), 0);      // a hundredth of a second late: not yet
    EXPECT_EQ(clock.Take(200000 + 10001, 800), 80);     // 80.008 samples
    EXPECT_EQ(clock.Take(310000 + kSecond, 800), 8000); // a second
    EXPECT_FALSE(clock.Pauses(1410000 + kSecond));      // the stretch has 11280 samples: 1.41 s
    EXPECT_TRUE(clock.Pauses(1410000 + kSecond + 1));
    EXPECT_EQ(clock.EncodedSamples(), 12288); // 11280 in whole packets
}

TEST(SoundClockTest, BeginsAgainAfterAPause) {
    SoundClock clock(8000, 8000);
    clock.Take(0, 1000);
    EXPECT_FALSE(clock.Pauses(125000 + kSecond));
    EXPECT_TRUE(clock.Pauses(3600 * kSecond));
    EXPECT_EQ(End(clock), (Times{-1024, 0}));
    EXPECT_FALSE(clock.Pauses(3600 * kSecond));
    EXPECT_EQ(clock.Take(3600 * kSecond, 1025), 0);
    EXPECT_EQ(End(clock), (Times{28800000 - 1024, 28800000, 28801024}));
}

TEST(SoundClockTest, FollowsTimesThatOverlap) {
    SoundClock clock(8000, 8000);
    clock.Take(kSecond, 4096);
    // The piece ends at 1.512 s. 40 ms earlier is still taken for a time of arrival.
    EXPECT_EQ(clock.Take(1472000, 2048), 0);
    // The stretch reaches 1.768 s. What is half a second too early has its own time again: 768 ms * 8 - 4000.
    EXPECT_EQ(clock.Take(1268000, 2048), 0);
    // Packets are 128 ms apart, and the seventh is from 1.268 s on; no packet is before another.
    EXPECT_EQ(End(clock), (Times{6976, 8000, 9024, 10048, 11072, 12096, 13120, 13121, 13122}));
}

TEST(SoundClockTest, CountsInSamplesAsTheyAreEncoded) {
    SoundClock clock(10000, 11025);
    clock.Take(kSecond, 10000);
    clock.Take(2 * kSecond, 1);
    // 10001 * 1.1025 = 11026.1: eleven packets.
    EXPECT_EQ(clock.EncodedSamples(), 11264);
    EXPECT_EQ(clock.PacketsLeft(), 12);
    EXPECT_EQ(clock.PacketTime(), 11025 - 1024);
    EXPECT_EQ(clock.PacketTime(), 11025);
}

TEST(SoundClockTest, StaysRightOverDays) {
    SoundClock clock(8000, 8000);
    int64_t time = 0;
    int64_t packets = 0;
    for (int64_t second = 0; second < 7 * 86400; ++second) {
        ASSERT_EQ(clock.Take(second * kSecond, 8000), 0);
        while (clock.PacketsLeft() > 2) {
            time = clock.PacketTime();
            ++packets;
        }
    }
    EXPECT_EQ(time, (packets - 2) * 1024);
    EXPECT_EQ(packets, 7LL * 86400 * 8000 / 1024 - 1);
}

} // namespace
