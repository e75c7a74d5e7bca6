#include "damage/operations.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <set>

#include "format/block_geometry.h"
#include "search/search_fixture.h"
#include "support/allocations.h"

namespace test_support {

namespace {

constexpr uint32_t kEndOfTime = 0x7FFFFFFF;
/// A forged ring of thousands of blocks takes the program time: the bounds hold there too, but one look is enough.
constexpr uint32_t kLongRing = 4096;

uint64_t Halvings(uint64_t blocks) {
    uint64_t halvings = 1;
    for (; blocks > 1; blocks = (blocks + 1) / 2) {
        ++halvings;
    }
    return halvings;
}

/// A caller's payload buffer, which must hold what a read says it delivered.
class Buffer {
public:
    Buffer() = default;
    ~Buffer() { std::free(m_memory); }
    Buffer(const Buffer&) = delete;
    Buffer& operator=(const Buffer&) = delete;

    void** Place() { return &m_memory; }
    void Touch(uint32_t len) const {
        if (len > 0) {
            auto* const bytes = static_cast<volatile uint8_t*>(m_memory);
            bytes[0] = bytes[len - 1];
        }
    }

private:
    void* m_memory = nullptr;
};

/// Expects a search to return how many items it appended to a list.
template <typename T, typename Search>
void ExpectCounted(const CCommList<T>& list, Search search) {
    const int before = list.m_nCount;
    const int result = search();
    EXPECT_EQ(result, list.m_nCount - before);
}

/// Throws a dump away.
int Discard(void* /*ctx*/, const char* /*format*/, ...) {
    return 0;
}

} // namespace

CallCounter::CallCounter()
    : m_log([this](const Call& call, size_t) {
          ++m_calls;
          m_log.Clear(); // a long ring's calls would fill the memory
          return PassUnflushed(call);
      }) {}

size_t CallCounter::Take() {
    const size_t calls = m_calls;
    m_calls = 0;
    return calls;
}

Bounds::Bounds(const PartHead_t& head, uint64_t deviceSize)
    : m_blockSize(head.BlkSize), m_deviceSize(deviceSize), m_statedBlocks(head.BlkCount) {
    const auto geometry = disk_access::BlockGeometry::Of(head.BlkSize, head.FmtVersion);
    m_blocks = disk_access::CredibleBlocks(head.BlkCount, geometry, deviceSize);
    m_halvings = Halvings(m_blocks);
    m_heads = std::min(m_blockSize, deviceSize) / sizeof(FrameHead_t) + 2;
    m_indexArea = geometry.HoldsBlock() ? geometry.IndexAreaSize() : 0;
}

Cost Bounds::Searching(uint64_t calls) const {
    return {calls, std::max({kObject, m_blocks, m_indexArea})};
}

uint64_t Bounds::Indexed() const {
    return std::max({kObject, m_blocks / 8 + 1, m_indexArea});
}

uint64_t Bounds::Payload() const {
    return std::max(Indexed(), m_blockSize);
}

uint64_t Bounds::Rebuilt() const {
    return std::max(Indexed(), m_heads * sizeof(EventIndexItem_t));
}

Cost Bounds::Dump(int level) const {
    // Opened twice, asked for its size, the head; then two tables, or up to six structures a block.
    const uint64_t structures = level < 0    ? 0
                                : level == 0 ? 2
                                : level == 1 ? 0
                                             : (level == 2 ? 3 : 6) * m_blocks;
    const uint64_t table = std::min(std::max<uint64_t>(m_statedBlocks, 1), m_deviceSize);
    return {9 + 2 * structures, std::max(level == 0 ? table : kObject, m_indexArea)};
}

void Operations::Bounded(const char* operation, const Cost& most, const std::function<void()>& action) {
    m_counter.Take();
    size_t largest = 0;
    {
        const AllocationFaults watch;
        action();
        largest = watch.Largest();
    }
    EXPECT_LE(m_counter.Take(), most.calls) << operation;
    EXPECT_LE(largest, most.bytes) << operation;
}

void Operations::Search() {
    CSearchDisk disk;
    SearchParam_t everything = {0, 0, kEndOfTime, kAll};
    SearchParam_t channel = {0, 1700000000, 1800000000, 31};
    SearchParam_t alarms = {0xFFFFFFFFFFFFFFFF, 0, kEndOfTime, kAll};
    RecordList records;
    RecordList others;
    EventList events;
    UnitList units;
    DayList days;
    DiskSpaceInfo_t space = {};
    Bounded("Init", m_bounds.Open(), [&] { disk.Init(&m_access); });
    Bounded("SearchMedia", m_bounds.SearchMedia(),
            [&] { ExpectCounted(records, [&] { return disk.SearchMedia(&everything, &records); }); });
    m_found = Elements(records);
    Bounded("SearchMedia of a channel", m_bounds.SearchMedia(),
            [&] { ExpectCounted(others, [&] { return disk.SearchMedia(&channel, &others); }); });
    Bounded("SearchEvent", m_bounds.SearchEvent(),
            [&] { ExpectCounted(events, [&] { return disk.SearchEvent(&alarms, &events); }); });
    const auto eventCount = static_cast<uint64_t>(events.m_nCount);
    Bounded("SearchMedia around alarms", m_bounds.SearchAlarms(eventCount, m_found.size()),
            [&] { ExpectCounted(others, [&] { return disk.SearchMedia(&alarms, &others); }); });
    Bounded("MixSearch", m_bounds.MixSearch(eventCount, m_found.size()),
            [&] { ExpectCounted(others, [&] { return disk.MixSearch(&everything, &others); }); });
    Bounded("GetUnitInfo", m_bounds.UnitList(),
            [&] { ExpectCounted(units, [&] { return disk.GetUnitInfo(&units); }); });
    Bounded("GetInvalidUnit", m_bounds.InvalidUnits(),
            [&] { ExpectCounted(units, [&] { return disk.GetInvalidUnit(&units); }); });
    Bounded("GetDateInfo", m_bounds.Days(),
            [&] { ExpectCounted(days, [&] { return disk.GetDateInfo(&days); }); });
    Bounded("GetSpaceInfo", m_bounds.Space(), [&] { disk.GetSpaceInfo(&space); });
    Bounded("GetLastRecBlockId", m_bounds.FindNewest(), [&] { disk.GetLastRecBlockId(); });
    for (const uint32_t unit : {0u, 3u, 0xFFFFu}) {
        Bounded("SearchUnitMedia", m_bounds.UnitMedia(),
                [&] { ExpectCounted(others, [&] { return disk.SearchUnitMedia(unit, &others, &events); }); });
        Bounded("GetBlockRecMap", m_bounds.BlockLook(), [&] { disk.GetBlockRecMap(unit, 0); });
    }
    for (const RecordItem_t& record : m_found) {
        EXPECT_LT(record.chn, 32u);
        EXPECT_TRUE(record.flag == 1 || record.startTime + 1 < record.endTime) << record.recId;
    }
    const std::vector<unsigned int> listed = Elements(days);
    EXPECT_EQ(std::set<unsigned int>(listed.begin(), listed.end()).size(), listed.size());
    for (const unsigned int day : listed) {
        EXPECT_EQ(day % 86400, 1u);
    }
    unsigned char password[] = "guess";
    disk.CheckEncryptInfo(password);
    disk.Quit();
}

void Operations::SearchBlocks() {
    dev_op_st* const dev = dev_open(&m_access);
    {
        CSearchBlock blocks(dev, m_head.BlkSize, BLOCK_BASE_OFFSET, m_head.FmtVersion);
        RecordList records;
        for (const uint32_t block : {0u, 3u}) {
            Bounded("ReadBlockIndexList", m_bounds.IndexList(), [&] { blocks.ReadBlockIndexList(block, 7); });
            Bounded("RebuildRecSegInfo", m_bounds.Rebuild(), [&] { blocks.RebuildRecSegInfo(block, 7, 2); });
            blocks.PrintIndex();
            blocks.GetSigleChnMediaList(block, 0, kEndOfTime, 0, 0, 0, 1, &records, nullptr);
        }
    }
    dev_close(dev);
}

void Operations::PlayRecord(CReadDisk& disk, RecordItem_t record, int chnType) {
    EncodeParam_t parameters = {};
    Bounded("GetInfo", m_bounds.RecordInfo(), [&] { disk.GetInfo(&parameters, &record, 1); });
    void* reader = nullptr;
    Bounded("StartRead", m_bounds.StartRead(), [&] { reader = disk.StartRead(chnType, &record); });
    Buffer payload;
    FrameInfo_t info = {};
    int result = 0;
    const auto check = [&] {
        EXPECT_TRUE(result >= -1 && result <= 2) << result;
        if (result == 0) {
            EXPECT_LE(info.len, m_head.BlkSize);
            payload.Touch(info.len);
        }
        return result == 0;
    };
    const auto readFrame = [&] {
        Bounded("ReadFrame", m_bounds.ReadFrame(),
                [&] { result = disk.ReadFrame(reader, &info, payload.Place()); });
        return check();
    };
    readFrame();
    Bounded("ReadNextIFrame", m_bounds.Step(),
            [&] { result = disk.ReadNextIFrame(reader, &info, payload.Place()); });
    check();
    Bounded("ReadPrevIFrame", m_bounds.Step(),
            [&] { result = disk.ReadPrevIFrame(reader, &info, payload.Place()); });
    check();
    long time = static_cast<int32_t>(record.startTime + 2);
    Bounded("SeekTime", m_bounds.Seek(), [&] { disk.SeekTime(reader, &time); });
    readFrame();
    unsigned int position = 300;
    Bounded("SeekPos", m_bounds.Seek(), [&] { disk.SeekPos(reader, &position); });
    uint64_t frames = 0;
    // The rest of the record's block, and the part of the next one that continues it.
    while (readFrame() && frames <= 2 * m_bounds.Frames()) {
        ++frames;
    }
    EXPECT_LE(frames, 2 * m_bounds.Frames());
    Bounded("StopRead", m_bounds.StopRead(), [&] { disk.StopRead(reader); });
}

void Operations::PlayUnit(CReadDisk& disk, int unit) {
    void* reader = nullptr;
    Bounded("StartUnitRead", m_bounds.StartRead(), [&] { reader = disk.StartUnitRead(unit); });
    Buffer payload;
    FrameInfo_t info = {};
    int result = 0;
    for (uint64_t frames = 0; result == 0 && frames <= m_bounds.Frames(); ++frames) {
        EXPECT_LE(frames, m_bounds.Frames());
        Bounded("ReadUnitFrame", m_bounds.UnitFrame(),
                [&] { result = disk.ReadUnitFrame(reader, &info, payload.Place()); });
        if (result == 0) {
            payload.Touch(info.len);
        }
    }
    Bounded("StopUnitRead", m_bounds.StopRead(), [&] { disk.StopUnitRead(reader); });
}

void Operations::Play(uint32_t which) {
    CReadDisk disk;
    Bounded("Init", m_bounds.Open(), [&] { disk.Init(&m_access); });
    if (!m_found.empty()) {
        PlayRecord(disk, m_found[which % m_found.size()], 0);
        PlayRecord(disk, m_found[(which * 7 + 1) % m_found.size()], static_cast<int>(which % 2));
    }
    RecordItem_t window = {};
    window.recId = 3u << 16;
    window.endTime = kEndOfTime;
    window.flag = 2;
    PlayRecord(disk, window, 1);
    PlayUnit(disk, which % 2 == 0 ? 3 : 0);
    disk.Quit();
}

void Operations::PlayBlock(uint32_t block) {
    CReadBlock reader;
    Bounded("OpenBlock", m_bounds.RecordInfo(), [&] {
        reader.OpenBlock(block, m_head.BlkSize, &m_access, m_head.FmtVersion, 1);
        reader.CloseBlock();
    });
    CReadPart part;
    part.Init(&m_access);
    unsigned int out = 0;
    Bounded("GetPrevValidBlock", m_bounds.WalkRing(), [&] { part.GetPrevValidBlock(2, 0, block, 0, &out); });
    part.Quit();
}

void Operations::Dump() {
    for (const int level : {-1, 0, 1, 2, 3}) {
        if (level != 2 || m_head.BlkCount < kLongRing) {
            Bounded("Print", m_bounds.Dump(level),
                    [&] { CPrintDisk().Print(&m_access, level, Discard, nullptr); });
        }
    }
}

void Operations::All(uint32_t which) {
    Search();
    SearchBlocks();
    Play(which);
    PlayBlock(which % 5);
    Dump();
}

} // namespace test_support
