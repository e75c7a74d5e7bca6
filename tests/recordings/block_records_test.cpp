// The records of one block.

#include <gtest/gtest.h>

#include "recordings/recordings_fixture.h"
#include "recordings/records.h"

namespace test_support {

namespace {

using recordings::BlockList;
using recordings::Record;
using sample_recorder::BlockContents;
using sample_recorder::Format;

class BlockRecords : public RecordingsFixture {
protected:
    /// Each record of a block as "CHANNEL/SEGMENT START-END".
    std::vector<std::string> Of(uint32_t number) {
        recordings::Disk& disk = Open();
        const BlockList blocks = BlockList::Read(disk);
        std::vector<std::string> texts;
        for (const Record& record : RecordsOf(disk, blocks.All().at(blocks.Find(number).value()), {})) {
            EXPECT_EQ(record.block, number);
            texts.push_back(std::to_string(record.channel) + "/" + std::to_string(record.segment) + " " +
                            std::to_string(record.start) + "-" + std::to_string(record.end));
        }
        return texts;
    }

    void MakeTwoBlocks(const Format& format) {
        MakeDisk(format);
        Image().WriteBlock(0, BlockContents::Closed(1, 1000, 1900)
                                  .Segment(0, 1000, 1300, 10)
                                  .Segment(0, 1400, 1900, 10)
                                  .Segment(3, 1100, 1200, 10));
        Image().WriteBlock(1, BlockContents::Closed(2, 2000, 2900).Segment(0, 2000, 2900, 10));
    }
};

TEST_F(BlockRecords, ComeSegmentBySegment) {
    MakeTwoBlocks({});
    EXPECT_EQ(Of(0), (std::vector<std::string>{"0/0 1000-1300", "3/0 1100-1200", "0/1 1400-1900"}));
    EXPECT_EQ(Of(1), std::vector<std::string>{"0/0 2000-2900"});
}

TEST_F(BlockRecords, ComeWithTheEventsOfTheBlock) {
    MakeDisk();
    Image().WriteBlock(0, BlockContents::Closed(1, 1000, 1900)
                              .Segment(0, 1000, 1900, 10)
                              .Event(1200000000, 0x4)
                              .Event(1300000000, 0x10));
    Image().WriteBlock(1,
                       BlockContents::Closed(2, 2000, 2900).Segment(0, 2000, 2900, 10).Event(2100000000, 1));
    recordings::Disk& disk = Open();
    const BlockList blocks = BlockList::Read(disk);
    const recordings::BlockContents contents = ReadContents(disk, blocks.All().front(), {});
    ASSERT_EQ(contents.records.size(), 1u);
    EXPECT_EQ(contents.records[0].end, 1900u);
    ASSERT_EQ(contents.events.size(), 2u);
    EXPECT_EQ(contents.events[1].time, 1300u);
    EXPECT_EQ(contents.events[1].type, 0x10u);
}

TEST_F(BlockRecords, LeaveLockedChannelsOut) {
    Format format;
    format.encrypt = 1;
    format.encryptMap = 0x1;
    format.password = "open";
    MakeTwoBlocks(format);
    EXPECT_EQ(Of(0), std::vector<std::string>{"3/0 1100-1200"});
    EXPECT_EQ(Of(1), std::vector<std::string>{});
}

} // namespace

} // namespace test_support
