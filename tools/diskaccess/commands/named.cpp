#include "commands/named.h"

#include <algorithm>
#include <regex>

#include "cli/duration.h"
#include "cli/failure.h"
#include "render/amounts.h"

namespace diskaccess {

namespace {

using recordings::Block;
using recordings::ChannelSet;
using recordings::Event;
using recordings::Journey;
using recordings::Record;

uint32_t NumberIn(const std::ssub_match& part) {
    return part.matched ? static_cast<uint32_t>(std::stoul(part)) : 0;
}

/// The events that may be those of a block: they lie between its neighbours, unless the clock was set meanwhile.
recordings::TimeRange AboutBlock(const Block& block) {
    return {std::min(block.start, block.previousEnd), std::max(block.end, block.nextStart)};
}

std::optional<Event> FindEvent(Context& context, const recordings::TimeRange& range, const EventName& name) {
    const std::vector<Event> events =
        FindEvents(context.Disk(), context.Blocks(), range, recordings::kAllEvents, context.Problems(),
                   context.Watch("looking for the event"));
    const auto found = std::find_if(events.begin(), events.end(), [&](const Event& event) {
        return event.block == name.block && event.entry == name.entry;
    });
    return found == events.end() ? std::nullopt : std::optional(*found);
}

std::vector<Journey> JourneysOf(Context& context, ChannelSet channels,
                                const recordings::ProblemSink& problems) {
    recordings::JourneyQuery query;
    query.channels = channels;
    query.silence = ReadDuration(context.Typed().silence, "--silence");
    return FindJourneys(context.Disk(), context.Blocks(), query, problems,
                        context.Watch("looking for journeys"));
}

/// Whether what is missing may be a part of a journey, or decide where it begins and ends. Other journeys are not asked for.
bool MayConcern(const recordings::Problem& problem, const Journey& journey, int64_t silence) {
    const int64_t first = (int64_t{journey.start} - silence) * recordings::kMicros;
    const int64_t last = (int64_t{journey.end} + silence + 1) * recordings::kMicros;
    return problem.before.value_or(first) <= last && problem.after.value_or(last) >= first;
}

/// "channel 0", "channels 0,2-3"
std::string ChannelsText(ChannelSet channels) {
    const bool several = (channels.bits & (channels.bits - 1)) != 0;
    return (several ? "channels " : "channel ") + ChannelSetText(channels);
}

} // namespace

RecordName ReadRecordName(const std::string& text) {
    static const std::regex pattern("([0-9]{1,5})/([0-9]{1,2})(/([0-9]{1,9}))?");
    std::smatch parts;
    if (!std::regex_match(text, parts, pattern)) {
        throw WrongUse("--record: '" + text +
                       "' is not a record; give BLOCK/CHANNEL/SEGMENT as list shows them, like 3/0/0");
    }
    return {NumberIn(parts[1]), NumberIn(parts[2]), NumberIn(parts[4])};
}

EventName ReadEventName(const std::string& text) {
    static const std::regex pattern("([0-9]{1,5})/([0-9]{1,9})");
    std::smatch parts;
    if (!std::regex_match(text, parts, pattern)) {
        throw WrongUse("--event: '" + text +
                       "' is not an event; give BLOCK/ENTRY as events shows them, like 3/0");
    }
    return {NumberIn(parts[1]), NumberIn(parts[2])};
}

std::optional<Record> FindRecord(Context& context, const Block& block, const RecordName& name) {
    for (const Record& record : RecordsOf(context.Disk(), block, context.Problems())) {
        if (record.channel == name.channel && record.segment == name.segment) {
            return record;
        }
    }
    return std::nullopt;
}

Record NamedRecord(Context& context) {
    const std::string& text = context.Typed().record;
    const RecordName name = ReadRecordName(text);
    const Block* const block = context.BlockOf(name.block);
    const bool readable = block != nullptr && !block->unreadable && !block->wiped;
    const auto record = readable ? FindRecord(context, *block, name) : std::nullopt;
    if (!record) {
        throw Failure(context.Typed().partition + ": holds no record " + text +
                      "; list shows those there are");
    }
    return *record;
}

Event NamedEvent(Context& context) {
    const std::string& text = context.Typed().event;
    const EventName name = ReadEventName(text);
    const Block* const block = context.BlockOf(name.block);
    auto event = block == nullptr ? std::nullopt : FindEvent(context, AboutBlock(*block), name);
    if (block != nullptr && !event) {
        event = FindEvent(context, {}, name);
    }
    if (!event) {
        throw Failure(context.Typed().partition + ": holds no event " + text +
                      "; events shows those there are");
    }
    return *event;
}

std::vector<Journey> AskedJourneys(Context& context) {
    return JourneysOf(context, context.Asked().channels, context.Problems());
}

Journey NamedJourney(Context& context) {
    const std::string name = "journey " + std::to_string(context.Typed().journey.value_or(0));
    std::vector<recordings::Problem> met;
    const std::vector<Journey> journeys = JourneysOf(
        context, ChannelSet::All(), [&met](const recordings::Problem& problem) { met.push_back(problem); });
    const auto found = std::find_if(journeys.begin(), journeys.end(), [&context](const Journey& journey) {
        return journey.number == context.Typed().journey;
    });
    const int64_t silence = ReadDuration(context.Typed().silence, "--silence");
    for (const recordings::Problem& problem : met) {
        if (found == journeys.end() || MayConcern(problem, *found, silence)) {
            context.Problems()(problem);
        }
    }
    if (found == journeys.end()) {
        throw Failure(context.Typed().partition + ": holds no " + name + "; journeys shows those there are");
    }
    // What locked channels hold is not known.
    const ChannelSet shown = context.Asked().channels.Without(context.Disk().Hidden());
    if (!shown.Empty() && shown.And(found->channels).Empty()) {
        throw Failure(context.Typed().partition + ": " + name + " holds nothing of " + ChannelsText(shown) +
                      "; see journeys");
    }
    return *found;
}

} // namespace diskaccess
