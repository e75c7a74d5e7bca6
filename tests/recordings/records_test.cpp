// Records and events of a range, wherever on the disk they lie.

#include "recordings/records.h"

#include <gtest/gtest.h>

#include "recordings/error.h"
#include "recordings/frames_fixture.h"

namespace test_support {

namespace {

using recordings::BlockList;
using recordings::Event;
using recordings::RecordQuery;
using sample_recorder::BlockContents;
using Lines = std::vector<std::string>;

std::string Line(const recordings::Record& record) {
    return std::to_string(record.block) + " " + std::to_string(record.channel) + "/" +
           std::to_string(record.segment) + " " + std::to_string(record.start) + "-" +
           std::to_string(record.end) + (record.closed ? "" : " open");
}

class Records : public FramesFixture {
protected:
    Lines Of(const RecordQuery& query) {
        Lines lines;
        m_problems.clear();
        const recordings::Disk& disk = Open();
        ForEachRecord(
            disk, BlockList::Read(disk), query,
            [this](const recordings::Problem& problem) { m_problems.push_back(Brief(problem)); }, {},
            [&](const recordings::Record& record) { lines.push_back(Line(record)); });
        return lines;
    }

    /// Blocks 0 and 1, with channels 0 and 3 each, and an event.
    void MakeTwo(const sample_recorder::Format& format = {}) {
        MakeDisk(format);
        for (uint32_t block = 0; block < 2; ++block) {
            const uint32_t start = 1000 * (block + 1);
            Image().WriteBlock(block, BlockContents::Closed(block + 1, start, start + 900)
                                          .Segment(0, start, start + 300, 10)
                                          .Segment(0, start + 400, start + 900, 10)
                                          .Segment(3, start + 100, start + 200, 10)
                                          .Event((start + 500) * int64_t{1000000}, 1u << (2 * block)));
        }
    }

    Lines m_problems;
};

TEST_F(Records, AreThoseThatShareASecondWithTheRange) {
    MakeTwo();
    EXPECT_EQ(Of({}), (Lines{"0 0/0 1000-1300", "0 3/0 1100-1200", "0 0/1 1400-1900", "1 0/0 2000-2300",
                             "1 3/0 2100-2200", "1 0/1 2400-2900"}));
    EXPECT_EQ(Of({{1300, 1400}}), (Lines{"0 0/0 1000-1300", "0 0/1 1400-1900"}));
    EXPECT_EQ(Of({{1301, 1399}}), Lines());
    EXPECT_EQ(Of({{1900, 2000}}), (Lines{"0 0/1 1400-1900", "1 0/0 2000-2300"}));
    EXPECT_EQ(Of({{}, {0x8}}), (Lines{"0 3/0 1100-1200", "1 3/0 2100-2200"}));
    EXPECT_EQ(m_problems, Lines());
}

TEST_F(Records, OfLockedChannelsAreLeftOut) {
    sample_recorder::Format format;
    format.encrypt = 1;
    format.encryptMap = 0x1;
    format.password = "open";
    MakeTwo(format);
    EXPECT_EQ(Of({}), (Lines{"0 3/0 1100-1200", "1 3/0 2100-2200"}));
}

TEST_F(Records, ComeWithWhatIsWrongWithTheirBlocks) {
    MakeTwo();
    Image().WriteBlock(2, BlockContents::Closed(3, 3000, 3900).Segment(0, 3000, 3900, 10));
    Fail(Image().BlockStart(1), Image().BlockStart(2));
    EXPECT_EQ(Of({}), (Lines{"0 0/0 1000-1300", "0 3/0 1100-1200", "0 0/1 1400-1900", "2 0/0 3000-3900"}));
    EXPECT_EQ(m_problems, Lines{"block_unreadable loss block 1"});
    EXPECT_EQ(Of({{0, 1400}}).size(), 3u);
    EXPECT_EQ(m_problems, Lines()) << "lost after the range";
}

TEST_F(Records, AreMadeOfFramesWhereTheIndexCannotBeTrue) {
    Start(0, 1);
    for (int64_t i = 0; i < 10; ++i) {
        Record((1000 + i) * int64_t{1000000}, i == 0 ? 1 : 0, 0, 100);
    }
    Recorder().PowerOff();
    EXPECT_EQ(Of({}), Lines{"0 0/0 1000-1009"});
    const uint64_t segment = Image().IndexOffset(0) + sizeof(BlkIndexHead_t) + sizeof(IFrameItem_t);
    ASSERT_EQ(Image().Get<RecSegItem_t>(segment).e, 1009u);
    // A day after the block's end is still believed, a second more is not.
    Image().Change<RecSegItem_t>(segment, [](RecSegItem_t& item) { item.e = 1009 + 86400; });
    EXPECT_EQ(Of({}), Lines{"0 0/0 1000-87409"});
    EXPECT_EQ(m_problems, Lines());
    Image().Change<RecSegItem_t>(segment, [](RecSegItem_t& item) { item.e = 1009 + 86401; });
    EXPECT_EQ(Of({}), Lines{"0 0/0 1000-1009 open"});
    EXPECT_FALSE(m_problems.empty());
    EXPECT_EQ(m_problems.front(), "index_damaged note block 0");
}

TEST_F(Records, OfAnIndexThatCannotBeTrueStayWhereNoFrameIsLeft) {
    MakeDisk(); // holds no frame
    Image().WriteBlock(0, BlockContents::Closed(1, 1000, 1900).Segment(0, 1000, 1900 + 86401, 10));
    EXPECT_EQ(Of({}), Lines{"0 0/0 1000-88301"});
    EXPECT_FALSE(m_problems.empty());
    EXPECT_EQ(m_problems.front(), "index_damaged note block 0");
}

TEST_F(Records, EndWhenTheWatchSaysSo) {
    MakeTwo();
    const recordings::Disk& disk = Open();
    const BlockList blocks = BlockList::Read(disk);
    size_t taken = 0;
    const auto afterOne = [](const recordings::Progress& progress) { return progress.done < 1; };
    EXPECT_THROW(ForEachRecord(disk, blocks, {}, {}, afterOne, [&](const recordings::Record&) { ++taken; }),
                 recordings::Error);
    EXPECT_EQ(taken, 3u); // those of the first block
}

TEST_F(Records, ComeWithEventsInOnePass) {
    MakeTwo();
    const recordings::Disk& disk = Open();
    const BlockList blocks = BlockList::Read(disk);
    Lines lines;
    recordings::RecordsAndEvents take;
    take.record = [&](const recordings::Record& record) { lines.push_back(Line(record)); };
    take.event = [&](const Event& event) {
        lines.push_back(std::to_string(event.block) + " event " + std::to_string(event.time));
    };
    ForEachRecordAndEvent(disk, blocks, {{1500, 2000}}, {}, {}, take);
    EXPECT_EQ(lines, (Lines{"0 0/1 1400-1900", "0 event 1500", "1 0/0 2000-2300"}));
}

TEST_F(Records, AndEventsOfTheTypesThatAreWanted) {
    MakeTwo(); // types 1 and 4, at 1500 and 2500
    const recordings::Disk& disk = Open();
    const BlockList blocks = BlockList::Read(disk);
    const auto times = [&](const recordings::TimeRange& range, recordings::EventMask mask) {
        std::vector<uint32_t> found;
        for (const Event& event : FindEvents(disk, blocks, range, mask, {})) {
            found.push_back(event.time);
        }
        return found;
    };
    using Times = std::vector<uint32_t>;
    EXPECT_EQ(times({}, recordings::kAllEvents), (Times{1500, 2500}));
    EXPECT_EQ(times({1500, 2500}, recordings::kAllEvents), (Times{1500, 2500}));
    EXPECT_EQ(times({1501, 2499}, recordings::kAllEvents), Times());
    EXPECT_EQ(times({}, 0x6), Times{2500});
    EXPECT_EQ(times({}, 0x2), Times());
}

} // namespace

} // namespace test_support
