#include "media/verify.h"
#include "cli/disk_clock.h"
#include "cli/failure.h"
#include "cli/interruption.h"
#include "cli/output.h"
#include "cli/typed_time.h"
#include "commands/commands.h"
#include "commands/evidence.h"
#include "commands/wording.h"
#include "media/error.h"
#include "media/manifest_file.h"
#include "media/sink.h"
#include "render/printable.h"

#include <memory>
#include <optional>

namespace diskaccess {

namespace {

const char* const kInterrupted = "interrupted; not everything was looked at";

std::optional<media::PublicKey> ReadPublicKey(const Options& options) {
    if (options.publicKey.empty()) {
        return std::nullopt;
    }
    try {
        return media::PublicKey(options.publicKey);
    } catch (const media::Error& error) {
        throw Failure(error.what() + std::string("; make it of the private one with openssl pkey -pubout"));
    }
}

/// Whether a zone writes a manifest's times as they stand there.
bool WritesTimesOf(const media::ManifestFile& manifest, const TimeZone& zone) {
    const auto isWritten = [&zone](const std::string& text) {
        const std::optional<int64_t> time = MicrosOfRfc3339(text);
        return time && zone.Rfc3339OfMicros(*time) == text;
    };
    return isWritten(manifest.start) && isWritten(manifest.end);
}

/// A zone that is always as far from UTC as a time says: "2026-11-20T14:30:00.000000+01:00".
std::string RuleOf(const std::string& time) {
    constexpr size_t kOffset = 6;
    if (time.size() < kOffset || time.back() == 'Z') {
        return "UTC";
    }
    std::string offset = time.substr(time.size() - kOffset);
    const std::string name = "<" + offset.substr(0, 3) + offset.substr(4) + ">";
    offset.front() = offset.front() == '-' ? '+' : '-'; // such rules count to the west
    return name + offset;
}

/// Whether a text can be a zone's name. Anybody may have written a manifest: a path is none, and no export names one.
bool CanNameZone(const std::string& text) {
    constexpr size_t kLongestName = 100;
    return !text.empty() && text.size() <= kLongestName && text.front() != '/';
}

/// The zone that a manifest names, if it is known here.
std::optional<TimeZone> NamedZone(const media::ManifestFile& manifest) {
    const std::string name = manifest.zone.value_or("");
    if (!CanNameZone(name)) {
        return std::nullopt;
    }
    try {
        return TimeZone(name);
    } catch (const UnknownZone&) {
        return std::nullopt;
    }
}

/// What came of looking at something.
struct Look {
    media::Check::Result result;
    std::string text;
};

/// Holds the zone that a manifest names against its times. The process may have any zone after it.
/// @return nothing where there is nothing to hold: a master has no times of frames
std::optional<Look> LookAtZone(const media::ManifestFile& manifest) {
    using Result = media::Check::Result;
    if (!manifest.zone || manifest.start.empty()) {
        return std::nullopt;
    }
    const std::string name = "'" + *manifest.zone + "'";
    if (!CanNameZone(*manifest.zone)) {
        return Look{Result::Bad, name + " is no zone's name"};
    }
    const std::optional<TimeZone> zone = NamedZone(manifest);
    if (!zone) {
        return Look{Result::Unchecked, name + " is no zone that is known here"};
    }
    return WritesTimesOf(manifest, *zone)
               ? Look{Result::Good, "the manifest's times are those of " + name}
               : Look{Result::Bad, "the manifest's times are not those of " + name};
}

/// The zone in which an export wrote times, which becomes that of the process; nothing when it is not known.
std::optional<TimeZone> ZoneOf(const media::ManifestFile& manifest, const Options& options) {
    if (!MicrosOfRfc3339(manifest.start)) {
        return std::nullopt;
    }
    std::optional<TimeZone> likely = manifest.zone ? NamedZone(manifest) : ReadZone(options);
    if (likely && WritesTimesOf(manifest, *likely)) {
        return likely;
    }
    const TimeZone fixed(RuleOf(manifest.start));
    return WritesTimesOf(manifest, fixed) ? std::optional(fixed) : std::nullopt;
}

/// One run of the command. Without a source there is no disk to ask.
class Verification {
public:
    explicit Verification(const Options& options)
        : m_options(options), m_zone(ReadZone(options)), m_manifest(media::ReadManifest(options.manifest)),
          m_key(ReadPublicKey(options)) {
        if (!options.partition.empty()) {
            m_context = std::make_unique<Context>(options, "verify");
        }
    }

    ExitCode Run() {
        if (m_context) {
            m_context->Blocks(); // a signal may end that by itself
        }
        const Interruption interruption;
        media::VerifyRequest request{m_manifest};
        request.key = m_key ? &*m_key : nullptr;
        request.printable = [](const std::string& text) { return Printable(text); };
        request.timeOf = MicrosOfRfc3339;
        if (m_context) {
            request.disk = &m_context->Disk();
            request.blocks =
                &m_context->Blocks(); // after that, nothing is said in the zone that was asked for
        }
        const std::optional<Look> zoneLook = LookAtZone(m_manifest);
        const std::optional<TimeZone> known = ZoneOf(m_manifest, m_options);
        const TimeZone zone = known.value_or(m_zone);
        const media::Wording wording = WordingOf(zone, DiskClock(m_manifest.skewSeconds));
        request.wording = known ? &wording : nullptr;
        BeginAnswer();
        std::optional<bool> good = HoldAgainst(request);
        if (good && zoneLook) {
            Show(zoneLook->result, "zone", m_options.manifest + ": " + zoneLook->text);
            good = *good && zoneLook->result != media::Check::Result::Bad;
        }
        m_answer->EndTable();
        m_answer->ShowFacts({{"verified", "Verified", good.value_or(false)}, {"interrupted", "", !good}});
        m_answer->End();
        m_output.Flush();
        if (!good) {
            throw Failure(kInterrupted);
        }
        return *good ? kDone : kFailed;
    }

private:
    /// @return whether nothing is bad; nothing when the user ended it: what was found before is shown all the same
    std::optional<bool> HoldAgainst(const media::VerifyRequest& request) {
        try {
            return media::Verify(
                request,
                [this](const media::Check& check) { Show(check.result, NameOf(check.subject), check.text); },
                Watch());
        } catch (const recordings::Error& error) {
            if (error.Kind() == recordings::ErrorKind::Cancelled) {
                return std::nullopt;
            }
            throw;
        }
    }

    recordings::Watch Watch() {
        if (m_context) {
            return InterruptibleWatch(*m_context, "verifying");
        }
        return [this](const recordings::Progress& progress) {
            const double total = progress.total == 0 ? 1 : static_cast<double>(progress.total);
            m_progress.Show(static_cast<double>(progress.done) / total, progress.bytes);
            return !Interruption::Asked();
        };
    }

    void BeginAnswer() {
        m_answer = MakeRenderer(m_options.format, m_zone, [this](const std::string& text) {
            m_progress.Hide();
            m_output.Write(text);
        });
        const std::string partition =
            m_options.partition.empty() ? m_manifest.partition : m_options.partition;
        m_answer->Begin("verify", Printable(partition));
        m_answer->BeginTable(
            {"checks", {{"result", "RESULT", 9}, {"subject", "SUBJECT", 9}, {"text", "WHAT"}}, {}, true});
    }

    void Show(media::Check::Result result, const std::string& subject, const std::string& text) {
        m_answer->ShowRow({std::string(NameOf(result)), subject, Printable(text)});
    }

    const Options& m_options;
    TimeZone m_zone;
    media::ManifestFile m_manifest;
    std::optional<media::PublicKey> m_key;
    Output m_output;
    Progress m_progress{"verifying"};
    std::unique_ptr<Context> m_context;
    std::unique_ptr<Renderer> m_answer;
};

} // namespace

ExitCode Verify(const Options& options) {
    media::QuietContainers();
    return ReportingErrors(kInterrupted, [&options] { return Verification(options).Run(); });
}

} // namespace diskaccess
