// CSearchBlock: every member on every block.

#include <memory>

#include "conformance/choices.h"
#include "conformance/sections.h"

namespace conformance {

namespace {

class SearchBlockCalls {
public:
    SearchBlockCalls(const Disk& disk, const std::string& seed) : m_disk(disk), m_random(seed) {
        PartAccess_t access = disk.access;
        m_dev = dev_open(&access);
        m_blocks =
            std::make_unique<CSearchBlock>(m_dev, disk.head.BlkSize, BLOCK_BASE_OFFSET, disk.head.FmtVersion);
    }
    ~SearchBlockCalls() {
        m_blocks.reset();
        dev_close(m_dev);
    }
    SearchBlockCalls(const SearchBlockCalls&) = delete;
    SearchBlockCalls& operator=(const SearchBlockCalls&) = delete;

    void Call(uint32_t block) {
        Note("block %u", block);
        GetBlockInfo(block);
        LoadIndex(block);
        for (int i = 0; i < 8; ++i) {
            GetLists(block);
        }
        CheckAlarms();
        Rebuild(block);
        Refresh();
        Print();
    }

private:
    void GetBlockInfo(uint32_t block) {
        auto head = Blank<BlockHead_t>();
        auto tail = Blank<BlockTail_t>();
        auto extHead = Blank<BlkExtHead_t>();
        auto tailEx = Blank<BlockTailEx_t>();
        Result(m_blocks->GetBlockInfo(block, &head, &tail, &extHead, &tailEx), "GetBlockInfo(%u)", block);
        Show(head);
        Show(tail);
        Show(extHead);
        Show(tailEx);
        auto alone = Blank<BlockTail_t>();
        Result(m_blocks->GetBlockInfo(block, nullptr, &alone, nullptr, nullptr), "GetBlockInfo(%u, tail)",
               block);
        Show(alone);
        Result(m_blocks->GetUnitRecMap(block), "GetUnitRecMap(%u)", block);
    }

    void LoadIndex(uint32_t block) {
        const uint32_t flags = m_random.Below(8);
        Result(m_blocks->ReadBlockIndexList(block, flags), "ReadBlockIndexList(%u, %u)", block, flags);
        Print();
        Result(m_blocks->ReadBlockIndexList(block, 7), "ReadBlockIndexList(%u, 7)", block);
        Print();
    }

    void Print() { Result(m_blocks->PrintIndex(), "PrintIndex"); }

    void GetLists(uint32_t block) {
        const uint32_t from = m_disk.Time(m_random);
        const uint32_t to = m_disk.Time(m_random);
        const uint32_t chn = m_random.Of(kSearchChannels);
        const uint32_t skip = m_random.Of(kSkipMasks);
        const auto mask = static_cast<long long>(m_random.Of(kAlarmMasks));
        const uint32_t offsetMode = m_random.Below(3);
        Note("from %u to %u channel %u skip %x mask %llx mode %u", from, to, chn, skip,
             static_cast<unsigned long long>(mask), offsetMode);
        Result(m_blocks->GetMediaList(block, Long(from), Long(to), chn, skip, mask, &m_records,
                                      m_random.Below(2) == 0 ? nullptr : &m_events),
               "GetMediaList");
        ShowLists();
        Result(m_blocks->GetSigleChnMediaList(block, Long(from), Long(to), chn, skip, mask, offsetMode,
                                              &m_records, &m_events),
               "GetSigleChnMediaList");
        ShowLists();
        Result(m_blocks->GetAllChnMediaList(block, Long(from), Long(to), skip, mask, offsetMode, &m_records,
                                            &m_events),
               "GetAllChnMediaList");
        ShowLists();
        Result(m_blocks->GetEventList(block, Long(from), Long(to), mask, &m_events), "GetEventList");
        ShowLists();
        Result(m_blocks->GetNoIndexMediaList(block, chn, skip, &m_records), "GetNoIndexMediaList");
        ShowLists();
    }

    void ShowLists() {
        Show(m_records);
        Show(m_events);
    }

    void CheckAlarms() {
        for (int i = 0; i < 8; ++i) {
            const uint32_t from = m_disk.Time(m_random);
            const uint32_t to = m_disk.Time(m_random);
            const auto mask = static_cast<long long>(m_random.Of(kAlarmMasks));
            Result(m_blocks->CheckAlarmContition(Long(from), Long(to), mask),
                   "CheckAlarmContition(%u, %u, %lld)", from, to, mask);
        }
    }

    void Rebuild(uint32_t block) {
        for (const uint32_t mode : {0u, 2u, 1u}) {
            const uint32_t flags = m_random.Below(8);
            Result(m_blocks->RebuildRecSegInfo(block, flags, mode), "RebuildRecSegInfo(%u, %u, %u)", block,
                   flags, mode);
        }
        Print();
        const uint32_t to = m_disk.Time(m_random);
        Result(m_blocks->GetAllChnMediaList(block, 0, Long(to), 0, -1, 1, &m_records, &m_events),
               "GetAllChnMediaList(0, %u)", to);
        ShowLists();
    }

    void Refresh() {
        for (int i = 0; i < 12; ++i) {
            FrameInfo_t frame = {};
            frame.pts = m_disk.Stamp(m_random);
            frame.type = m_random.Below(6);
            frame.chn = m_random.Of(kSearchChannels);
            frame.len = m_random.Below(3) == 0 ? m_random.Word() : m_random.Below(5000);
            EventHead_t event = {};
            event.type = m_random.TwoWords();
            event.Indexed = static_cast<uint8_t>(m_random.Below(3));
            const uint32_t pos = m_random.Word();
            Result(m_blocks->RefreshRecSegInfo(&frame, pos, &event), "RefreshRecSegInfo(%u)", pos);
            Show(frame);
        }
        Result(m_blocks->RefreshRecSegInfo(nullptr, 0, nullptr), "RefreshRecSegInfo(null)");
    }

    const Disk& m_disk;
    Random m_random;
    dev_op_st* m_dev = nullptr;
    std::unique_ptr<CSearchBlock> m_blocks;
    RecordList m_records;
    EventList m_events;
};

} // namespace

void CallSearchBlock(const Disk& disk, const std::string& seed) {
    SearchBlockCalls calls(disk, seed);
    for (const uint32_t block : disk.blocks) {
        calls.Call(block);
    }
}

} // namespace conformance
