#include "media/verify.h"
#include "cli/interruption.h"
#include "cli/output.h"
#include "cli/typed_time.h"
#include "commands/commands.h"
#include "commands/evidence.h"
#include "media/manifest_file.h"
#include "media/sink.h"
#include "render/printable.h"

#include <memory>
#include <optional>

namespace diskaccess {

namespace {

std::optional<media::PublicKey> ReadPublicKey(const Options& options) {
    return options.publicKey.empty() ? std::nullopt : std::optional<media::PublicKey>(options.publicKey);
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
        const Interruption interruption;
        media::VerifyRequest request{m_manifest};
        request.key = m_key ? &*m_key : nullptr;
        request.printable = [](const std::string& text) { return Printable(text); };
        request.timeOf = MicrosOfRfc3339;
        if (m_context) {
            request.disk = &m_context->Disk();
            request.blocks = &m_context->Blocks();
        }
        BeginAnswer();
        const bool good = media::Verify(
            request, [this](const media::Check& check) { Show(check); }, Watch());
        m_answer->EndTable();
        m_answer->ShowFacts({{"verified", "Verified", good}});
        m_answer->End();
        m_output.Flush();
        return good ? kDone : kFailed;
    }

private:
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

    void Show(const media::Check& check) {
        m_answer->ShowRow(
            {std::string(NameOf(check.result)), std::string(NameOf(check.subject)), Printable(check.text)});
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
    return ReportingErrors("interrupted; not everything was looked at",
                           [&options] { return Verification(options).Run(); });
}

} // namespace diskaccess
