#include <algorithm>
#include <string>

#include "commands/commands.h"
#include "commands/marks.h"

namespace diskaccess {

namespace {

using recordings::Block;
using recordings::BlockMark;

std::string StateText(const recordings::Disk& disk, const Block& block) {
    if (block.unreadable) {
        return "unreadable";
    }
    if (block.wiped) {
        return "wiped";
    }
    if (block.number >= disk.WholeBlocks()) {
        return "cut off";
    }
    return block.closed ? "closed" : "not closed";
}

Row RecordedRow(const Context& context, const Block& block) {
    const bool known = !block.unreadable && !block.wiped;
    return {uint64_t{block.number},
            StateText(context.Disk(), block),
            MarkValue(block.mark),
            known ? Value(context.Clock().TrueTime(block.start)) : Value(Nothing{}),
            known && block.closed ? Value(context.Clock().TrueTime(block.end)) : Value(Nothing{}),
            known ? Value(block.channels) : Value(Nothing{})};
}

Row UnusedRow(uint32_t number, const char* state, BlockMark mark) {
    return {uint64_t{number}, std::string(state), MarkValue(mark), Nothing{}, Nothing{}, Nothing{}};
}

/// The number after that of the last block, whether or not the device holds it.
uint32_t EndOfRing(const recordings::Disk& disk) {
    for (const recordings::Problem& problem : disk.OpeningProblems()) {
        if (problem.kind == recordings::ProblemKind::DeviceCutOff) {
            return static_cast<uint32_t>(*problem.block + problem.count);
        }
    }
    return disk.BlockCount();
}

/// Blocks that hold no recording and cannot, or should not, take one.
std::vector<Row> UnusableRows(Context& context) {
    const recordings::Disk& disk = context.Disk();
    const std::vector<uint32_t>& headless = context.Blocks().Headless();
    std::vector<Row> rows;
    for (uint32_t number = 0; number < disk.BlockCount(); ++number) {
        const BlockMark mark = disk.MarkOf(number);
        const bool hasHead = !std::binary_search(headless.begin(), headless.end(), number);
        if (context.BlockOf(number) == nullptr && (mark != BlockMark::None || !hasHead)) {
            rows.push_back(UnusedRow(number, hasHead ? "empty" : "invalid", mark));
        }
    }
    for (uint32_t number = disk.BlockCount(); number < EndOfRing(disk); ++number) {
        rows.push_back(UnusedRow(number, "missing", BlockMark::None));
    }
    return rows;
}

} // namespace

ExitCode Units(Context& context) {
    Table units = {"units",
                   {{"block", "BLOCK"},
                    {"state", "STATE"},
                    {"mark", "MARK"},
                    {"start", "START"},
                    {"end", "END"},
                    {"channels", "CHANNELS"}},
                   {}};
    for (const Block& block : context.Blocks().All()) {
        units.rows.push_back(RecordedRow(context, block));
    }
    const std::vector<Row> unusable = UnusableRows(context);
    units.rows.insert(units.rows.end(), unusable.begin(), unusable.end());
    context.ReportBlocks();
    ShowTable(context.Answer(), units);
    context.Answer().ShowFacts(
        {{"recorded_block_count", "Recorded", uint64_t{context.Blocks().All().size()}},
         {"unusable_block_count", "Unusable", uint64_t{unusable.size()}},
         {"block_count", "Blocks in the ring", uint64_t{context.Disk().Facts().blockCount}}});
    return context.Finish();
}

} // namespace diskaccess
