// Records of a block with many segments and many events: each still carries the first event inside it.

#include <algorithm>
#include <cstdint>
#include <ctime>
#include <random>

#include "search/search_fixture.h"

namespace {

using namespace test_support;

constexpr int32_t kEndOfTime = 0x7FFFFFFF;

class AlarmFinding : public SearchFixture {
protected:
    using Events = std::vector<EventIndexItem_t>;

    uint32_t Random(uint32_t below) { return static_cast<uint32_t>(m_random() % below); }

    /// A second near one of few, as alarms are; sometimes anywhere, also before 1970 where they are signed.
    uint32_t RandomSecond() {
        return Random(16) == 0 ? static_cast<uint32_t>(m_random()) : 1000 + 40 * Random(8) + Random(30);
    }

    /// Few bits in the lower half, fewer in the upper one; sometimes none, or the highest.
    uint64_t RandomType() {
        uint64_t type = 0;
        for (uint32_t bits = Random(4); bits > 0; --bits) {
            type |= uint64_t{1} << (Random(4) == 0 ? 60 + Random(4) : Random(6));
        }
        return type;
    }

    /// Channels 0 to 3, up to 80 segments and 80 events.
    BlockContents RandomBlock(uint32_t recSeq) {
        BlockContents contents = BlockContents::Closed(recSeq, 1000, 1900).Channels(0xF);
        const bool inOrder = Random(3) == 0;
        const uint32_t events = Random(80);
        for (uint32_t i = 0; i < events; ++i) {
            const auto second = static_cast<int32_t>(inOrder ? 1000 + 4 * i : RandomSecond());
            contents.Event(Pts(second), RandomType());
        }
        for (uint32_t i = Random(80); i > 0; --i) {
            // Some begin before 1970, and end after it, or before they begin.
            const uint32_t start = RandomSecond();
            const uint32_t end = Random(8) == 0 ? RandomSecond() : start + Random(100);
            contents.Segment(Random(4), start, end & kEndOfTime, 0);
        }
        return contents;
    }

    /// The type of the first event within a segment that has a bit of the mask, as the signed number by which records
    /// are judged: -1 is none.
    static int64_t TypeWithin(const Events& events, const RecSegItem_t& segment, uint64_t mask) {
        for (const EventIndexItem_t& event : events) {
            const int64_t second = event.pts / 1000000;
            if (static_cast<int32_t>(segment.s) <= second && second <= static_cast<int32_t>(segment.e) &&
                (event.type & (mask == 0 ? 0xFFFFFFFF : mask)) != 0) {
                return static_cast<int64_t>(event.type);
            }
        }
        return mask == 0 ? 0 : -1;
    }

    /// The records of a channel's segments, or of all channels', from 1970 on.
    static Lines Expected(const BlockContents& contents, const Events& events, uint64_t mask, uint32_t chn) {
        RecordList records;
        for (uint32_t i = 0; i < 80; ++i) {
            for (uint32_t c = 0; c < 4; ++c) {
                const auto& segments = contents.segments.at(c);
                if ((chn != kAll && c != chn) || i >= segments.size()) {
                    continue;
                }
                const int64_t type = TypeWithin(events, segments[i], mask);
                const uint32_t start = static_cast<int32_t>(segments[i].s) < 0 ? 0 : segments[i].s;
                if (type >= 0 && start + 1 < segments[i].e) {
                    records.AddTail(
                        {static_cast<uint64_t>(type), 1u << 16 | c << 9 | i, c, start, segments[i].e, 0, 0});
                }
            }
        }
        return Describe(records);
    }

    std::mt19937_64 m_random{20231114};
};

TEST_F(AlarmFinding, GivesWhatLookingAtEachEventGives) {
    MakeDisk(3);
    OpenBlocks blocks(Disk());
    Events held; // the table that was loaded last
    size_t tagged = 0;
    for (int round = 0; round < 3000; ++round) {
        const BlockContents contents = RandomBlock(1);
        Disk().WriteBlock(1, contents);
        EXPECT_EQ(blocks->ReadBlockIndexList(0, 0), 1); // resets the counts of the block before
        if (Random(2) == 0) {
            // Block 1's count, another block's table: a search without events does not load this block's.
            const BlockContents other = RandomBlock(2);
            Disk().WriteBlock(2, other);
            EXPECT_EQ(blocks->ReadBlockIndexList(2, 2), 1);
            held = other.events.empty() ? held : other.events;
            EXPECT_EQ(blocks->ReadBlockIndexList(1, 1), 1);
        } else {
            EXPECT_EQ(blocks->ReadBlockIndexList(1, 3), 1);
            held = contents.events.empty() ? held : contents.events;
        }
        Events events = held;
        events.resize(std::min(held.size(), contents.events.size()));
        const uint64_t mask = Random(2) == 0 ? 0 : RandomType();
        const auto alarms = static_cast<long long>(mask);
        const uint32_t chn = Random(2) == 0 ? kAll : Random(4);
        RecordList records;
        const int count =
            chn == kAll
                ? blocks->GetAllChnMediaList(1, 0, kEndOfTime, 0, alarms, 0, &records, nullptr)
                : blocks->GetSigleChnMediaList(1, 0, kEndOfTime, chn, 0, alarms, 0, &records, nullptr);
        EXPECT_LE(count, records.m_nCount); // -1 while a channel never had a table
        ASSERT_EQ(Describe(records), Expected(contents, events, mask, chn)) << round;
        for (const RecordItem_t& record : Elements(records)) {
            tagged += record.alarmType != 0 ? 1u : 0u;
        }
    }
    EXPECT_GT(tagged, 20000u);
}

TEST_F(AlarmFinding, BlockFullOfSegmentsAndEventsIsListedSoon) {
    // A block of 1 GiB has an index area of 4 MiB: 100,000 segments and 90,000 events, none of them within any.
    Format format;
    format.blockCount = 1;
    format.blockSize = 0x40000000;
    MakeDisk(format);
    constexpr uint32_t kSegments = 100000;
    constexpr uint32_t kEvents = 90000;
    BlockContents contents = BlockContents::Closed(1, 1000, 1900);
    for (uint32_t i = 0; i < kSegments; ++i) {
        contents.Segment(i % 32, 1000 + 4 * i, 1002 + 4 * i, 100);
    }
    for (uint32_t i = kEvents; i > 0; --i) {
        contents.Event(Pts(1003 + 4 * i), 1);
    }
    contents.Event(Pts(1001), 2);
    Disk().WriteBlock(0, contents);
    OpenPart part(Disk());
    RecordList records;
    EventList events;
    const std::clock_t before = std::clock();
    EXPECT_EQ(part->SearchUnitMedia(0, 0, &records, &events), static_cast<int>(kSegments));
    const double seconds = static_cast<double>(std::clock() - before) / CLOCKS_PER_SEC;
    // Less than a tenth of one, when optimised. To look at each event for each segment takes fifty.
    EXPECT_LT(seconds, 5);
    EXPECT_EQ(events.m_nCount, static_cast<int>(kEvents + 1));
    EXPECT_EQ(Describe(records.m_pHead->data), "0/0/0 1000-1002 size 100 alarm 2 flag 0");
    EXPECT_EQ(Describe(records.m_pTail->data), "0/31/52 400996-400998 size 100 alarm 0 flag 0");
    RecordProperty("milliseconds", static_cast<int>(seconds * 1000));
}

} // namespace
