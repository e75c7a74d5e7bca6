#include "render/timeline/html.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "render/html_text.h"
#include "render/timeline/page.h"

namespace diskaccess::timeline {

namespace {

using Json = nlohmann::ordered_json;
using recordings::JourneyCoverage;

/// JSON that can stand in an element of a page: nothing in it begins a tag, or ends the element.
std::string Embedded(const Json& json) {
    std::string embedded;
    for (const char c : json.dump(-1, ' ', true, Json::error_handler_t::replace)) {
        if (c == '<' || c == '>' || c == '&') {
            embedded += fmt::format("\\u{:04x}", static_cast<unsigned int>(c));
        } else {
            embedded += c;
        }
    }
    return embedded;
}

Json ChannelsOf(const JourneyCoverage& journey, const Labels& labels) {
    Json channels = Json::array();
    for (const recordings::ChannelCoverage& channel : journey.channels) {
        Json spans = Json::array();
        for (const recordings::Span& span : channel.recorded) {
            spans.push_back(span.start);
            spans.push_back(span.end);
        }
        channels.push_back(
            {{"number", channel.channel}, {"name", labels.channel(channel.channel)}, {"spans", spans}});
    }
    return channels;
}

Json JourneyOf(const JourneyCoverage& each, const Labels& labels) {
    Json journey = {{"number", each.journey.number},
                    {"start", each.journey.start},
                    {"end", each.journey.end},
                    {"shift", labels.shift(each.journey.start)},
                    {"text", JourneyText(labels, each.journey)},
                    {"channels", ChannelsOf(each, labels)},
                    {"alarms", Json::array()},
                    {"events", Json::array()},
                    {"damage", Json::array()}};
    for (const recordings::AlarmSpan& alarm : each.alarms) {
        journey["alarms"].push_back({alarm.time.start, alarm.time.end, labels.eventTypes(alarm.types)});
    }
    for (const recordings::Event& event : each.events) {
        journey["events"].push_back(
            {{"time", event.time},
             {"text", labels.eventTypes(event.type)},
             {"at", labels.time(event.time)},
             {"channel", event.channel ? Json(labels.channel(*event.channel)) : Json("")}});
    }
    for (const recordings::Damage& damage : each.damage) {
        journey["damage"].push_back({{"start", damage.time.start},
                                     {"end", damage.time.end},
                                     {"text", labels.problem(damage.problem)},
                                     {"loss", damage.severity == recordings::Severity::Loss}});
    }
    return journey;
}

} // namespace

std::string Html(const recordings::Coverage& coverage, const Labels& labels) {
    Json data = {{"title", labels.title}, {"journeys", Json::array()}};
    for (const JourneyCoverage& journey : coverage.journeys) {
        data["journeys"].push_back(JourneyOf(journey, labels));
    }
    const std::string script = kPageScript;
    const std::string style = kPageStyle;
    return fmt::format(
        "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
        "<meta http-equiv=\"Content-Security-Policy\" content=\"default-src 'none'; script-src '{}'; "
        "style-src '{}'; "
        "base-uri 'none'; form-action 'none'\">\n"
        "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n"
        "<meta name=\"color-scheme\" content=\"light "
        "dark\">\n<title>{}</title>\n<style>{}</style>\n</head>\n<body>\n"
        "<header><h1 id=\"title\"></h1><p id=\"help\"></p><p class=\"legend\">{}</p></header>\n<main "
        "id=\"main\"></main>\n"
        "<div id=\"tip\" role=\"status\" aria-live=\"polite\" hidden></div>\n"
        "<script type=\"application/json\" id=\"data\">{}</script>\n<script>{}</script>\n</body>\n</html>\n",
        PolicyHash(script), PolicyHash(style), HtmlText(labels.title), style, HtmlText(kLegend),
        Embedded(data), script);
}

} // namespace diskaccess::timeline
