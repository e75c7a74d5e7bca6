#include <fmt/format.h>

#include <algorithm>
#include <ctime>
#include <set>
#include <utility>

#include "cli/ending.h"
#include "cli/failure.h"
#include "cli/interruption.h"
#include "cli/output.h"
#include "commands/commands.h"
#include "commands/coverage.h"
#include "commands/evidence.h"
#include "commands/identity.h"
#include "commands/marks.h"
#include "commands/pictures.h"
#include "media/output_file.h"
#include "media/sheet.h"
#include "recordings/health.h"
#include "render/printable.h"
#include "render/report_page.h"
#include "render/timeline/svg.h"

namespace diskaccess {

namespace {

using recordings::Finding;
using recordings::JourneyCoverage;

// A page holds no more than this, and says how much more there is: it is read by people.
constexpr size_t kMostDrawn = 60; ///< journeys
constexpr size_t kMostRows = 500; ///< of a table

constexpr uint32_t kPictureWidth = 480; ///< pixels

Row KeyRow(const std::string& what, const media::AreaDigest& digest) {
    return {what, digest.offset, digest.size, digest.unreadable, digest.sha256};
}

class Reporter {
public:
    explicit Reporter(Context& context) : m_context(context) {}

    ExitCode Run() {
        media::CheckPlaces({m_context.Typed().output}, {m_context.Source(), m_context.Typed().force});
        m_context.ReportBlocks();
        m_coverage = CoverageOf(m_context);
        std::vector<ReportSection> sections;
        sections.push_back(Origin());
        sections.push_back(Disk());
        sections.push_back(Journeys());
        sections.push_back(Timeline());
        sections.push_back(Events());
        sections.push_back(Health());
        sections.push_back(Digests());
        const std::string page =
            ReportPage("Report on " + Printable(m_context.Typed().partition), sections, m_context.Zone());
        const std::vector<media::Exported> files = media::WriteFiles(
            {{m_context.Typed().output, page}}, {m_context.Source(), m_context.Typed().force});
        m_context.Answer().ShowFacts({{"file", "Written", Printable(files.front().path)},
                                      {"size_bytes", "Size", Bytes{files.front().size}},
                                      {"sha256", "SHA-256", files.front().sha256},
                                      {"journey_count", "Journeys", uint64_t{m_coverage.journeys.size()}},
                                      {"event_count", "Events", m_events},
                                      {"finding_count", "Findings", m_findings},
                                      {"loss_count", "Of these, losses", m_losses}});
        TellLosses(files.front().path);
        const ExitCode code = m_context.Finish();
        return code == kDone && (m_losses != 0 || m_lostPicture) ? kDataLost : code;
    }

private:
    /// The page names what is lost. Those who do not open it at once are told here.
    void TellLosses(const std::string& page) const {
        const std::string& source = m_context.Typed().partition;
        if (m_losses != 0) {
            Complain(fmt::format("{}: findings that are losses: {}; {} names them under Health", source,
                                 m_losses, page));
        }
        if (m_lostPicture) {
            Complain(fmt::format("{}: pictures of events are missing or damaged; {} names them under Events",
                                 source, page));
        }
    }

    /// Who made the page, when, with what, and of what.
    ReportSection Origin() {
        const media::Provenance origin = ProvenanceOf(m_context);
        Facts facts;
        const auto add = [&facts](const char* label, const std::string& text) {
            if (!text.empty()) {
                facts.push_back({"", label, Printable(text)});
            }
        };
        add("Case", origin.caseName.value_or(""));
        add("Made by", origin.operatorName.value_or(""));
        facts.push_back({"", "Made", Time{std::time(nullptr)}});
        add("Note", origin.note.value_or(""));
        add("With", origin.program);
        add("Source", origin.sourcePath);
        add("Device model", origin.device.model);
        add("Device serial", origin.device.serial);
        if (origin.clockCheck) {
            add("Recorder's clock", origin.clockCheck->recorderTime);
            add("True time then", origin.clockCheck->trueTime);
        }
        const int64_t skew = -m_context.Clock().TrueTime(0).seconds;
        facts.push_back({"", "Clock ahead by",
                         fmt::format("{} s{}", skew,
                                     origin.clockCheck || skew != 0 ? ", taken out of all times"
                                                                    : ": not compared with a true clock")});
        facts.push_back({"", "Zone of all times", ZoneText()});
        return {"Origin", {std::move(facts)}, {}};
    }

    std::string ZoneText() const {
        const std::string& zone = m_context.Typed().zone;
        return zone.empty()
                   ? "that of the machine it was made on: " + m_context.Zone().NameAt(std::time(nullptr))
                   : Printable(zone);
    }

    ReportSection Disk() {
        Identity identity = IdentityOf(m_context);
        ReportSection section = {"Disk", {std::move(identity.facts)}, {}};
        if (identity.channels) {
            section.parts.emplace_back(std::move(*identity.channels));
        }
        return section;
    }

    ReportSection Journeys() {
        Table table = {"journeys",
                       {{"", "Journey"},
                        {"", "Start"},
                        {"", "End"},
                        {"", "Length"},
                        {"", "Channels"},
                        {"", "Size"},
                        {"", "Alarms"},
                        {"", "Losses"}},
                       {}};
        for (const JourneyCoverage& each : m_coverage.journeys) {
            const recordings::Journey& journey = each.journey;
            if (table.rows.size() < kMostRows) {
                table.rows.push_back({uint64_t{journey.number}, m_context.Clock().TrueTime(journey.start),
                                      m_context.Clock().TrueTime(journey.end),
                                      Duration{uint64_t{journey.end} - journey.start},
                                      m_context.Names().Channels(journey.channels), Bytes{journey.bytes},
                                      journey.alarms, journey.losses});
            }
        }
        return WithTable("Journeys", std::move(table), m_coverage.journeys.size(),
                         NothingRecorded(m_context));
    }

    /// A section of a table that may have been cut.
    static ReportSection WithTable(const std::string& title, Table table, uint64_t all,
                                   const std::string& none) {
        ReportSection section = {title, {}, {}};
        if (table.rows.empty()) {
            section.parts.emplace_back(Prose{none});
            return section;
        }
        if (table.rows.size() < all) {
            section.parts.emplace_back(Prose{fmt::format("The first {} of {}.", table.rows.size(), all)});
        }
        section.parts.emplace_back(std::move(table));
        return section;
    }

    ReportSection Timeline() {
        ReportSection section = {"Timeline", {}, {}, true};
        timeline::Labels labels = LabelsOf(m_context);
        labels.title.clear();
        if (!m_coverage.journeys.empty()) {
            section.parts.emplace_back(Prose{timeline::kLegend});
        }
        for (const JourneyCoverage& journey : m_coverage.journeys) {
            if (section.pictures.size() < kMostDrawn) {
                recordings::Coverage one;
                one.journeys.push_back(journey);
                section.pictures.push_back({"image/svg+xml", timeline::Svg(one, labels), "", ""});
            }
        }
        if (section.pictures.size() < m_coverage.journeys.size()) {
            section.parts.emplace_back(Prose{fmt::format(
                "The first {} of {} journeys.", section.pictures.size(), m_coverage.journeys.size())});
        }
        return section;
    }

    ReportSection Events() {
        Table table = {
            "events", {{"", "Time"}, {"", "Type"}, {"", "Channel"}, {"", "Block"}, {"", "Entry"}}, {}};
        std::vector<ReportPicture> pictures;
        // Also those that lie in no journey: the recordings around them may be locked, or gone.
        std::vector<recordings::Event> events =
            FindEvents(m_context.Disk(), m_context.Blocks(), m_context.Asked().range, recordings::kAllEvents,
                       m_context.Problems(), m_context.Watch("looking for events"));
        m_events = events.size();
        for (recordings::Event& event : events) {
            event.channel = ChannelOf(m_context.Disk(), event);
            if (table.rows.size() < kMostRows) {
                table.rows.push_back(
                    {m_context.Clock().TrueTime(event.time), m_context.Names().EventTypes(event.type),
                     event.channel ? m_context.Names().Channel(*event.channel) : Value(Nothing{}),
                     uint64_t{event.block}, uint64_t{event.entry}});
            }
            if (pictures.size() < m_context.Typed().pictures && media::StillsSupported()) {
                pictures.push_back(PictureOf(event));
            }
        }
        ReportSection section = WithTable("Events", std::move(table), m_events, "No events.");
        if (!pictures.empty() && pictures.size() < m_events) {
            section.parts.emplace_back(Prose{fmt::format("Pictures of the first {}:", pictures.size())});
        }
        section.pictures = std::move(pictures);
        return section;
    }

    /// What the event's channel showed; where that is not known, the first one that shows something.
    ReportPicture PictureOf(const recordings::Event& event) {
        const recordings::BlockList& blocks = m_context.Blocks();
        const Interruption interruption;
        media::StillQuery query = {event.micros, m_context.Asked().channels};
        if (event.channel) {
            query.channels = {1u << *event.channel};
        }
        const std::vector<media::Still> stills =
            TakeStills(m_context.Disk(), blocks, query, m_context.Problems(),
                       InterruptibleWatch(m_context, "taking pictures"));
        const auto found = std::find_if(stills.begin(), stills.end(), HasPicture);
        const std::string what = fmt::format("{}: {}", TextOf(event.micros), TypesOf(event));
        for (const media::Still& still : stills) {
            m_lostPicture = m_lostPicture || still.state == media::StillState::NotDecodable ||
                            still.state == media::StillState::Damaged;
        }
        if (found == stills.end()) {
            return {"", "", what, WhyNoPicture(stills)};
        }
        m_used.insert(found->block);
        const std::vector<uint8_t> bytes =
            EncodePicture(Shrink(found->picture, kPictureWidth), media::PictureFormat::Jpeg);
        return {"image/jpeg",
                {bytes.begin(), bytes.end()},
                fmt::format("{}\nchannel {}, {}, block {}{}", what,
                            m_context.Names().ChannelText(found->channel), TextOf(found->time), found->block,
                            found->state == media::StillState::Damaged ? ", damaged" : ""),
                ""};
    }

    std::string WhyNoPicture(const std::vector<media::Still>& stills) const {
        if (!stills.empty()) {
            return NameOf(stills.front().state);
        }
        return m_context.Disk().Hidden().Empty() ? NameOf(media::StillState::NotRecorded)
                                                 : "not recorded, or locked";
    }

    std::string TypesOf(const recordings::Event& event) const {
        return m_context.Names().EventText(event.type);
    }

    std::string TextOf(int64_t micros) const {
        return m_context.Zone().TextOfMicros(m_context.Clock().TrueInstant(micros).micros);
    }

    ReportSection Health() {
        Table table = {"findings",
                       {{"", "Severity"},
                        {"", "Kind"},
                        {"", "Byte"},
                        {"", "From"},
                        {"", "To"},
                        {"", "Channels"},
                        {"", "Finding"}},
                       {}};
        std::set<recordings::ProblemKind> kinds;
        CheckHealth(
            m_context.Disk(), m_context.Blocks(), {},
            [&](const Finding& finding) {
                const bool loss = finding.problem.severity == recordings::Severity::Loss;
                ++m_findings;
                m_losses += loss ? 1 : 0;
                kinds.insert(finding.problem.kind);
                if (table.rows.size() < kMostRows) {
                    table.rows.push_back(RowOf(finding));
                }
            },
            m_context.Watch("checking"));
        ReportSection section = WithTable("Health", std::move(table), m_findings,
                                          "Nothing was found in the tables, heads, tails and indexes.");
        std::string text;
        for (const recordings::ProblemKind kind : kinds) {
            text += fmt::format("{}: {} {}\n", NameOf(kind), MeaningOf(kind), AdviceFor(kind));
        }
        if (!text.empty()) {
            section.parts.emplace_back(Prose{text});
        }
        section.parts.emplace_back(Prose{"Not every frame was read; check --full does that."});
        return section;
    }

    Row RowOf(const Finding& finding) const {
        const auto time = [this](const std::optional<int64_t>& stamp) {
            return stamp ? Value(Time{m_context.Clock().TrueInstant(*stamp).micros / recordings::kMicros})
                         : Value(Nothing{});
        };
        const std::string text = Describe(finding.problem, [this](int64_t micros) { return TextOf(micros); });
        return {std::string(finding.problem.severity == recordings::Severity::Loss ? "loss" : "note"),
                std::string(NameOf(finding.problem.kind)),
                finding.place ? Value(*finding.place) : Value(Nothing{}),
                time(finding.start),
                time(finding.end),
                ChannelsOf(finding),
                finding.fields.empty() ? text : text + " (" + finding.fields + ")"};
    }

    /// The digests by which others can tell that they hold the same disk.
    ReportSection Digests() {
        const recordings::Disk& disk = m_context.Disk();
        const Interruption interruption;
        const recordings::Watch watch = InterruptibleWatch(m_context, "hashing");
        Table table = {
            "digests", {{"", "What"}, {"", "Byte"}, {"", "Bytes"}, {"", "Unreadable"}, {"", "SHA-256"}}, {}};
        table.rows.push_back(KeyRow(
            "partition head", media::HashArea(disk.Bytes(), 0, recordings::kPartitionHeadBytes, watch)));
        for (const uint32_t block : m_used) {
            table.rows.push_back(
                KeyRow(fmt::format("block {}", block),
                       media::HashArea(disk.Bytes(), disk.StartOf(block), disk.Facts().blockSize, watch)));
        }
        return {"Hashes",
                {Prose{"Of the partition head, and of the blocks that the pictures are from. Bytes that "
                       "cannot be read count as zeros."},
                 std::move(table)},
                {}};
    }

    Context& m_context;
    recordings::Coverage m_coverage;
    std::set<uint32_t> m_used; ///< blocks that pictures are from
    uint64_t m_events = 0;
    uint64_t m_findings = 0;
    uint64_t m_losses = 0;
    bool m_lostPicture = false;
};

} // namespace

void CheckReport(const Options& options) {
    CheckJourneys(options);
    CheckOutputName(options);
    if (EndsWith(Lowered(options.output), ".pdf")) {
        throw WrongUse("--output: '" + options.output +
                       "' would not be a PDF file; name a FILE.html, and print it to PDF with a browser");
    }
}

ExitCode MakeReport(Context& context) {
    return ReportingErrors(kNothingKept, [&context] { return Reporter(context).Run(); });
}

} // namespace diskaccess
