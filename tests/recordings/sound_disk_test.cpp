// Disks that nothing is wrong with, of every kind that recorders write: each frame comes back exactly once, in order, and
// no problem is reported. Where the power was cut, too.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <random>

#include "recordings/frames_fixture.h"
#include "recordings/range_frames.h"

namespace test_support {

namespace {

using sample_recorder::kAudio;
using sample_recorder::kVideoI;
using sample_recorder::kVideoP;

constexpr int64_t kSecond = 1000000;
constexpr uint32_t kPosition = 5; // a frame type that is neither media nor event
constexpr uint32_t kStart = 1795183200;
constexpr int64_t kStaleSeconds =
    30; // a frame that is older than its block by more is of an earlier turn of the ring

class Random {
public:
    explicit Random(uint32_t seed) : m_numbers(seed) {}

    /// A number from @p low to @p high.
    int64_t Between(int64_t low, int64_t high) {
        return low + static_cast<int64_t>(m_numbers() % static_cast<uint64_t>(high - low + 1));
    }
    bool OneIn(int64_t n) { return Between(1, n) == 1; }
    template <typename T>
    T Of(std::initializer_list<T> values) {
        return values.begin()[Between(0, static_cast<int64_t>(values.size()) - 1)];
    }

private:
    std::mt19937_64 m_numbers;
};

/// How the bytes of a stream look.
enum class Bytes : uint8_t { Noise, Zeros, EndInZeros, EndInErased, H264, H265 };

/// How steady a stream's frames come.
enum class Steadiness : uint8_t { Steady, Jitter, Skips, Irregular };

/// What a camera, a microphone or a position receiver delivers.
struct Stream {
    uint32_t channel = 0;
    uint32_t type = kVideoP;
    int64_t pace = 0;
    Steadiness steadiness = Steadiness::Steady;
    int64_t keyDistance = 1; ///< frames
    int64_t keyBytes = 0;
    int64_t bytes = 0;
    int64_t spread = 0; ///< how far a frame's size may be from that
    int64_t lag = 0;    ///< how much later than it was taken a frame is written
    Bytes look = Bytes::Noise;

    int64_t count = 0;
    int64_t nominal = 0; ///< time of the next frame, without jitter
    int64_t time = 0;    ///< and with it
};

/// A stream's frames, one after the other.
class Camera {
public:
    Camera(const Stream& stream, Random& random, int64_t start) : m_stream(stream), m_random(random) {
        m_stream.nominal = start + random.Between(0, std::min(stream.pace, 2 * kSecond));
        m_stream.time = m_stream.nominal;
    }

    int64_t WrittenAt() const { return m_stream.time + m_stream.lag; }
    void SetClock(int64_t by) {
        m_stream.nominal += by;
        m_stream.time += by;
    }

    sample_recorder::Frame Next() {
        sample_recorder::Frame frame;
        frame.pts = m_stream.time;
        frame.channel = m_stream.channel;
        const bool key = m_stream.type == kVideoP && m_stream.count % m_stream.keyDistance == 0;
        frame.type = key ? uint32_t{kVideoI} : m_stream.type;
        const int64_t mean = key ? m_stream.keyBytes : m_stream.bytes;
        frame.payload.resize(static_cast<size_t>(
            std::max<int64_t>(0, mean + m_random.Between(-m_stream.spread, m_stream.spread))));
        Fill(frame.payload, key);
        ++m_stream.count;
        Step();
        return frame;
    }

private:
    void Step() {
        m_stream.nominal += m_stream.pace;
        int64_t jitter = 0;
        if (m_stream.steadiness == Steadiness::Jitter) {
            jitter = m_random.Between(-m_stream.pace * 2 / 5, m_stream.pace * 2 / 5);
        } else if (m_stream.steadiness == Steadiness::Irregular) {
            m_stream.nominal += m_random.Between(-m_stream.pace * 9 / 10, 2 * m_stream.pace);
        } else if (m_stream.steadiness == Steadiness::Skips && m_random.OneIn(15)) {
            m_stream.nominal += m_stream.pace * m_random.Between(1, 3);
        }
        m_stream.time = m_stream.nominal + jitter;
    }

    void Fill(std::vector<uint8_t>& payload, bool key) {
        for (uint8_t& byte : payload) {
            byte = static_cast<uint8_t>(m_random.Between(0, 255));
        }
        const size_t size = payload.size();
        const auto end = [&](uint8_t byte) {
            const auto count = static_cast<size_t>(m_random.Between(1, 300));
            std::fill(payload.end() - static_cast<ptrdiff_t>(std::min(size, count)), payload.end(), byte);
        };
        if (m_stream.look == Bytes::Zeros) {
            std::fill(payload.begin(), payload.end(), 0);
        } else if (m_stream.look == Bytes::EndInZeros) {
            end(0);
        } else if (m_stream.look == Bytes::EndInErased) {
            end(0xFF);
        } else if (m_stream.type == kVideoP && size >= 6 && m_stream.look != Bytes::Noise) {
            std::fill(payload.begin(), payload.begin() + 3, 0);
            payload[3] = 1;
            const bool h264 = m_stream.look == Bytes::H264;
            payload[4] = static_cast<uint8_t>(h264 ? (key ? 0x67 : 0x41) : (key ? 0x40 : 0x02));
            payload[5] = h264 ? payload[5] : 1;
        }
    }

    Stream m_stream;
    Random& m_random;
};

/// Writes a disk as a recorder does, and remembers what it wrote.
class SoundDisk : public FramesFixture {
protected:
    void Write(uint32_t seed) {
        Random random(seed);
        MakeStreams(random);
        StartDisk(random);
        m_ring = uint64_t{Image().BlockCount()} * Image().FrameAreaSize();
        const bool wraps = random.OneIn(2);
        const int64_t share = wraps ? random.Between(110, 250) : random.Between(5, 90); // percent of the ring
        const auto journeys = static_cast<uint64_t>(random.Between(1, 4));
        m_written = 0;
        m_cutOff.clear();
        m_clock = kStart * kSecond;
        for (uint64_t journey = 1; journey <= journeys; ++journey) {
            Drive(random, m_ring * static_cast<uint64_t>(share) / 100 * journey / journeys);
            End(random, journey == journeys);
        }
    }

    /// The frames that are on the disk: of each block, those of the last time that it was written.
    std::vector<RecordedFrame> OnDisk() {
        std::vector<RecordedFrame> frames;
        std::vector<bool> taken(Image().BlockCount());
        const std::vector<RecordedFrame>& all = Recorded();
        for (size_t i = all.size(); i-- > 0;) {
            const bool turnEnds = i + 1 < all.size() && all[i + 1].block != all[i].block;
            if (turnEnds) {
                taken[all[i + 1].block] = true;
            }
            if (!taken[all[i].block]) {
                frames.push_back(all[i]);
            }
        }
        std::reverse(frames.begin(), frames.end());
        return frames;
    }

    /// Whether what each turn of the ring has left is older than what is written over it, by more than recorders go by.
    /// Where a turn is that short, or the clock was set back by more than a turn, nobody can tell whose a frame is.
    bool LeftOverIsOlder() {
        std::vector<int64_t> newest(Image().BlockCount(),
                                    0); // of the block, and the start of the one written after it
        uint32_t before = 0;
        for (size_t i = 0; i < Recorded().size();) {
            const uint32_t block = Recorded()[i].block;
            if (i != 0) {
                newest[before] = std::max(newest[before], Recorded()[i].frame.pts / kSecond);
            }
            const int64_t limit = newest[block] == 0 ? 0 : newest[block] + kStaleSeconds;
            for (; i < Recorded().size() && Recorded()[i].block == block; ++i) {
                const int64_t seconds = Recorded()[i].frame.pts / kSecond;
                newest[block] = std::max(newest[block], seconds);
                if (seconds <= limit) {
                    return false;
                }
            }
            before = block;
        }
        return true;
    }

    /// Whether the clock was nowhere set back, by more than recorders go by, in a block that was then cut off. What follows
    /// there looks like something that lay there before.
    bool CutOffBlocksKeepTheirTime() {
        return std::all_of(m_cutOff.begin(), m_cutOff.end(),
                           [this](size_t last) { return KeepsItsTime(last); });
    }

private:
    /// @param last the last frame of a block
    bool KeepsItsTime(size_t last) const {
        const std::vector<RecordedFrame>& all = Recorded();
        size_t first = last;
        while (first != 0 && all[first - 1].block == all[last].block) {
            --first;
        }
        while (last != first && all[last].frame.type > kAudio) {
            --last;
        }
        return all[last].frame.pts / kSecond + kStaleSeconds >= all[first].frame.pts / kSecond;
    }

    static Stream Video(Random& random, uint32_t channel) {
        Stream stream;
        stream.channel = channel;
        stream.pace = random.Of<int64_t>(
            {33333, 40000, 66667, 100000, 200000, 500000, kSecond, 5 * kSecond, 10 * kSecond, 60 * kSecond});
        stream.steadiness =
            random.Of({Steadiness::Steady, Steadiness::Jitter, Steadiness::Skips, Steadiness::Irregular});
        stream.keyDistance = random.OneIn(3) ? random.Between(1, 300) : random.Between(1, 20);
        stream.bytes = random.Between(20, 900);
        stream.keyBytes = stream.bytes * random.Between(1, 6);
        stream.spread = random.OneIn(4) ? 0 : stream.bytes / 2;
        stream.look = random.Of(
            {Bytes::Noise, Bytes::Zeros, Bytes::EndInZeros, Bytes::EndInErased, Bytes::H264, Bytes::H265});
        return stream;
    }

    static Stream Audio(Random& random, uint32_t channel) {
        Stream stream;
        stream.channel = channel;
        stream.type = kAudio;
        stream.pace = random.Of<int64_t>({20000, 40000, 64000, 200000, kSecond, 7 * kSecond});
        stream.steadiness = random.Of({Steadiness::Steady, Steadiness::Jitter, Steadiness::Skips});
        stream.bytes = random.Between(16, 400);
        stream.spread = random.OneIn(3) ? stream.bytes / 3 : 0;
        stream.lag = random.Of<int64_t>({0, 0, 20000, 300000});
        stream.look = random.Of({Bytes::Noise, Bytes::Zeros, Bytes::EndInZeros, Bytes::EndInErased});
        return stream;
    }

    void MakeStreams(Random& random) {
        m_streams.clear();
        m_channels = 0;
        const auto cameras = random.Of<uint32_t>({1, 1, 2, 3, 4, 8, 16, 32});
        const int64_t media = random.Between(0, 5); // of all: 0 sound alone, 1 pictures alone
        for (uint32_t channel = 0; channel < cameras; ++channel) {
            m_channels |= 1u << channel;
            if (media != 0) {
                m_streams.push_back(Video(random, channel));
            }
            if (media == 0 || (media != 1 && random.OneIn(2))) {
                m_streams.push_back(Audio(random, channel));
            }
        }
        if (random.OneIn(3)) {
            Stream position;
            position.type = kPosition;
            position.pace = random.Of<int64_t>({kSecond, 5 * kSecond});
            position.bytes = random.Between(0, 64);
            m_streams.push_back(position);
        }
        m_eventEvery = random.OneIn(3) ? 0 : random.Between(5, 400);
    }

    void StartDisk(Random& random) {
        properties = {};
        for (const Stream& stream : m_streams) {
            ChnProp_t& channel = properties.at(stream.channel);
            if (stream.type == kVideoP && random.OneIn(2)) {
                channel.gop = static_cast<uint8_t>(std::min<int64_t>(stream.keyDistance, 255));
                channel.FrameRate = static_cast<uint8_t>(std::max<int64_t>(1, kSecond / stream.pace));
            }
            channel.AType = stream.type == kAudio ? 1 : channel.AType;
        }
        Start(static_cast<uint32_t>(random.Between(0, 1)), m_channels,
              static_cast<uint32_t>(random.Between(8, 32)) * 0x1000, !random.OneIn(4));
    }

    void Drive(Random& random, uint64_t until) {
        std::vector<Camera> cameras;
        for (const Stream& stream : m_streams) {
            cameras.emplace_back(stream, random, m_clock);
        }
        const int64_t clockSetAt = random.OneIn(8) ? random.Between(1, 2000) : 0; // frames into the journey
        int64_t count = 0;
        do {
            Camera& camera =
                *std::min_element(cameras.begin(), cameras.end(), [](const Camera& a, const Camera& b) {
                    return a.WrittenAt() < b.WrittenAt();
                });
            const sample_recorder::Frame frame = camera.Next();
            Record(frame);
            m_clock = std::max(frame.pts, m_clock);
            m_written += 24 + frame.payload.size();
            ++count;
            if (m_eventEvery != 0 && count % m_eventEvery == 0) {
                RecordEvent(frame.pts - random.Between(0, 3) * random.Between(0, kSecond),
                            uint64_t{1} << random.Between(0, 40), frame.channel, !random.OneIn(4));
            }
            if (count == clockSetAt) {
                const int64_t by = ClockSetBy(random);
                for (Camera& each : cameras) {
                    each.SetClock(by);
                }
                m_clock = frame.pts + by;
            }
        } while (m_written < until);
    }

    static int64_t ClockSetBy(Random& random) {
        return random.Of<int64_t>({-1, 1}) * random.Of<int64_t>({1, 5, 60, 3600, 7200}) * kSecond +
               random.Between(-400000, 400000);
    }

    void End(Random& random, bool last) {
        const int64_t how = random.Between(0, last ? 9 : 5);
        if (how <= 1) {
            Recorder().PowerOff();
        } else if (how == 2) {
            Recorder().CutPowerAfterIndex();
        } else {
            Recorder().CutPower();
            m_cutOff.push_back(Recorded().size() - 1);
        }
        m_clock += random.Of<int64_t>({1, 30, 600, 86400}) * kSecond;
        if (random.OneIn(4)) {
            m_clock += ClockSetBy(random);
        }
    }

    std::vector<Stream> m_streams;
    uint32_t m_channels = 0;
    int64_t m_eventEvery = 0;
    uint64_t m_ring = 0;
    uint64_t m_written = 0;
    int64_t m_clock = 0;
    std::vector<size_t> m_cutOff; ///< the last frames of the blocks that were cut off
};

std::string Line(const RecordedFrame& frame) {
    return "block " + std::to_string(frame.block) + " at " + std::to_string(frame.offset) + " channel " +
           std::to_string(frame.frame.channel) + " type " + std::to_string(frame.frame.type) + " time " +
           std::to_string(frame.frame.pts) + " bytes " + std::to_string(frame.frame.payload.size());
}

bool SameFrame(const RecordedFrame& a, const RecordedFrame& b) {
    return a.block == b.block && a.offset == b.offset && a.frame.pts == b.frame.pts &&
           a.frame.type == b.frame.type && a.frame.channel == b.frame.channel &&
           a.frame.payload == b.frame.payload;
}

/// What is first wrong with frames that were read; empty when nothing is.
std::string Difference(const std::vector<RecordedFrame>& read, const std::vector<RecordedFrame>& expected) {
    const auto at = std::mismatch(read.begin(), read.end(), expected.begin(), expected.end(), SameFrame);
    std::string text;
    if (at.first != read.end()) {
        text += " read " + Line(*at.first);
    }
    if (at.second != expected.end()) {
        text += " instead of " + Line(*at.second);
    }
    return text;
}

/// Disks of a group; the first is made from the seed 1 + group * kDisksOfAGroup.
constexpr uint32_t kDisksOfAGroup = 50;

class SoundDisks : public SoundDisk, public ::testing::WithParamInterface<uint32_t> {
protected:
    /// All frames, block by block, and the problems of blocks and frames.
    std::vector<RecordedFrame> ReadBlocks() {
        m_problems = Problems();
        std::vector<RecordedFrame> frames;
        const recordings::BlockList blocks = recordings::BlockList::Read(Open());
        for (const recordings::Block& block : blocks.All()) {
            const ReadFrames read = Read(block.number);
            frames.insert(frames.end(), read.frames.begin(), read.frames.end());
            const std::vector<std::string> lines = read.Lines();
            m_problems.insert(m_problems.end(), lines.begin(), lines.end());
        }
        return frames;
    }

    /// The media of all time.
    std::vector<RecordedFrame> ReadRange() {
        recordings::Disk& disk = Open();
        const recordings::BlockList blocks = recordings::BlockList::Read(disk);
        recordings::FrameQuery query;
        query.decodable = false;
        std::vector<RecordedFrame> frames;
        m_problems.clear();
        recordings::RangeFrames range(disk, blocks, query, [&](const recordings::Problem& problem) {
            m_problems.push_back(Brief(problem));
        });
        for (recordings::Frame frame; range.Next(frame);) {
            RecordedFrame each;
            each.block = frame.block;
            each.offset = frame.offset;
            each.frame = {frame.time, frame.type, frame.channel, {frame.data, frame.data + frame.size}};
            frames.push_back(each);
        }
        return frames;
    }

    std::vector<std::string> m_problems;
};

TEST_P(SoundDisks, LoseNoFrameAndHaveNoProblem) {
    uint32_t tested = 0;
    for (uint32_t i = 1; i <= kDisksOfAGroup; ++i) {
        const uint32_t seed = GetParam() * kDisksOfAGroup + i;
        Write(seed);
        if (!LeftOverIsOlder() || !CutOffBlocksKeepTheirTime()) {
            continue;
        }
        ++tested;
        std::vector<RecordedFrame> frames = OnDisk();
        EXPECT_EQ(Difference(ReadBlocks(), frames), "") << "disk " << seed;
        EXPECT_EQ(m_problems, std::vector<std::string>()) << "disk " << seed;
        frames.erase(std::remove_if(frames.begin(), frames.end(),
                                    [](const RecordedFrame& frame) { return frame.frame.type > kAudio; }),
                     frames.end());
        EXPECT_EQ(Difference(ReadRange(), frames), "") << "disk " << seed;
        EXPECT_EQ(m_problems, std::vector<std::string>()) << "disk " << seed;
    }
    EXPECT_GE(tested, kDisksOfAGroup / 2);
}

/// More than are tested each time can be asked for.
uint32_t Groups() {
    const char* const number = std::getenv("DISKACCESS_SOUND_DISK_GROUPS");
    return number != nullptr ? static_cast<uint32_t>(std::strtoul(number, nullptr, 10)) : 12;
}

INSTANTIATE_TEST_SUITE_P(Seeds, SoundDisks, ::testing::Range(0u, Groups()));

} // namespace

} // namespace test_support
