// CSearchPart: where the recordings in the ring begin and end, and where in it a search begins.

#include "search_part.h"

#include <algorithm>
#include <cstdint>

#include "io/host.h"
#include "search/search_part_state.h"

using namespace disk_access;

namespace {

/// Results of GetSearchRegion(): which ends of the request are inside the recorded time span.
constexpr int kEndsBeforeOldest = -1;
constexpr int kStartsAfterNewest = 0;
constexpr int kOldestToEnd = 1;
constexpr int kStartToEnd = 2;
constexpr int kOldestToNewest = 3;
constexpr int kStartToNewest = 4;

/// The newest block found so far. Of blocks with equal sequence numbers, the first one tested is kept.
struct Newest {
    uint32_t block = 0;
    uint32_t seq = 0;

    void Consider(uint32_t candidate, const BlockHead_t& head) {
        if (head.RecSeq > seq) {
            seq = head.RecSeq;
            block = candidate;
        }
    }
};

/// Finds the highest sequence number between two valid blocks by a binary search. The numbers rise along the
/// ring, except at one place, after the newest block. The middle's number says on which side of the middle
/// that place is.
Newest FindNewest(CSearchPart& part, const Ring& ring, uint32_t lo, BlockHead_t loHead, uint32_t hi,
                  BlockHead_t hiHead) {
    Newest newest;
    BlockHead_t midHead = {};
    bool found = true;
    // If a walk finds nothing (a block could be read a moment ago, and now cannot), the range does not become
    // smaller: end the search.
    while (found && lo <= hi) {
        uint32_t mid = lo + (hi - lo) / 2;
        PrevValid(part, mid, lo, mid, midHead);
        if (mid == lo) {
            newest.Consider(lo, midHead);
            if (lo == hi) {
                break;
            }
            found = NextValid(part, ring.Next(lo), hi, lo, loHead);
            continue;
        }
        newest.Consider(mid, midHead);
        newest.Consider(lo, loHead);
        newest.Consider(hi, hiHead);
        if (midHead.RecSeq > loHead.RecSeq) {
            found = NextValid(part, ring.Next(mid), hi, lo, loHead);
        } else if (midHead.RecSeq < loHead.RecSeq) {
            found = PrevValid(part, ring.Prev(mid), lo, hi, hiHead);
        } else {
            Message(loHead.RecSeq == 0 ? "Disk Empty\n" : "Disk Record Num Conflicting\n");
            break;
        }
    }
    return newest;
}

} // namespace

void disk_access::FindOldest(CSearchPart& part, PartSearchState_t& state, BlockHead_t& head) {
    if (!state.HasBlocks()) {
        return;
    }
    const Ring ring = state.TheRing();
    NextValid(part, ring.Next(state.LastBlockNum), state.LastBlockNum, state.OldestBlockNum, head);
    if (head.RecSeq == 0) {
        NextValid(part, 0, ring.Prev(0), state.OldestBlockNum, head);
    }
}

int CSearchPart::GetLastBlock() {
    if (m_pState == nullptr || !m_pState->HasBlocks() || GetBadBlockTab() != 0) {
        return -1;
    }
    const Ring ring = m_pState->TheRing();
    const uint32_t end = ring.Prev(0);
    BlockHead_t loHead = {};
    BlockHead_t hiHead = {};
    uint32_t lo = 0;
    uint32_t hi = 0;
    if (!NextValid(*this, 0, end, lo, loHead) || !PrevValid(*this, end, 0, hi, hiHead)) {
        return -1;
    }
    const Newest newest = FindNewest(*this, ring, lo, loHead, hi, hiHead);
    m_pState->LastBlockNum = newest.block;
    Message("GetLastBlock LastBlockNum = %d, RecordNum = %d\n", static_cast<int>(newest.block),
            static_cast<int>(newest.seq));
    return static_cast<int>(newest.block);
}

int CSearchPart::GetSearchRegion(InputTime_t in, OutputTime_t* out) {
    const uint32_t s = in.startTime;
    const uint32_t e = in.endTime;
    const uint32_t o = in.oldestTime;
    const uint32_t n = in.newestTime;
    if (e <= o) {
        return kEndsBeforeOldest;
    }
    if (s <= o) {
        *out = {o, std::min(e, n)};
        return e <= n ? kOldestToEnd : kOldestToNewest;
    }
    if (e <= n) {
        *out = {s, e};
        return kStartToEnd;
    }
    *out = s <= n ? OutputTime_t{s, n} : OutputTime_t{s, e};
    return s <= n ? kStartToNewest : kStartsAfterNewest;
}

int CSearchPart::InitSearch(SearchParam_t* param, OutputTime_t* out) {
    if (m_pState == nullptr || param == nullptr || out == nullptr) {
        return -1;
    }
    GetBadBlockTab();
    GetLastBlock();
    BlockHead_t head = {};
    FindOldest(*this, *m_pState, head);
    const uint32_t oldestTime = head.RecTime;
    m_pState->searchBlock->GetBlockInfo(m_pState->LastBlockNum, &head, nullptr, nullptr, nullptr);
    const InputTime_t in = {param->startTime, param->endTime, oldestTime, head.RecTime};

    const int code = GetSearchRegion(in, out);
    Message("%s Blk(%d~%d), Ret = %d, (%d~%d)\n", "InitSearch", static_cast<int>(m_pState->OldestBlockNum),
            static_cast<int>(m_pState->LastBlockNum), code, static_cast<int>(out->startTime),
            static_cast<int>(out->endTime));
    return code;
}

int CSearchPart::GetSearchStartBlock(unsigned int time, unsigned int code) {
    if (m_pState == nullptr) {
        return -1;
    }
    const uint32_t oldest = m_pState->OldestBlockNum;
    const uint32_t last = m_pState->LastBlockNum;
    uint32_t start = oldest;
    if (code == kStartsAfterNewest) {
        start = last;
    } else if (code == kStartToEnd || code == kStartToNewest) {
        BlockHead_t head = {};
        m_pState->searchBlock->GetBlockInfo(oldest, &head, nullptr, nullptr, nullptr);
        const uint32_t seq = head.RecSeq;
        uint32_t lo = oldest;
        uint32_t hi = last;
        if (oldest > last) {
            // The ring has wrapped: the blocks from 0 to the last are newer than those from the oldest to the
            // ring's end.
            uint32_t first = 0;
            if (NextValid(*this, 0, last, first, head) && head.RecTime <= time) {
                lo = first;
            } else {
                hi = m_pState->TheRing().Prev(0);
                PrevValid(*this, hi, oldest, hi, head);
            }
        }
        start = static_cast<uint32_t>(BinSearchStartBlock(lo, hi, time, seq));
    }
    Message("%s StartSearchBlock = %d\n", "GetSearchStartBlock", static_cast<int>(start));
    return static_cast<int>(start);
}

int CSearchPart::BinSearchStartBlock(unsigned int lo, unsigned int hi, unsigned int time,
                                     unsigned int /*seq*/) {
    const uint32_t first = lo;
    // From an upper bound outside the ring a step would wrap to below the middle, and the range would never
    // become smaller.
    bool narrowing = m_pState != nullptr && hi < m_pState->RingCount;
    BlockHead_t midHead = {};
    BlockHead_t loHead = {};
    BlockHead_t hiHead = {};
    while (narrowing && lo <= hi) {
        const Ring ring = m_pState->TheRing();
        const uint32_t mid = lo + (hi - lo) / 2;
        // Only the time of the block found is used; the bounds move from the middle itself.
        uint32_t nearest = mid;
        PrevValid(*this, mid, lo, nearest, midHead);
        if (lo == hi) {
            break;
        }
        if (midHead.RecTime <= time) {
            narrowing = NextValid(*this, ring.Next(mid), hi, lo, loHead);
            if (narrowing && time < loHead.RecTime) {
                return static_cast<int>(mid);
            }
        } else if (lo == mid) {
            break;
        } else {
            narrowing = PrevValid(*this, ring.Prev(mid), lo, hi, hiHead);
            if (narrowing && hiHead.RecTime <= time) {
                return static_cast<int>(hi);
            }
        }
    }
    Message("%s: Not Get Start Block!!!!!!\n", "BinSearchStartBlock");
    return static_cast<int>(first);
}
