#include "commands/export_split.h"

#include <algorithm>

#include "commands/named.h"

namespace diskaccess {

namespace {

using media::ExportRequest;
using recordings::Journey;

std::vector<Journey> JourneysOf(Context& context, const ExportRequest& whole) {
    std::vector<Journey> journeys = AskedJourneys(context);
    const auto isOutside = [&whole](const Journey& journey) {
        return !whole.range.Meets(journey.start, journey.end);
    };
    journeys.erase(std::remove_if(journeys.begin(), journeys.end(), isOutside), journeys.end());
    return journeys;
}

std::string NameWith(const ExportRequest& whole, const std::string& suffix) {
    return whole.container == media::Container::Raw ? whole.name + suffix
                                                    : media::SuffixedName(whole.name, suffix);
}

ExportRequest OfJourney(const ExportRequest& whole, const Journey& journey) {
    ExportRequest request = whole;
    request.range = {std::max(whole.range.first, journey.start), std::min(whole.range.last, journey.end)};
    request.fromGiven = true;
    request.toGiven = true;
    request.name = NameWith(whole, "-j" + std::to_string(journey.number));
    return request;
}

ExportRequest OfChannel(const ExportRequest& whole, uint32_t channel) {
    ExportRequest request = whole;
    request.channels = {1u << channel};
    request.name = NameWith(whole, "-ch" + std::to_string(channel));
    return request;
}

} // namespace

std::vector<ExportRequest> Split(Context& context, const ExportRequest& whole, const std::string& kind) {
    const std::vector<Journey> journeys = JourneysOf(context, whole);
    std::vector<ExportRequest> requests;
    recordings::ChannelSet channels;
    for (const Journey& journey : journeys) {
        channels.bits |= journey.channels.bits;
        if (kind == "journey") {
            requests.push_back(OfJourney(whole, journey));
        }
    }
    channels = channels.And(whole.channels).Without(context.Disk().Hidden());
    for (uint32_t channel = 0; kind == "channel" && channel < recordings::kChannels; ++channel) {
        if (channels.Has(channel)) {
            requests.push_back(OfChannel(whole, channel));
        }
    }
    return requests.empty() ? std::vector<ExportRequest>{whole} : requests;
}

} // namespace diskaccess
