// The dump of a partition that may hold anything, at every level, to a print function that formats what it gets, and
// may throw; on a device that may lie about its size.

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <string_view>

#include "disk_access.h"
#include "support/findings.h"
#include "support/limits.h"
#include "support/machine.h"
#include "support/partition_input.h"
#include "support/partition_run.h"
#include "support/script.h"

namespace fuzzing {

namespace {

/// Lines of a dump; a reader of more has seen enough of a ring forged to be long.
constexpr uint32_t kMostPieces = 4000;
constexpr int kMostDumps = 6;

/// Thrown by a print function that wants no more.
struct Enough {};

/// The context of the print function.
struct Reader {
    uint32_t piecesLeft;
    bool ended = false;
};

int Show(void* ctx, const char* format, ...) __attribute__((format(printf, 2, 3)));

int Show(void* ctx, const char* format, ...) {
    auto& reader = *static_cast<Reader*>(ctx);
    if (reader.piecesLeft == 0) {
        throw Enough();
    }
    --reader.piecesLeft;
    char piece[512];
    va_list values;
    va_start(values, format);
    const int length = std::vsnprintf(piece, sizeof piece, format, values);
    va_end(values);
    Require(length >= 0 && static_cast<size_t>(length) < sizeof piece, "a piece of a dump has no bound");
    // The format's own words: the disk's texts may say anything.
    reader.ended = reader.ended || std::string_view(format).find("BODY END") != std::string_view::npos;
    return length;
}

void DumpOnce(const PartitionInput& input, Script& script) {
    Machine& machine = Machine::The();
    SizeAnswers answers;
    if (script.Below(4) == 0) {
        answers.bytes = script.Number(0xC0) << script.Below(16);
        answers.sectorSize = static_cast<int>(script.Number(2));
        answers.refused = script.Byte();
    }
    machine.SetSizeAnswers(answers);
    const int level = static_cast<int>(script.Number(5) - 1u);
    Reader reader = {std::min<uint32_t>(script.Number(0xC0) * 32u, kMostPieces)};
    PartAccess_t access = input.Access(0);
    if (script.Byte() == 0xFF) {
        std::fill(std::begin(access.PartName), std::end(access.PartName), 'n'); // not terminated
    }
    const bool shown = script.Byte() != 0xFF;
    try {
        const int result = CPrintDisk().Print(&access, level, shown ? Show : nullptr, &reader);
        Require(result == 0 || result == -1, "a dump has no known result");
        Require(shown || result == -1, "a dump without a print function succeeds");
        Require(reader.ended == (result == 0 && level >= 2), "a dump ends before its end");
    } catch (const Enough&) {
        Require(reader.piecesLeft == 0, "a dump is cut short by nobody");
    }
    Require(machine.OpenDescriptors() == 0, "a dump leaves a descriptor open");
}

} // namespace

void RunPartition(const PartitionInput& input, Machine& machine) {
    const AllocationWatch watch(input.FirstRefused(), input.Fault() == FaultKind::NoMemoryForever);
    const Limits limits(input, machine.Device(0));
    Script script(input.script);
    for (int i = 0; i == 0 || (i < kMostDumps && !script.Done()); ++i) {
        machine.LimitCalls(limits.Calls());
        DumpOnce(input, script);
    }
}

} // namespace fuzzing
