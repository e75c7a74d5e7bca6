#include <optional>
#include <set>
#include <string>

#include "cli/failure.h"
#include "cli/interruption.h"
#include "commands/commands.h"
#include "commands/evidence.h"
#include "commands/marks.h"
#include "media/picture_check.h"
#include "media/stills.h"
#include "recordings/health.h"

namespace diskaccess {

namespace {

using recordings::Finding;
using recordings::Problem;
using recordings::ProblemKind;
using recordings::Severity;

const char* const kInterrupted = "interrupted; not everything was looked at";

Table FindingTable() {
    return {"findings",
            {{"severity", "SEVERITY"},
             {"problem", "KIND"},
             {"disk_offset", "BYTE"},
             {"start", "FROM"},
             {"end", "TO"},
             {"channels", "CHANNELS"},
             {"text", "FINDING"},
             {"fields", ""},
             {"block", ""},
             {"block_after", ""},
             {"offset", ""},
             {"bytes", ""},
             {"count", ""},
             {"meaning", ""},
             {"advice", ""}},
            {}};
}

Value NumberOrNothing(const std::optional<uint32_t>& number) {
    return number ? Value(uint64_t{*number}) : Value(Nothing{});
}

/// Checks the disk, and shows each finding as it is met.
class Checker {
public:
    explicit Checker(Context& context) : m_context(context) {}

    ExitCode Run() {
        m_context.Blocks(); // a signal may end that by itself
        const Interruption interruption;
        const recordings::Watch watch = InterruptibleWatch(m_context, "checking");
        recordings::Progress last;
        media::PictureCheck pictures([&] { Ask(watch, last); });
        m_context.Answer().BeginTable(FindingTable());
        const std::optional<recordings::Checked> checked =
            Check(pictures, [&](const recordings::Progress& progress) {
                last = progress;
                return watch(progress);
            });
        m_context.Answer().EndTable();
        m_context.Answer().ShowProse({Explanations(checked.has_value())});
        ShowFacts(checked, pictures);
        const ExitCode code = m_context.FinishWith(m_losses != 0 ? kDataLost : kDone);
        if (!checked) {
            throw Failure(kInterrupted);
        }
        return code;
    }

private:
    /// @return nothing when the user ended it; what was found before is shown all the same
    std::optional<recordings::Checked> Check(media::PictureCheck& pictures, const recordings::Watch& watch) {
        recordings::CheckRequest request;
        request.full = m_context.Typed().full;
        request.payloads = m_context.Typed().decode ? &pictures : nullptr;
        try {
            return CheckHealth(
                m_context.Disk(), m_context.Blocks(), request,
                [this](const Finding& finding) { Show(finding); }, watch);
        } catch (const recordings::Error& error) {
            if (error.Kind() == recordings::ErrorKind::Cancelled) {
                return std::nullopt;
            }
            m_context.Answer().EndTable();
            throw;
        }
    }

    void ShowFacts(const std::optional<recordings::Checked>& checked, const media::PictureCheck& pictures) {
        const bool decode = m_context.Typed().decode;
        const auto known = [&checked](const char* label) { return checked ? label : ""; };
        const auto orNothing = [&checked](auto value) { return checked ? Value(value) : Value(Nothing{}); };
        const recordings::Checked sums = checked.value_or(recordings::Checked());
        m_context.Answer().ShowFacts(
            {{"finding_count", "Findings", m_losses + m_notes},
             {"loss_count", "Of these, losses", m_losses},
             {"interrupted", "", !checked},
             {"checked_block_count", known("Blocks checked"), orNothing(uint64_t{sums.blocks})},
             {"full", "Every frame read", checked && m_context.Typed().full},
             {"frame_count", known("Frames read"), orNothing(sums.frames)},
             {"payload_bytes", known("Bytes of them"), orNothing(Bytes{sums.bytes})},
             {"decoded_picture_count", decode ? "Pictures decoded" : "", pictures.Decoded()},
             {"skipped_picture_count", decode ? "Pictures left out" : "", pictures.LeftOut()}});
    }

    /// Keeps the progress shown while pictures are decoded, and ends that when the user wants it.
    static void Ask(const recordings::Watch& watch, const recordings::Progress& last) {
        if (!watch(last)) {
            throw recordings::Error(recordings::ErrorKind::Cancelled, "interrupted");
        }
    }

    void Show(const Finding& finding) {
        const Problem& problem = finding.problem;
        const bool loss = problem.severity == Severity::Loss;
        ++(loss ? m_losses : m_notes);
        m_kinds.insert(problem.kind);
        m_context.Answer().ShowRow(
            {std::string(loss ? "loss" : "note"), std::string(NameOf(problem.kind)),
             finding.place ? Value(*finding.place) : Value(Nothing{}), TimeOrNothing(finding.start),
             TimeOrNothing(finding.end), ChannelsOf(finding), TextOf(finding), finding.fields,
             NumberOrNothing(problem.block), NumberOrNothing(problem.blockAfter),
             NumberOrNothing(problem.offset), Bytes{problem.bytes}, problem.count,
             std::string(MeaningOf(problem.kind)), std::string(AdviceFor(problem.kind))});
    }

    /// "block 3: its tail is damaged; it is read all the same (end time)"
    std::string TextOf(const Finding& finding) const {
        const std::string text = Describe(finding.problem, [this](int64_t time) {
            return m_context.Zone().TextOfMicros(m_context.Clock().TrueInstant(time).micros);
        });
        return finding.fields.empty() ? text : text + " (" + finding.fields + ")";
    }

    Value TimeOrNothing(const std::optional<int64_t>& stamp) const {
        return stamp ? Value(Time{m_context.Clock().TrueInstant(*stamp).micros / recordings::kMicros})
                     : Value(Nothing{});
    }

    /// What each kind of finding means and what to do, once; of a sound disk that it is sound.
    std::string Explanations(bool whole) const {
        if (m_kinds.empty() && whole) {
            return m_context.Typed().decode ? "The disk is sound: nothing on it contradicts anything else, "
                                              "and its pictures decode.\n"
                   : m_context.Typed().full ? "The disk is sound: nothing on it contradicts anything else.\n"
                                            : "Nothing was found in the tables, heads, tails and indexes. "
                                              "--full reads every frame too.\n";
        }
        std::string text;
        for (const ProblemKind kind : m_kinds) {
            text += std::string(NameOf(kind)) + ": " + MeaningOf(kind) + "\n  " + AdviceFor(kind) + "\n";
        }
        return text;
    }

    Context& m_context;
    uint64_t m_losses = 0;
    uint64_t m_notes = 0;
    std::set<ProblemKind> m_kinds;
};

} // namespace

void CheckCheck(const Options& options) {
    if (options.decode && !media::StillsSupported()) {
        throw WrongUse("--decode: this program was built without libavcodec and libswscale");
    }
}

ExitCode Check(Context& context) {
    return ReportingErrors(kInterrupted, [&context] { return Checker(context).Run(); });
}

} // namespace diskaccess
