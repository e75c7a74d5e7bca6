#include "dev_io.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstring>
#include <fstream>

#include "host/system_calls.h"
#include "support/printed.h"
#include "support/temp_dir.h"

namespace {

using namespace test_support;

class DevIo : public ::testing::Test {
protected:
    DevIo() {
        std::ofstream(m_dir.File("device")) << "0123456789";
        m_part = PartAt(m_dir.File("device"));
    }

    static PartAccess_t PartAt(const std::string& path) {
        PartAccess_t part = {};
        path.copy(part.PartName, sizeof part.PartName);
        return part;
    }

    TempDir m_dir;
    PartAccess_t m_part = {};
};

TEST_F(DevIo, OpensReadOnlyWithLargeOffsets) {
    const SystemCallLog log;
    dev_op_st* const dev = dev_open(&m_part);
    ASSERT_NE(dev, nullptr);
    ASSERT_EQ(log.Count(CallKind::Open), 1u);
    EXPECT_EQ(log.Calls()[0].flags, O_RDONLY | O_LARGEFILE);
    EXPECT_EQ(dev_close(dev), 0);
}

TEST_F(DevIo, NullDescriptorGivesNullWithoutAMessage) {
    EXPECT_EQ(Printed([] { EXPECT_EQ(dev_open(nullptr), nullptr); }), "");
}

TEST_F(DevIo, PathThatCannotBeOpenedGivesNullAndOneMessage) {
    PartAccess_t missing = PartAt(m_dir.File("missing"));
    EXPECT_EQ(PrintedWithoutLines([&] { EXPECT_EQ(dev_open(&missing), nullptr); }), "dev_open : #, Failed\n");
}

TEST_F(DevIo, NameWithoutTerminatorIsReadNoFurtherThanItsField) {
    struct {
        PartAccess_t part;
        char behind[8];
    } memory = {};
    std::memset(memory.part.PartName, 'x', sizeof memory.part.PartName);
    std::memcpy(memory.behind, "/behind", 8);
    EXPECT_EQ(PrintedWithoutLines([&] { EXPECT_EQ(dev_open(&memory.part), nullptr); }),
              "dev_open : #, Failed\n");
}

TEST_F(DevIo, ReadsWhatTheSeekPointsAt) {
    dev_op_st* const dev = dev_open(&m_part);
    char buf[4] = {};
    EXPECT_EQ(dev_read(dev, buf, 3), 0); // a device just opened is at position 0
    EXPECT_STREQ(buf, "012");
    EXPECT_EQ(dev_seek(dev, 6), 0);
    EXPECT_EQ(dev_read(dev, buf, 3), 0);
    EXPECT_STREQ(buf, "678");
    EXPECT_EQ(dev_close(dev), 0);
}

TEST_F(DevIo, EachOperationIsOneSystemCall) {
    const SystemCallLog log;
    dev_op_st* const dev = dev_open(&m_part);
    char buf[4];
    dev_seek(dev, 2);
    dev_read(dev, buf, 4);
    dev_close(dev);
    ASSERT_EQ(log.Calls().size(), 4u);
    EXPECT_EQ(log.Calls()[1].kind, CallKind::Seek);
    EXPECT_EQ(log.Calls()[1].offset, 2);
    EXPECT_EQ(log.Calls()[2].kind, CallKind::Read);
    EXPECT_EQ(log.Calls()[2].length, 4u);
    EXPECT_EQ(log.Calls()[3].kind, CallKind::Close); // and no fsync
}

TEST_F(DevIo, ShortReadFails) {
    dev_op_st* const dev = dev_open(&m_part);
    char buf[16];
    EXPECT_EQ(dev_read(dev, buf, 11), -1);
    EXPECT_EQ(dev_seek(dev, 8), 0);
    EXPECT_EQ(dev_read(dev, buf, 3), -1);
    EXPECT_EQ(dev_seek(dev, 8), 0);
    EXPECT_EQ(dev_read(dev, buf, 2), 0);
    dev_close(dev);
}

TEST_F(DevIo, FailingCallsFail) {
    dev_op_st* const dev = dev_open(&m_part);
    {
        const SystemCallLog log([](const Call&, size_t) { return Fate::Failing(); });
        char buf[4];
        EXPECT_EQ(dev_seek(dev, 0), -1);
        EXPECT_EQ(dev_read(dev, buf, 4), -1);
    }
    dev_close(dev);
}

TEST_F(DevIo, SeekRefusesAnOffsetThatWrapped) {
    dev_op_st* const dev = dev_open(&m_part);
    EXPECT_EQ(dev_seek(dev, -1), -1);
    EXPECT_EQ(dev_seek(dev, 0x200000000LL), 0); // beyond 4 GiB, and beyond the end: unchecked
    dev_close(dev);
}

TEST_F(DevIo, RefusesNullAndInvalidHandles) {
    char buf[4] = {};
    dev_op_st zero = {0};
    dev_op_st negative = {-1};
    for (dev_op_st* const bad : {static_cast<dev_op_st*>(nullptr), &zero, &negative}) {
        EXPECT_EQ(Printed([&] {
                      EXPECT_EQ(dev_seek(bad, 0), -1);
                      EXPECT_EQ(dev_read(bad, buf, 1), -1);
                      EXPECT_EQ(dev_close(bad), -1);
                  }),
                  "");
    }
    dev_op_st* const dev = dev_open(&m_part);
    EXPECT_EQ(dev_read(dev, nullptr, 0), -1);
    EXPECT_EQ(dev_read(dev, buf, 0), 0);
    dev_close(dev);
}

TEST_F(DevIo, HandleThatWasGivenDescriptorZeroIsRefusedByItsOwnClose) {
    const int saved = dup(STDIN_FILENO);
    close(STDIN_FILENO);
    dev_op_st* const dev = dev_open(&m_part);
    ASSERT_NE(dev, nullptr);
    EXPECT_EQ(dev->fd, 0);
    char buf[1];
    EXPECT_EQ(dev_seek(dev, 0), -1);
    EXPECT_EQ(dev_read(dev, buf, 1), -1);
    EXPECT_EQ(dev_close(dev), -1);
    close(STDIN_FILENO);
    std::free(dev); // nothing but this test can release it
    if (saved >= 0) {
        dup2(saved, STDIN_FILENO);
        close(saved);
    }
}

} // namespace
