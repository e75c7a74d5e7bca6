#include "render/timeline/svg.h"

#include <algorithm>

#include <fmt/format.h>

#include "render/html_text.h"

namespace diskaccess::timeline {

namespace {

using recordings::JourneyCoverage;
using recordings::Span;

// In pixels.
constexpr double kWidth = 1200;
constexpr double kLabels = 140;
constexpr double kMargin = 16;
constexpr double kStrip = kWidth - kLabels - 2 * kMargin;
constexpr double kRow = 18;
constexpr double kBar = 12;
constexpr double kHead = 26;
constexpr double kAxis = 25;
constexpr double kBetween = 22;
/// The least that is visible.
constexpr double kThinnest = 0.75;
/// What one row holds is joined where it would be nearer than this: a picture holds no more than its pixels.
constexpr double kNearest = 0.5;

const char* const kStyle =
    ":root{color-scheme:light dark}"
    "text{font:12px system-ui,sans-serif;fill:#222}"
    ".t{font-size:16px;font-weight:600}.j{font-weight:600}.a{fill:#666}"
    ".bg{fill:#fff}.row{fill:#eef0f2}.rec{fill:#2f7d4f}.alarm{fill:#e8a317;fill-opacity:.45}"
    ".event{fill:#b36b00}.loss{fill:#c62828}.note{fill:#888}.tick{stroke:#ccc}"
    "@media(prefers-color-scheme:dark){text{fill:#e6e6e6}.a{fill:#9aa}.bg{fill:#15181b}"
    ".row{fill:#24292e}.rec{fill:#4caf7a}.event{fill:#ffc14d}.loss{fill:#ff6b60}"
    ".tick{stroke:#444}}";

class Picture {
public:
    Picture(const recordings::Coverage& coverage, const Labels& labels)
        : m_coverage(coverage), m_labels(labels) {}

    std::string Text() {
        m_y = kMargin;
        if (!m_labels.title.empty()) {
            m_y += kHead;
            AddText("t", kMargin, m_y - 8, m_labels.title);
        }
        for (const JourneyCoverage& journey : m_coverage.journeys) {
            AddJourney(journey);
        }
        return fmt::format(
            "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"{0:g}\" height=\"{1:g}\" viewBox=\"0 0 "
            "{0:g} {1:g}\" role=\"img\"><title>{2}</title><style>{3}</style><rect class=\"bg\" "
            "width=\"100%\" height=\"100%\"/>\n{4}</svg>\n",
            kWidth, m_y + kMargin, HtmlText(m_labels.title), kStyle, m_body);
    }

private:
    void AddText(const char* kind, double x, double y, const std::string& text) {
        m_body += fmt::format("<text class=\"{}\" x=\"{:.1f}\" y=\"{:.1f}\">{}</text>\n", kind, x, y,
                              HtmlText(text));
    }

    void AddBox(const char* kind, double x, double width, double y, double height, const std::string& title) {
        m_body += fmt::format(R"(<rect class="{}" x="{:.2f}" y="{:.1f}" width="{:.2f}" height="{:.1f}")",
                              kind, x, y, std::max(width, kThinnest), height);
        m_body += title.empty() ? "/>\n" : "><title>" + HtmlText(title) + "</title></rect>\n";
    }

    double PlaceOf(const recordings::Journey& journey, int64_t second) const {
        const auto seconds = static_cast<double>(uint64_t{journey.end} - journey.start + 1);
        const double at = static_cast<double>(second - journey.start) / seconds;
        return kMargin + kLabels + std::clamp(at, 0.0, 1.0) * kStrip;
    }

    std::string SpanText(const Span& span) const {
        return m_labels.time(span.start) + " to " + m_labels.time(span.end);
    }

    void AddJourney(const JourneyCoverage& each) {
        m_y += kBetween;
        AddText("j", kMargin, m_y, JourneyText(m_labels, each.journey));
        m_y += 8;
        AddAxis(each);
        const double top = m_y;
        for (const recordings::ChannelCoverage& channel : each.channels) {
            AddChannel(each.journey, channel);
        }
        AddAlarms(each, top);
        AddDamage(each);
    }

    void AddAxis(const JourneyCoverage& each) {
        constexpr uint64_t kMostMarks = 10;
        const auto rows = static_cast<double>(each.channels.size() + (each.damage.empty() ? 0 : 1));
        const uint32_t step = AxisStep(uint64_t{each.journey.end} - each.journey.start + 1, kMostMarks);
        m_y += kAxis;
        for (int64_t second = FirstMark(m_labels, each.journey.start, step); second <= each.journey.end;
             second += step) {
            const double x = PlaceOf(each.journey, second);
            m_body += fmt::format(
                "<line class=\"tick\" x1=\"{0:.1f}\" x2=\"{0:.1f}\" y1=\"{1:.1f}\" y2=\"{2:.1f}\"/>\n", x,
                m_y - 2, m_y + rows * kRow);
            AddText("a", x + 3, m_y - 10, AxisText(m_labels, static_cast<uint32_t>(second), step));
        }
    }

    void AddLabel(const std::string& label) { AddText("l", kMargin, m_y + kBar - 1, label); }

    void AddChannel(const recordings::Journey& journey, const recordings::ChannelCoverage& channel) {
        AddLabel(m_labels.channel(channel.channel));
        AddBox("row", kMargin + kLabels, kStrip, m_y, kBar, "");
        for (size_t i = 0; i < channel.recorded.size();) {
            Span span = channel.recorded[i];
            const double x = PlaceOf(journey, span.start);
            for (++i; i < channel.recorded.size() &&
                      PlaceOf(journey, channel.recorded[i].start) - PlaceOf(journey, int64_t{span.end} + 1) <
                          kNearest;
                 ++i) {
                span.end = channel.recorded[i].end;
            }
            AddBox("rec", x, PlaceOf(journey, int64_t{span.end} + 1) - x, m_y, kBar,
                   m_labels.channel(channel.channel) + ": " + SpanText(span));
        }
        m_y += kRow;
    }

    /// Alarms lie over the channels, with a mark at each event.
    void AddAlarms(const JourneyCoverage& each, double top) {
        for (const recordings::AlarmSpan& alarm : each.alarms) {
            const double x = PlaceOf(each.journey, alarm.time.start);
            AddBox("alarm", x, PlaceOf(each.journey, int64_t{alarm.time.end} + 1) - x, top, m_y - top - 4,
                   m_labels.eventTypes(alarm.types) + ": " + SpanText(alarm.time));
        }
        for (const recordings::Event& event : each.events) {
            const double x = PlaceOf(each.journey, event.time);
            m_body += fmt::format(
                "<path class=\"event\" d=\"M{:.1f} {:.1f}l4 -7h-8z\"><title>{}</title></path>\n", x, top,
                HtmlText(m_labels.eventTypes(event.type) + ": " + m_labels.time(event.time)));
        }
    }

    void AddDamage(const JourneyCoverage& each) {
        if (each.damage.empty()) {
            return;
        }
        AddLabel("damage");
        for (const recordings::Damage& damage : each.damage) {
            const double x = PlaceOf(each.journey, damage.time.start);
            AddBox(damage.severity == recordings::Severity::Loss ? "loss" : "note", x,
                   std::max(3.0, PlaceOf(each.journey, int64_t{damage.time.end} + 1) - x), m_y, kBar,
                   m_labels.problem(damage.problem));
        }
        m_y += kRow;
    }

    const recordings::Coverage& m_coverage;
    const Labels& m_labels;
    double m_y = 0;
    std::string m_body;
};

} // namespace

std::string Svg(const recordings::Coverage& coverage, const Labels& labels) {
    return Picture(coverage, labels).Text();
}

} // namespace diskaccess::timeline
