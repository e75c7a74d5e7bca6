#include "media/extract.h"

#include "cli/interruption.h"
#include "cli/output.h"
#include "commands/commands.h"
#include "commands/evidence.h"
#include "render/printable.h"

namespace diskaccess {

namespace {

std::optional<media::ExtractResult> Run(Context& context, const media::Request& request) {
    const Interruption interruption;
    const recordings::BlockList& blocks = context.Blocks();
    return ReportingErrors(kNothingKept, [&] {
        return media::Extract(context.Disk(), blocks, context.Source(), request, context.Problems(),
                              InterruptibleWatch(context, "copying"));
    });
}

} // namespace

void CheckExtract(const Options& options) {
    CheckOutputName(options);
}

ExitCode Extract(Context& context) {
    media::Request request;
    FillRequest(context, request);
    const std::optional<media::SigningKey> key = ReadSigningKey(context.Typed());
    request.key = key ? &*key : nullptr;
    const std::optional<media::ExtractResult> result = Run(context, request);
    if (!result) {
        Complain(context.Typed().partition +
                 ": holds nothing of that time and these channels; nothing was written");
    }
    const media::ExtractResult shown = result.value_or(media::ExtractResult());
    NoteSourceDigest(context, shown.sourceDigest);
    context.Answer().ShowFacts(
        {{"file", "Image", PathOrNothing(shown.image)},
         {"copied_block_count", "Blocks", uint64_t{shown.blocks.size()}},
         {"manifest_file", "Manifest", PathOrNothing(shown.manifest)},
         {"signature_file", shown.signature.empty() ? "" : "Signature", PathOrNothing(shown.signature)}});
    return context.Finish();
}

} // namespace diskaccess
