#include "commands/commands.h"
#include "commands/marks.h"
#include "recordings/records.h"

namespace diskaccess {

namespace {

Row EventRow(Context& context, const recordings::Event& event) {
    const recordings::Block* const block = context.BlockOf(event.block);
    const recordings::BlockMark mark = block == nullptr ? recordings::BlockMark::None : block->mark;
    const std::optional<uint32_t> channel = ChannelOf(context.Disk(), event);
    return {context.Clock().TrueTime(event.time),
            context.Names().EventTypes(event.type),
            channel ? context.Names().Channel(*channel) : Value(Nothing{}),
            uint64_t{event.block},
            uint64_t{event.entry},
            event.indexed,
            MarkValue(mark),
            NoteText(event.indexed, mark)};
}

} // namespace

ExitCode Events(Context& context) {
    const Query& query = context.Asked();
    const std::vector<recordings::Event> events = FindEvents(
        context.Disk(), context.Blocks(), query.range, query.alarms.value_or(recordings::kAllEvents),
        context.Problems(), context.Watch("looking for events"));
    Renderer& answer = context.Answer();
    answer.BeginTable({"events",
                       {{"time", "TIME"},
                        {"event_types", "TYPE"},
                        {"channel", "CHANNEL"},
                        {"block", "BLOCK"},
                        {"entry", "ENTRY"},
                        {"closed", ""},
                        {"mark", ""},
                        {"", "NOTE"}},
                       {}});
    for (const recordings::Event& event : events) {
        answer.ShowRow(EventRow(context, event));
    }
    answer.EndTable();
    answer.ShowFacts({{"event_count", "Events", uint64_t{events.size()}}});
    return context.Finish();
}

} // namespace diskaccess
