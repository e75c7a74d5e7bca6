#include "cli/duration.h"
#include "commands/commands.h"
#include "commands/named.h"

namespace diskaccess {

void CheckJourneys(const Options& options) {
    ReadDuration(options.silence, "--silence");
}

ExitCode Journeys(Context& context) {
    const std::vector<recordings::Journey> journeys = AskedJourneys(context);
    Renderer& answer = context.Answer();
    answer.BeginTable({"journeys",
                       {{"journey", "JOURNEY"},
                        {"start", "START"},
                        {"end", "END"},
                        {"length_seconds", "LENGTH"},
                        {"channels", "CHANNELS"},
                        {"record_count", ""},
                        {"size_bytes", "SIZE"},
                        {"event_count", "ALARMS"},
                        {"loss_count", "LOSSES"}},
                       {}});
    uint64_t seconds = 0;
    for (const recordings::Journey& journey : journeys) {
        const uint64_t length = journey.end - journey.start;
        seconds += length;
        answer.ShowRow({uint64_t{journey.number}, context.Clock().TrueTime(journey.start),
                        context.Clock().TrueTime(journey.end), Duration{length},
                        context.Names().Channels(journey.channels), journey.records, Bytes{journey.bytes},
                        journey.alarms, journey.losses});
    }
    answer.EndTable();
    answer.ShowFacts({{"journey_count", "Journeys", uint64_t{journeys.size()}},
                      {"length_seconds", "Length", Duration{seconds}}});
    return context.Finish();
}

} // namespace diskaccess
