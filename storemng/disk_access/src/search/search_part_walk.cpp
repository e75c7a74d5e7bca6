// CSearchPart: the walks over the ring that collect records and events.

#include "search_part.h"

#include <cstdint>

#include "format/channels.h"
#include "format/times.h"
#include "io/host.h"
#include "search/search_part_state.h"

using namespace disk_access;

namespace {

/// The end of a search for everything in one block.
constexpr long kEndOfUnitSearch = kLastSecond - long{kSecondsPerDay};

} // namespace

uint32_t disk_access::AnnounceSpan(CSearchPart& part, const PartSearchState_t& state, const char* operation,
                                   uint32_t start) {
    const bool tables = part.GetBadBlockTab() == 0;
    const uint32_t count = state.TheRing().Span(start, state.LastBlockNum);
    Message("%s , BlockCount = %d\n", operation, static_cast<int>(count));
    // Without tables every block would be skipped, and each would try to read the tables again.
    return tables && static_cast<int32_t>(count) > 0 ? count : 0;
}

int CSearchPart::SearchMedia(SearchParam_t* param, unsigned int skipChnMask, CCommList<RecordItem_t>* out) {
    OutputTime_t region = {};
    const int code = InitSearch(param, &region);
    if (code < 0) {
        return 0;
    }
    // The region's start, but the request's own end: the newest block contains recordings after its start
    // time.
    return SearchNormalMedia(region.startTime, param->endTime, param->chn, skipChnMask,
                             static_cast<long long>(param->alarmMask), static_cast<unsigned int>(code), out);
}

int CSearchPart::SearchEvent(SearchParam_t* param, CCommList<EventItem_t>* out) {
    OutputTime_t region = {};
    const int code = InitSearch(param, &region);
    if (code <= 0) {
        return 0;
    }
    return SearchNormalEvent(region.startTime, param->endTime, static_cast<long long>(param->alarmMask),
                             static_cast<unsigned int>(code), out);
}

int CSearchPart::SearchNormalMedia(unsigned int start, unsigned int end, unsigned int chn,
                                   unsigned int skipChnMask, long long alarmMask, unsigned int code,
                                   CCommList<RecordItem_t>* out) {
    if (m_pState == nullptr) {
        return 0;
    }
    const auto first = static_cast<uint32_t>(GetSearchStartBlock(start, code));
    const uint32_t count = AnnounceSpan(*this, *m_pState, "SearchNormalMedia", first);
    CSearchBlock& blocks = *m_pState->searchBlock;
    BlockHead_t head = {};
    BlockTail_t tail = {};
    int total = 0;
    for (uint32_t i = 0; i < count; ++i) {
        const uint32_t block = m_pState->TheRing().Ahead(first, i);
        if (IsBadBlock(block) == 0) {
            continue;
        }
        blocks.GetBlockInfo(block, &head, nullptr, nullptr, nullptr);
        if (head.ValidFlag != BLOCK_MAGIC || head.RecTime == 0) {
            continue;
        }
        const int found = blocks.GetMediaList(block, static_cast<long>(start), static_cast<long>(end), chn,
                                              skipChnMask, alarmMask, out, nullptr);
        if (found > 0) {
            total += found;
            continue;
        }
        blocks.GetBlockInfo(block, nullptr, &tail, nullptr, nullptr);
        // This block and all later ones begin after the request, or it is the block being written.
        if (end < tail.StartTime || head.RecSeq != tail.RecSeq) {
            break;
        }
    }
    return total;
}

int CSearchPart::SearchNormalEvent(unsigned int start, unsigned int end, long long alarmMask,
                                   unsigned int code, CCommList<EventItem_t>* out) {
    if (m_pState == nullptr) {
        return 0;
    }
    const auto first = static_cast<uint32_t>(GetSearchStartBlock(start, code));
    const uint32_t count = AnnounceSpan(*this, *m_pState, "SearchNormalEvent", first);
    CSearchBlock& blocks = *m_pState->searchBlock;
    BlockTail_t tail = {};
    int total = 0;
    for (uint32_t i = 0; i < count; ++i) {
        const uint32_t block = m_pState->TheRing().Ahead(first, i);
        if (IsBadBlock(block) == 0) {
            continue;
        }
        // A block without data has no events either: its head need not be read.
        const int found =
            blocks.GetEventList(block, static_cast<long>(start), static_cast<long>(end), alarmMask, out);
        if (found > 0) {
            total += found;
            continue;
        }
        blocks.GetBlockInfo(block, nullptr, &tail, nullptr, nullptr);
        if (end < tail.StartTime) {
            break;
        }
    }
    return total;
}

int CSearchPart::SearchUnitMedia(unsigned int unit, unsigned int skipChnMask, CCommList<RecordItem_t>* recs,
                                 CCommList<EventItem_t>* events) {
    if (m_pState == nullptr || !m_pState->HasBlocks()) {
        return -1;
    }
    return m_pState->searchBlock->GetMediaList(unit, 0, kEndOfUnitSearch, kAllChannels, skipChnMask, 0, recs,
                                               events);
}
