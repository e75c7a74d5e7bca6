#ifndef TESTS_SEARCH_SEARCH_FIXTURE_H
#define TESTS_SEARCH_SEARCH_FIXTURE_H

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "disk_access.h"
#include "host/system_calls.h"
#include "sample_recorder/partition_image.h"
#include "support/printed.h"
#include "support/temp_dir.h"

namespace test_support {

using sample_recorder::BlockContents;
using sample_recorder::Format;
using sample_recorder::PartitionImage;

using RecordList = CCommList<RecordItem_t>;
using EventList = CCommList<EventItem_t>;
using UnitList = CCommList<UnitItem_t>;
using DayList = CCommList<unsigned int>;

constexpr uint32_t kAll = 0xFFFFFFFF;

/// Microseconds of a time in seconds.
constexpr int64_t Pts(int64_t seconds) {
    return seconds * 1000000;
}

template <typename T>
std::vector<T> Elements(const CCommList<T>& list) {
    std::vector<T> elements;
    for (const auto* node = list.m_pHead; node != nullptr; node = node->pNext) {
        elements.push_back(node->data);
    }
    return elements;
}

/// A record as a line: "block/channel/segment start-end size alarm flag".
std::string Describe(const RecordItem_t& record);
std::vector<std::string> Describe(const RecordList& records);
/// An event as a line: "block/entry time type".
std::vector<std::string> Describe(const EventList& events);
/// A unit as a line: "unit time".
std::vector<std::string> Describe(const UnitList& units);

using Lines = std::vector<std::string>;

/// A test with a partition of its own: blocks of 64 KiB, normal layout, eight of them unless it says
/// otherwise.
class SearchFixture : public ::testing::Test {
protected:
    /// Makes the partition; the first thing a test does.
    PartitionImage& MakeDisk(const Format& format = {});
    PartitionImage& MakeDisk(uint32_t blockCount);
    PartitionImage& Disk() { return *m_disk; }
    std::string File(const std::string& name) const { return m_dir.File(name); }

    /// Writes closed blocks 0, 1, ... with these sequence numbers; block with number q is recorded from q *
    /// 1000 to q * 1000 + 900 with one segment of channel 0 over all of it. Number 0 leaves the block never
    /// recorded.
    void WriteRing(const std::vector<uint32_t>& sequence);

private:
    TempDir m_dir;
    std::optional<PartitionImage> m_disk;
};

/// A partition object open on the test's disk.
class OpenPart {
public:
    explicit OpenPart(const PartitionImage& disk) {
        PartAccess_t access = disk.Access();
        EXPECT_EQ(m_part.Init(&access), 0);
    }
    ~OpenPart() { m_part.Quit(); }
    OpenPart(const OpenPart&) = delete;
    OpenPart& operator=(const OpenPart&) = delete;
    CSearchPart* operator->() { return &m_part; }

private:
    CSearchPart m_part;
};

/// A block object on the test's disk, with a device of its own.
class OpenBlocks {
public:
    explicit OpenBlocks(const PartitionImage& disk) {
        PartAccess_t access = disk.Access();
        m_dev = dev_open(&access);
        m_blocks = std::make_unique<CSearchBlock>(m_dev, disk.BlockSize(), BLOCK_BASE_OFFSET,
                                                  disk.Head().FmtVersion);
    }
    ~OpenBlocks() {
        m_blocks.reset();
        dev_close(m_dev);
    }
    OpenBlocks(const OpenBlocks&) = delete;
    OpenBlocks& operator=(const OpenBlocks&) = delete;
    CSearchBlock* operator->() { return m_blocks.get(); }

    /// The tables held, as PrintIndex() prints them.
    std::string Index() {
        return Printed([this] { EXPECT_EQ(m_blocks->PrintIndex(), 0); });
    }

private:
    dev_op_st* m_dev = nullptr;
    std::unique_ptr<CSearchBlock> m_blocks;
};

} // namespace test_support

#endif // TESTS_SEARCH_SEARCH_FIXTURE_H
