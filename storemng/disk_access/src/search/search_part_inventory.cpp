// CSearchPart: lists of units, the days that have recordings, and the space in use.

#include "search_part.h"

#include <algorithm>
#include <bitset>
#include <cstdint>
#include <ctime>

#include "format/channels.h"
#include "format/list_elements.h"
#include "format/times.h"
#include "io/device.h"
#include "io/host.h"
#include "search/search_part_state.h"

using namespace disk_access;

namespace {

/// Whether the recorder closed a block, so that its tail has the times of its media. Of any other block only
/// the start is known.
bool Closed(const BlockHead_t& head, const BlockTail_t& tail) {
    return head.RecSeq == tail.RecSeq;
}

/// The time span of the first or last recorded block. It begins when the block was opened.
UnitTimeItem_t SpanOfEnd(CSearchBlock& blocks, uint32_t unit) {
    BlockHead_t head = {};
    BlockTail_t tail = {};
    blocks.GetBlockInfo(unit, &head, &tail, nullptr, nullptr);
    return {unit, head.RecTime, Closed(head, tail) ? tail.EndTime : head.RecTime};
}

/// The time span of a recorded block between these two: the span of its media.
UnitTimeItem_t SpanInside(CSearchBlock& blocks, uint32_t unit, const BlockHead_t& head) {
    BlockTail_t tail = {};
    blocks.GetBlockInfo(unit, nullptr, &tail, nullptr, nullptr);
    return Closed(head, tail) ? UnitTimeItem_t{unit, tail.StartTime, tail.EndTime}
                              : UnitTimeItem_t{unit, head.RecTime, head.RecTime};
}

/// The entry of a day in a list of days: its start, plus one second.
constexpr uint32_t EntryOf(uint32_t day) {
    return day * kSecondsPerDay + 1;
}

/// A list of days, and a set of the days in it. The set is needed because a forged disk may have tens of
/// thousands of days, and each block asks whether its days are in the list.
class DayList {
public:
    explicit DayList(CCommList<unsigned int>& list) : m_list(list) {
        for (const unsigned int entry : ListElements(list)) {
            if (entry == EntryOf(DayOf(entry))) { // a caller's list may contain any number
                m_held.set(DayOf(entry));
            }
        }
    }

    /// Adds the day of a block's start, and the day of its end if that is another day.
    void Add(const UnitTimeItem_t& unit) {
        AddDay(unit.startTime);
        if (DayOf(unit.endTime) != DayOf(unit.startTime)) {
            AddDay(unit.endTime);
        }
    }

private:
    void AddDay(uint32_t time) {
        const uint32_t day = DayOf(time);
        if (time != 0 && !m_held.test(day)) {
            m_list.AddTail(EntryOf(day));
            m_held.set(day);
        }
    }

    CCommList<unsigned int>& m_list;
    std::bitset<DayOf(UINT32_MAX) + 1> m_held;
};

/// Collects the days of parts of the ring by halving them.
class DayCollector {
public:
    DayCollector(CSearchPart& part, PartSearchState_t& state, CCommList<unsigned int>& list)
        : m_part(part), m_state(state), m_days(list) {}

    /// @param a, b blocks of the ring, a before b
    void Collect(const UnitTimeItem_t& a, const UnitTimeItem_t& b) {
        const Ring ring = m_state.TheRing();
        if (a.unitId == b.unitId) {
            m_days.Add(a);
            return;
        }
        if (b.unitId == ring.Next(a.unitId) || DayOf(b.startTime) == DayOf(a.endTime)) {
            m_days.Add(a);
            m_days.Add(b);
            return;
        }
        const uint32_t mid = ring.Middle(a.unitId, b.unitId);
        uint32_t unit = 0;
        BlockHead_t before = {};
        if (PrevValid(m_part, mid, a.unitId, unit, before)) {
            Collect(a, SpanInside(*m_state.searchBlock, unit, before));
        }
        BlockHead_t behind = {};
        if (NextValid(m_part, mid, b.unitId, unit, behind)) {
            Collect(SpanInside(*m_state.searchBlock, unit, behind), b);
        }
    }

private:
    CSearchPart& m_part;
    PartSearchState_t& m_state;
    DayList m_days;
};

/// A request for everything on the disk.
constexpr SearchParam_t kEverything = {0, 0, 0xFFFFFFFF, kAllChannels};

/// The local day of the month of a time, or 0 if it cannot be computed. Times are unsigned on every host,
/// also after 2038.
unsigned int LocalDayOfMonth(uint32_t time) {
    const time_t seconds = time;
    tm local = {};
    return localtime_r(&seconds, &local) == nullptr ? 0 : static_cast<unsigned int>(local.tm_mday);
}

} // namespace

int CSearchPart::AddUnitToList(unsigned int unit, BlockHead_t* head, CCommList<UnitItem_t>* list, int count) {
    list->AddTail(UnitItem_t{unit, head->RecTime});
    return count + 1;
}

int CSearchPart::GetBadUnitList(CCommList<UnitItem_t>* list) {
    if (m_pState == nullptr) {
        return -1;
    }
    const bool tables = GetBadBlockTab() == 0;
    // Without tables every block is bad; blocks that do not begin inside the device are not listed.
    const uint32_t count =
        tables ? m_pState->RingCount
               : std::min(m_pState->BlkCount, BlocksInside(m_pState->Geometry(), DeviceSize(m_pState->dev)));
    int appended = 0;
    for (uint32_t block = 0; block < count; ++block) {
        BlockHead_t head = {};
        if (!tables || IsBadBlock(block) == 0) {
            appended = AddUnitToList(block, &head, list, appended);
            continue;
        }
        m_pState->searchBlock->GetBlockInfo(block, &head, nullptr, nullptr, nullptr);
        if (head.ValidFlag != BLOCK_MAGIC) {
            appended = AddUnitToList(block, &head, list, appended);
        }
    }
    return appended;
}

int CSearchPart::SearchUnitList(unsigned int start, unsigned int /*end*/, unsigned int code,
                                CCommList<UnitItem_t>* list) {
    if (m_pState == nullptr) {
        return 0;
    }
    const auto first = static_cast<uint32_t>(GetSearchStartBlock(start, code));
    const uint32_t count = AnnounceSpan(*this, *m_pState, "SearchUnitList", first);
    int appended = 0;
    for (uint32_t i = 0; i < count; ++i) {
        const uint32_t block = m_pState->TheRing().Ahead(first, i);
        if (IsBadBlock(block) == 0) {
            continue;
        }
        BlockHead_t head = {};
        m_pState->searchBlock->GetBlockInfo(block, &head, nullptr, nullptr, nullptr);
        if (head.ValidFlag == BLOCK_MAGIC && head.RecTime != 0) {
            appended = AddUnitToList(block, &head, list, appended);
        }
    }
    return appended;
}

int CSearchPart::GetUnitList(CCommList<UnitItem_t>* list) {
    SearchParam_t request = kEverything;
    OutputTime_t region = {};
    const int code = InitSearch(&request, &region);
    if (code < 1) {
        return 0;
    }
    return SearchUnitList(request.startTime, request.endTime, static_cast<unsigned int>(code), list);
}

int CSearchPart::GetUnitRecMap(unsigned int unit, int what) {
    if (m_pState == nullptr) {
        return -1;
    }
    switch (what) {
    case 0:
        return m_pState->HasBlocks() ? m_pState->searchBlock->GetUnitRecMap(unit) : -1;
    case 1:
        return static_cast<int>(m_pState->BlkCount);
    default:
        return 0;
    }
}

int CSearchPart::AddDate2List(CCommList<unsigned int>* list, unsigned int t) {
    if (t == 0) {
        return 0;
    }
    const unsigned int day = EntryOf(DayOf(t));
    for (const unsigned int entry : ListElements(*list)) {
        if (entry == day) {
            return 1;
        }
    }
    list->AddTail(day);
    return 1;
}

int CSearchPart::AddDateToList(BlockHead_t* head, BlockTail_t* tail, CCommList<unsigned int>* list, int count,
                               unsigned int* lastDay) {
    const bool closed = Closed(*head, *tail);
    const uint32_t times[] = {closed ? tail->StartTime : head->RecTime, tail->EndTime};
    for (int i = 0; i < (closed ? 2 : 1); ++i) {
        const unsigned int day = LocalDayOfMonth(times[i]);
        if (day != 0 && day != *lastDay) {
            list->AddTail(times[i]);
            *lastDay = day;
            ++count;
        }
    }
    return count;
}

int CSearchPart::BinGetDataMap(UnitTimeItem_t* a, UnitTimeItem_t* b, CCommList<unsigned int>* list) {
    // With blocks outside the ring, the halves might not become smaller.
    if (m_pState == nullptr || !m_pState->HasBlocks() || a->unitId >= m_pState->RingCount ||
        b->unitId >= m_pState->RingCount) {
        return list->m_nCount;
    }
    DayCollector(*this, *m_pState, *list).Collect(*a, *b);
    return list->m_nCount;
}

int CSearchPart::SearchDataMap(unsigned int /*start*/, unsigned int /*end*/, unsigned int /*code*/,
                               CCommList<unsigned int>* list) {
    if (m_pState == nullptr) {
        return 0;
    }
    UnitTimeItem_t oldest = SpanOfEnd(*m_pState->searchBlock, m_pState->OldestBlockNum);
    UnitTimeItem_t newest = SpanOfEnd(*m_pState->searchBlock, m_pState->LastBlockNum);
    return BinGetDataMap(&oldest, &newest, list);
}

int CSearchPart::GetDateMap(CCommList<unsigned int>* list) {
    SearchParam_t request = kEverything;
    OutputTime_t region = {};
    const int code = InitSearch(&request, &region);
    if (code < 1) {
        return 0;
    }
    return SearchDataMap(region.startTime, region.endTime, static_cast<unsigned int>(code), list);
}

int CSearchPart::GetSpace(DiskSpaceInfo_t* info) {
    if (m_pState == nullptr || info == nullptr) {
        return -1;
    }
    GetBadBlockTab();
    GetLastBlock();
    BlockHead_t head = {};
    FindOldest(*this, *m_pState, head);
    const uint32_t oldest = m_pState->OldestBlockNum;
    const uint32_t last = m_pState->LastBlockNum;
    Message("%s OldestBlockNum = %d, LastBlockNum = %d\n", "GetSpace", static_cast<int>(oldest),
            static_cast<int>(last));

    const uint32_t count = m_pState->BlkCount;
    const uint32_t unwritten = count != 0 && oldest <= last ? count - 1 - last : 0;
    info->totalSize = uint64_t{m_pState->BlkSize} * count;
    info->freeSize = uint64_t{m_pState->BlkSize} * unwritten;
    return 0;
}
