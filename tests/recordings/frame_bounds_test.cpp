// Reading frames costs what a block holds, whatever is forged in it: bytes are asked for once, or twice where something is
// damaged, and what does not deliver is asked a bounded number of times.

#include <gtest/gtest.h>

#include <cstring>
#include <ctime>
#include <map>
#include <optional>

#include "frame_area.h"
#include "recordings/block_frames.h"
#include "recordings/recordings_fixture.h"
#include "support/memory_use.h"

namespace test_support {

namespace {

using namespace sample_recorder;
using recordings::FrameArea;
using recordings::FrameBuffer;
using recordings::Want;

constexpr uint32_t kStart = 1795183200;
constexpr uint32_t kBlockSize = 0x800000;
constexpr uint32_t kHead = 24;

class FrameBounds : public RecordingsFixture {
protected:
    /// A disk of one block of @p bytes, never closed, or closed with a segment over all of it.
    void MakeBlock(uint32_t bytes = kBlockSize, bool closed = false) {
        Format format;
        format.blockCount = 1;
        format.blockSize = bytes;
        MakeDisk(format);
        m_bytes.assign(Image().FrameAreaSize(), 0);
        BlockContents contents = closed ? BlockContents::Closed(1, kStart, kStart + 3600).Channels(1)
                                        : BlockContents::Open(1, kStart).Channels(1);
        if (closed) {
            contents.Segment(0, kStart, kStart + 3600, Image().FrameAreaSize());
        }
        Image().WriteBlock(0, contents);
    }

    void PutHead(uint32_t at, int64_t micros, uint32_t length, uint32_t type = 0) {
        const FrameHead_t head = {kStart * int64_t{1000000} + micros, BLOCK_MAGIC, type, 0, length};
        std::memcpy(m_bytes.data() + at, &head, sizeof head);
    }

    struct Cost {
        uint64_t bytes = 0;
        uint64_t reads = 0;
        size_t frames = 0;
        size_t problems = 0;
        double seconds = 0;
    };

    Cost Read(Want want) {
        Image().Write(Image().FrameOffset(0, 0), m_bytes.data(), m_bytes.size());
        recordings::Disk& disk = Open();
        const recordings::BlockList blocks = recordings::BlockList::Read(disk);
        Cost cost;
        const uint64_t bytes = Worn().BytesAsked();
        const uint64_t reads = Worn().Reads();
        const std::clock_t begin = std::clock(); // processor time: others may be busy
        recordings::BlockFrames frames(disk, blocks.All().at(0), want,
                                       [&](const recordings::Problem&) { ++cost.problems; });
        bool lost = false;
        for (recordings::Frame frame; frames.Next(frame, lost);) {
            ++cost.frames;
        }
        cost.seconds = static_cast<double>(std::clock() - begin) / CLOCKS_PER_SEC;
        cost.bytes = Worn().BytesAsked() - bytes;
        cost.reads = Worn().Reads() - reads;
        return cost;
    }

    /// Reads what was forged, closed and open, heads and payloads.
    void ExpectLinear(const std::function<void()>& forge) {
        for (const bool closed : {false, true}) {
            MakeBlock(kBlockSize, closed);
            forge();
            for (const Want want : {Want::Heads, Want::Payloads}) {
                const Cost cost = Read(want);
                EXPECT_LE(cost.bytes, 2 * uint64_t{kBlockSize} + kBlockSize / 4);
                EXPECT_LE(cost.frames, kBlockSize / kHead);
                EXPECT_LE(cost.problems, 4000u);
                EXPECT_LE(cost.seconds, 20) << "a quadratic search takes minutes";
            }
        }
    }

    std::vector<uint8_t> m_bytes;
};

TEST_F(FrameBounds, ASoundBlockIsReadOnce) {
    MakeBlock();
    uint32_t at = 0;
    for (int64_t i = 0; at + 20024 < m_bytes.size() - 100; ++i, at += 20024) {
        PutHead(at, i * 40000, 20000, i % 25 == 0 ? 1 : 0);
    }
    const FrameHead_t mark = {0xFFFFFFFF, 0xFFFFFFFF, 0xFFFFFFFF, 0xFFFFFFFF, 0xFFFFFFFF};
    std::memcpy(m_bytes.data() + at, &mark, sizeof mark);
    const Cost payloads = Read(Want::Payloads);
    EXPECT_EQ(payloads.frames, at / 20024);
    EXPECT_EQ(payloads.problems, 0u);
    EXPECT_LE(payloads.bytes, uint64_t{kBlockSize} + 0x2000);
    EXPECT_LE(payloads.reads, 30u);
    const Cost heads = Read(Want::Heads);
    EXPECT_EQ(heads.frames, payloads.frames);
    EXPECT_EQ(heads.problems, 0u);
    EXPECT_LE(heads.bytes, kBlockSize / 2u); // payloads are skipped
}

TEST_F(FrameBounds, HeadsOfSmallFramesAreReadTogether) {
    MakeBlock();
    uint32_t at = 0;
    for (int64_t i = 0; at + 524 < m_bytes.size() - 100; ++i, at += 524) {
        PutHead(at, i * 40000, 500, i % 25 == 0 ? 1 : 0);
    }
    const FrameHead_t mark = {0xFFFFFFFF, 0xFFFFFFFF, 0xFFFFFFFF, 0xFFFFFFFF, 0xFFFFFFFF};
    std::memcpy(m_bytes.data() + at, &mark, sizeof mark);
    const Cost heads = Read(Want::Heads);
    EXPECT_EQ(heads.frames, at / 524);
    EXPECT_LE(heads.reads, 70u);
}

TEST_F(FrameBounds, SyncWordsEverywhere) {
    ExpectLinear([this] {
        for (size_t i = 0; i + 4 <= m_bytes.size(); i += 4) {
            const uint32_t sync = BLOCK_MAGIC;
            std::memcpy(m_bytes.data() + i, &sync, sizeof sync);
        }
    });
}

TEST_F(FrameBounds, HeadsAlone) {
    ExpectLinear([this] {
        for (uint32_t at = 0; at + kHead <= m_bytes.size(); at += kHead) {
            PutHead(at, at, 0);
        }
    });
}

TEST_F(FrameBounds, HeadsOfOneTime) {
    ExpectLinear([this] {
        for (uint32_t at = 0; at + kHead <= m_bytes.size(); at += kHead) {
            PutHead(at, 0, 0, at / kHead % 3);
        }
    });
}

TEST_F(FrameBounds, TimesThatFall) {
    ExpectLinear([this] {
        for (uint32_t at = 0; at + kHead <= m_bytes.size(); at += kHead) {
            PutHead(at, static_cast<int64_t>(at % 5000) - at / 100, 0, at / kHead % 7 == 0 ? 1 : 0);
        }
    });
}

TEST_F(FrameBounds, LengthsThatLeadFarAway) {
    // Each frame claims to end somewhere in the block, where no head is.
    ExpectLinear([this] {
        for (uint32_t at = 0; at + 40 <= m_bytes.size(); at += 40) {
            PutHead(at, at, (at * 7919u) % static_cast<uint32_t>(m_bytes.size() - at) / 40 * 40 + 3);
        }
    });
}

TEST_F(FrameBounds, LengthsThatLeadOutOfTheBlock) {
    ExpectLinear([this] {
        for (uint32_t at = 0; at + 40 <= m_bytes.size(); at += 40) {
            PutHead(at, at, 0xFFFFFFE8u - at);
        }
    });
}

TEST_F(FrameBounds, EverySecondHeadIsGone) {
    ExpectLinear([this] {
        for (uint32_t at = 0; at + 100 <= m_bytes.size(); at += 100) {
            PutHead(at, at, 76);
            m_bytes[at + 8] = at % 200 == 0 ? m_bytes[at + 8] : 0;
        }
    });
}

TEST_F(FrameBounds, HeadsInsideOfPayloads) {
    // A long frame whose payload is full of frames that lead to its end.
    ExpectLinear([this] {
        for (uint32_t at = 0; at + 0x10000 <= m_bytes.size(); at += 0x10000) {
            PutHead(at, int64_t{at} * 1000, 0x10000 - kHead);
            for (uint32_t inside = at + 40; inside + 40 <= at + 0x10000; inside += 40) {
                PutHead(inside, int64_t{inside} * 1000,
                        inside + 80 > at + 0x10000 ? at + 0x10000 - inside - kHead : 16);
            }
        }
    });
}

TEST_F(FrameBounds, ABlockThatIsTooLargeToBeKept) {
    MakeBlock(0x8000000); // 128 MiB
    uint32_t at = 0;
    for (int64_t i = 0; at + 200024 < m_bytes.size() - 100; ++i, at += 200024) {
        PutHead(at, i * 40000, 200000, i % 25 == 0 ? 1 : 0);
        m_bytes[at + kHead] = static_cast<uint8_t>(i);
    }
    const FrameHead_t mark = {0xFFFFFFFF, 0xFFFFFFFF, 0xFFFFFFFF, 0xFFFFFFFF, 0xFFFFFFFF};
    std::memcpy(m_bytes.data() + at, &mark, sizeof mark);
    m_bytes[20 * 200024 + 8] = 0;                     // a head that is gone
    PutHead(30 * 200024, int64_t{30} * 40000, 40000); // and one whose frame is too short
    Image().Write(Image().FrameOffset(0, 0), m_bytes.data(), m_bytes.size());
    Fail(Image().FrameOffset(0, 50 * 200024 + 100000), Image().FrameOffset(0, 50 * 200024 + 100001));
    recordings::Disk& disk = Open();
    const recordings::BlockList blocks = recordings::BlockList::Read(disk);
    std::vector<std::string> lines;
    recordings::BlockFrames frames(
        disk, blocks.All().at(0), Want::Payloads,
        [&](const recordings::Problem& problem) { lines.push_back(Brief(problem)); });
    size_t count = 0;
    bool lost = false;
    for (recordings::Frame frame; frames.Next(frame, lost); ++count) {
        ASSERT_EQ(frame.data[0], static_cast<uint8_t>(frame.offset / 200024));
    }
    EXPECT_EQ(count, at / 200024 - 3u);
    EXPECT_EQ(lines, (std::vector<std::string>{"bytes_damaged loss block 0", "bytes_damaged loss block 0",
                                               "bytes_unreadable loss block 0"}));
    EXPECT_LE(Worn().BytesAsked(), 3 * uint64_t{0x8000000});
}

TEST_F(FrameBounds, ForgedLengthsInABlockThatIsTooLargeToBeKept) {
    MakeBlock(0x8000000);
    for (uint32_t at = 0; at + 4000 <= m_bytes.size(); at += 4000) {
        PutHead(at, at, (at * 7919u) % static_cast<uint32_t>(m_bytes.size() - at) / 4000 * 4000 + 3);
    }
    EXPECT_LE(Read(Want::Heads).bytes, 4 * uint64_t{0x8000000});
}

/// A block that is too large is read again and again for each search: what is not looked at any more must be named.
TEST_F(FrameBounds, LengthsThatLeadOutOfABlockThatIsTooLargeToBeKept) {
    MakeBlock(0x4100000); // 65 MiB
    for (uint32_t i = 0; i < 300; ++i) {
        PutHead(i * 40, i * int64_t{40000}, 0x7FFFFFFF, i % 25 == 0 ? 1 : 0);
    }
    Image().Write(Image().FrameOffset(0, 0), m_bytes.data(), m_bytes.size());
    recordings::Disk& disk = Open();
    const recordings::BlockList blocks = recordings::BlockList::Read(disk);
    std::optional<recordings::Problem> damage;
    recordings::BlockFrames frames(
        disk, blocks.All().at(0), Want::Heads, [&](const recordings::Problem& problem) {
            const bool bytes = problem.kind == recordings::ProblemKind::BytesDamaged;
            damage = bytes ? problem : damage;
        });
    size_t count = 0;
    bool lost = false;
    for (recordings::Frame frame; frames.Next(frame, lost); ++count) {
        EXPECT_EQ(frame.offset, count * 40);
        EXPECT_EQ(frame.size, 16u); // up to the next one
    }
    EXPECT_EQ(count, 256u); // a search each
    EXPECT_TRUE(lost);
    ASSERT_TRUE(damage);
    EXPECT_EQ(*damage->offset, 256u * 40);
    EXPECT_EQ(damage->bytes, Image().FrameAreaSize() - 256u * 40);
}

// ---- the area by itself

class Area : public FrameBounds {
protected:
    void SetUp() override {
        MakeBlock(0x100000);
        for (size_t i = 0; i < m_bytes.size(); ++i) {
            m_bytes[i] = static_cast<uint8_t>(i / 251);
        }
        Image().Write(Image().FrameOffset(0, 0), m_bytes.data(), m_bytes.size());
    }
    uint64_t Device(uint32_t offset) { return Image().FrameOffset(0, offset); }
    FrameBuffer m_buffer;
};

TEST_F(Area, DeliversWhatIsAskedFor) {
    for (const Want want : {Want::Payloads, Want::Heads}) {
        FrameArea area(Open(), 0, want, m_buffer);
        for (const uint32_t at : {0u, 7u, 4096u, 100000u, 99999u, 3u, 600000u}) {
            const uint8_t* const bytes = area.At(at, 70000);
            ASSERT_NE(bytes, nullptr);
            EXPECT_EQ(std::memcmp(bytes, m_bytes.data() + at, 70000), 0) << at;
        }
        EXPECT_NE(area.At(area.Size() - 1, 1), nullptr);
        EXPECT_EQ(area.At(area.Size() - 1, 2), nullptr);
        EXPECT_EQ(area.At(0xFFFFFFFF, 0xFFFFFFFF), nullptr);
        EXPECT_EQ(area.PieceAt(area.Size()).size, 0u);
        EXPECT_TRUE(area.Unreadable().empty());
    }
}

TEST_F(Area, LosesOnlyWhatFails) {
    // Sectors begin at multiples of 512 on the device; the area begins at 840, within one.
    Fail(Device(5000), Device(5001));
    Fail(Device(20000), Device(30000));
    for (const Want want : {Want::Payloads, Want::Heads}) {
        FrameArea area(Open(), 0, want, m_buffer);
        EXPECT_EQ(area.At(4990, 20), nullptr);
        EXPECT_EQ(area.At(20000, 11000), nullptr);
        ASSERT_NE(area.At(4980, 20), nullptr);
        EXPECT_EQ(*area.At(4999, 1), m_bytes[4999]);
        EXPECT_EQ(area.At(25000, 1), nullptr);
        EXPECT_EQ(area.At(29999, 10), nullptr);
        // 5000 + 840 = 5840: the sector ends at 6144. 30000 + 840 = 30840: it ends at 31232.
        EXPECT_EQ(area.AfterUnreadable(5100), 6144u - 840);
        EXPECT_EQ(area.AfterUnreadable(25000), 31232u - 840);
        EXPECT_NE(area.At(6144 - 840, 100), nullptr);
        EXPECT_EQ(area.Unreadable().begin()->first, 5000u);
        EXPECT_EQ(area.Unreadable().begin()->second, 5304u);
        EXPECT_EQ(area.Unreadable().size(), 2u);
    }
}

TEST_F(Area, JoinsWhatFailsHoweverItIsAskedFor) {
    Fail(Device(20000), Device(30000));
    FrameArea area(Open(), 0, Want::Heads, m_buffer);
    EXPECT_EQ(area.At(25000, 10), nullptr);
    // Up to 28672 on the device: a window ends with a page.
    EXPECT_EQ(area.Unreadable(), (std::map<uint32_t, uint32_t>{{25000, 28672 - 840}}));
    EXPECT_EQ(area.At(20000, 10), nullptr); // the window moves back
    EXPECT_EQ(area.Unreadable(), (std::map<uint32_t, uint32_t>{{20000, 28672 - 840}}));
}

TEST_F(Area, AsksABoundedNumberOfTimesForWhatFails) {
    Fail(Device(0), Device(0x80000));
    FrameArea area(Open(), 0, Want::Payloads, m_buffer);
    const uint64_t before = Worn().Reads();
    EXPECT_EQ(area.At(0, 100), nullptr);
    EXPECT_EQ(area.At(0x70000, 100), nullptr);
    EXPECT_NE(area.At(0x90000, 100), nullptr);
    // A read for each sector, and one before for each page.
    EXPECT_LE(Worn().Reads() - before, 0x80000u / 512 + 0x80000u / 4096 + 20);
}

TEST_F(Area, EndsWhereACopyWasCutOff) {
    Image().Truncate(Device(70000));
    FrameArea area(Open(), 0, Want::Payloads, m_buffer);
    EXPECT_NE(area.At(69000, 1000), nullptr);
    EXPECT_EQ(area.At(69000, 1001), nullptr);
    EXPECT_EQ(area.AfterUnreadable(70000), 512u * 1024); // as far as was tried
    EXPECT_EQ(area.PieceAt(69990).size, 10u);
    EXPECT_EQ(area.PieceAt(70000).size, 0u);
}

TEST_F(Area, TakesMemoryForWhatTheSourceHoldsAlone) {
    // The head states a block of a mebibyte; 70,000 bytes of it are there.
    Image().Truncate(Device(70000));
    const recordings::Disk& disk = Open();
    for (const Want want : {Want::Payloads, Want::Heads}) {
        FrameBuffer buffer;
        FrameArea area(disk, 0, want, buffer);
        const size_t before = HeapInUse();
        EXPECT_EQ(area.At(10, 900000), nullptr);
        EXPECT_LE(HeapInUse() - before, 80000u);
        ASSERT_NE(area.At(69000, 1000), nullptr);
        EXPECT_EQ(std::memcmp(area.At(69000, 1000), m_bytes.data() + 69000, 1000), 0);
    }
}

TEST_F(Area, CallsBeforeEachRead) {
    int calls = 0;
    FrameArea area(Open(), 0, Want::Payloads, m_buffer, [&calls] { ++calls; });
    area.At(0, 10);
    EXPECT_EQ(calls, 1);
    area.At(100, 10);
    EXPECT_EQ(calls, 1);
    area.At(600000, 10);
    EXPECT_EQ(calls, 2);
}

} // namespace

} // namespace test_support
