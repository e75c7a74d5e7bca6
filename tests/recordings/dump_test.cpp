// The dump of a partition that need not be a block device.

#include "recordings/dump.h"

#include <gtest/gtest.h>

#include <cstdarg>
#include <cstdio>

#include "recordings/recordings_fixture.h"

namespace test_support {

namespace {

int Collect(void* context, const char* format, ...) __attribute__((format(printf, 2, 3)));
int Collect(void* context, const char* format, ...) {
    char piece[512];
    va_list values;
    va_start(values, format);
    const int length = std::vsnprintf(piece, sizeof piece, format, values);
    va_end(values);
    *static_cast<std::string*>(context) += piece;
    return length;
}

/// A source by another name.
class Renamed : public WornSource {
public:
    Renamed(std::unique_ptr<recordings::Source> inner, std::string name)
        : WornSource(std::move(inner)), m_name(std::move(name)) {}
    const std::string& Name() const override { return m_name; }

private:
    std::string m_name;
};

class Dumps : public RecordingsFixture {
protected:
    void SetUp() override {
        sample_recorder::Format format;
        format.blockCount = 3;
        format.description = "Bus 7";
        MakeDisk(format);
        Image().WriteBlock(0,
                           sample_recorder::BlockContents::Closed(1, 1000, 1900).Segment(0, 1000, 1900, 10));
        m_source = std::make_unique<Renamed>(recordings::OpenSource(Image().Path()), "disk.E01");
    }

    std::string At(int level) {
        std::string text;
        m_result = recordings::Dump(*m_source, level, Collect, &text);
        return text;
    }

    std::unique_ptr<Renamed> m_source;
    int m_result = 0;
};

const std::string kHead = "*******************************HEAD********************************** \n"
                          "Description : Bus 7\n"
                          "FormatFlag : 0xaa55aa55\n"
                          "FmtVersion : 0\n"
                          "BlkCount : 3\n"
                          "BlkSize : 0x00010000\n";

TEST_F(Dumps, ShowWhatTheSourceHolds) {
    const std::string first = "PartName : disk.E01, PartSize : " + std::to_string(m_source->Size()) + "\n";
    EXPECT_EQ(At(-1), first);
    EXPECT_EQ(m_result, 0);
    const std::string head = At(1);
    EXPECT_EQ(m_result, 0);
    EXPECT_EQ(head.rfind(first + kHead, 0), 0u) << head;
    // Each level goes further.
    EXPECT_GT(At(2).size(), head.size());
    EXPECT_GT(At(3).size(), At(2).size());
    EXPECT_EQ(m_result, 0);
}

TEST_F(Dumps, ShowBlocksFromTheirPlaces) {
    Image().Change<BlockHead_t>(Image().HeadOffset(2), [](BlockHead_t& head) { head.RecSeq = 987654321; });
    EXPECT_NE(At(2).find("987654321"), std::string::npos);
    EXPECT_EQ(m_result, 0);
}

TEST_F(Dumps, FailWhereTheHeadCannotBeRead) {
    m_source->Fail(100, 101);
    EXPECT_EQ(At(1).find("HEAD"), std::string::npos);
    EXPECT_EQ(m_result, -1);
}

TEST_F(Dumps, FailWhereThereIsNothing) {
    Image().Truncate(0);
    m_source = std::make_unique<Renamed>(recordings::OpenSource(Image().Path()), "empty");
    At(3);
    EXPECT_EQ(m_result, -1);
}

TEST_F(Dumps, CutNamesThatARecorderHasNoRoomFor) {
    m_source = std::make_unique<Renamed>(recordings::OpenSource(Image().Path()), std::string(500, 'n'));
    EXPECT_EQ(At(-1), "PartName : " + std::string(127, 'n') +
                          ", PartSize : " + std::to_string(m_source->Size()) + "\n");
    EXPECT_EQ(m_result, 0);
}

} // namespace

} // namespace test_support
