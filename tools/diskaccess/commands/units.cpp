#include <string>

#include "commands/commands.h"

namespace diskaccess {

namespace {

std::string StateText(const Partition& disk, uint32_t block) {
    switch (disk.StateOf(block)) {
    case BlockState::Bad:
        return "bad";
    case BlockState::Suspect:
        return "suspect";
    case BlockState::Missing:
        return "missing";
    default:
        return "invalid";
    }
}

} // namespace

Report Units(Job& job) {
    CCommList<UnitItem_t> recorded;
    CCommList<UnitItem_t> unusable;
    job.Search().GetUnitInfo(&recorded);
    job.Search().GetInvalidUnit(&unusable);

    Table units = {"units",
                   {{"block", "BLOCK"},
                    {"state", "STATE"},
                    {"start", "START"},
                    {"end", "END"},
                    {"channels", "CHANNELS"}},
                   {}};
    for (const auto* node = recorded.m_pHead; node != nullptr; node = node->pNext) {
        const UnitItem_t unit = node->data;
        const auto ends = job.Disk().EndsOf(unit.unitId);
        const bool closed = ends && ends->closed;
        units.rows.push_back({uint64_t{unit.unitId}, std::string(closed ? "closed" : "not closed"),
                              job.TrueTime(unit.recTime),
                              closed ? Value(job.TrueTime(ends->tail.EndTime)) : Value(Nothing{}),
                              ends ? Value(ChannelSet{ends->head.media_chn_bitmap}) : Value(Nothing{})});
    }
    for (const auto* node = unusable.m_pHead; node != nullptr; node = node->pNext) {
        const uint32_t block = node->data.unitId;
        units.rows.push_back(
            {uint64_t{block}, StateText(job.Disk(), block), Nothing{}, Nothing{}, Nothing{}});
    }
    Facts counts = {{"recorded_block_count", "Recorded", static_cast<uint64_t>(recorded.m_nCount)},
                    {"unusable_block_count", "Unusable", static_cast<uint64_t>(unusable.m_nCount)},
                    {"block_count", "Blocks in the ring", uint64_t{job.Disk().Head().BlkCount}}};
    return {{std::move(units), std::move(counts)}};
}

} // namespace diskaccess
