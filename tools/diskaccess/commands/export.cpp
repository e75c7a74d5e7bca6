#include <fmt/format.h>

#include "cli/failure.h"
#include "cli/interruption.h"
#include "cli/output.h"
#include "commands/commands.h"
#include "commands/evidence.h"
#include "commands/export_options.h"
#include "media/error.h"
#include "media/exporter.h"
#include "recordings/error.h"
#include "render/printable.h"

namespace diskaccess {

namespace {

/// What to do about frames that a container does not hold.
std::string HintFor(const media::LeftOut& item) {
    switch (item.reason) {
    case media::LeftOutReason::EncodingUnknown:
        return item.isVideo ? ": use --raw" : ": give --audio CODEC:RATE, or use --raw";
    case media::LeftOutReason::NotForContainer:
        return ": use Matroska or --raw";
    case media::LeftOutReason::NoPictureSize:
    case media::LeftOutReason::FrameTooLarge:
        return ": use --raw";
    default:
        return ": export that time by itself, or use --raw";
    }
}

std::optional<media::ExportResult> Run(Context& context, const media::ExportRequest& request) {
    const recordings::BlockList& blocks =
        context.Blocks(); // a signal may end that: there is nothing to clean up
    const Interruption interruption;
    const recordings::Watch watch = InterruptibleWatch(context, "exporting");
    try {
        return media::Export(context.Disk(), blocks, context.Source(), request, context.Problems(), watch);
    } catch (const media::Error& error) {
        if (error.Kind() == media::ErrorKind::NobodyReads) {
            throw NobodyReads();
        }
        throw ToFailure(error);
    } catch (const recordings::Error& error) {
        if (error.Kind() == recordings::ErrorKind::Cancelled) {
            throw Failure(request.stream ? "interrupted; what was written is not whole"
                                         : "interrupted; nothing was kept");
        }
        throw;
    }
}

/// @return whether something is left out that the user expects to be there
bool NoteLeftOut(const media::ExportResult& result) {
    bool lost = false;
    for (const media::LeftOut& item : result.leftOut) {
        Complain(fmt::format("channel {}: {} {} frame{} left out: {}{}", item.channel, item.frames,
                             item.isVideo ? "video" : "audio", item.frames == 1 ? " is" : "s are",
                             item.description, HintFor(item)));
        // What a container cannot hold is left out by the user's choice of it.
        lost = lost || item.reason == media::LeftOutReason::TrackBegunTooLate ||
               item.reason == media::LeftOutReason::FrameTooLarge;
    }
    return lost;
}

void SayThatNothingWasWritten(const Context& context) {
    const bool allLocked = context.Asked().channels.Without(context.Disk().Hidden()).Empty();
    const char* const why = allLocked           ? "these channels are locked"
                            : context.AnyLoss() ? "no frames of that time and these channels could be read"
                                                : "holds no frames of that time and these channels";
    Complain(fmt::format("{}: {}; nothing was written", context.Typed().partition, why));
}

void ShowTracks(Context& context, const media::ExportResult& result) {
    Renderer& answer = context.Answer();
    answer.BeginTable({"tracks",
                       {{"channel", "CHANNEL"},
                        {"media", "KIND"},
                        {"codec", "CODEC"},
                        {"frame_count", "FRAMES"},
                        {"payload_bytes", "SIZE"},
                        {"start", "START"},
                        {"end", "END"},
                        {"file", "FILE"}},
                       {}});
    for (const media::Track& track : result.tracks) {
        answer.ShowRow(
            {context.Names().Channel(track.channel), std::string(track.isVideo ? "video" : "audio"),
             track.Codec(), track.frames, Bytes{track.bytes}, context.Clock().TrueInstant(track.first),
             context.Clock().TrueInstant(track.last), Printable(result.outputs.at(track.output).path)});
    }
    answer.EndTable();
}

void ShowSummary(Context& context, const media::ExportResult& result) {
    uint64_t size = 0;
    for (const media::Exported& output : result.outputs) {
        size += output.size;
    }
    uint64_t losses = 0;
    for (const recordings::Problem& problem : result.problems) {
        losses += problem.severity == recordings::Severity::Loss ? 1 : 0;
    }
    context.Answer().ShowFacts({{"size_bytes", "Written", Bytes{size}},
                                {"gap_count", "Gaps", uint64_t{result.gaps.size()}},
                                {"loss_count", "Losses", losses},
                                {"manifest_file", "Manifest",
                                 result.manifest.empty() ? Value(Nothing()) : Printable(result.manifest)},
                                {"signature_file", result.signature.empty() ? "" : "Signature",
                                 result.signature.empty() ? Value(Nothing()) : Printable(result.signature)}});
}

} // namespace

ExitCode Export(Context& context) {
    media::QuietContainers();
    media::ExportRequest request = RequestOf(context);
    const std::optional<media::SigningKey> key = ReadSigningKey(context.Typed());
    request.key = key ? &*key : nullptr;
    const std::optional<media::ExportResult> result = Run(context, request);
    if (!result) {
        SayThatNothingWasWritten(context);
    } else if (result->outputs.empty()) {
        const media::LeftOut& first = result->leftOut.front();
        throw Failure(fmt::format("{}: nothing of it can be put into a {} file: {}{}",
                                  context.Typed().partition, NameOf(request.container), first.description,
                                  HintFor(first)));
    }
    const media::ExportResult shown = result.value_or(media::ExportResult());
    NoteSourceDigest(context, shown.sourceDigest);
    const bool lost = NoteLeftOut(shown);
    if (!request.stream) {
        ShowTracks(context, shown);
        ShowSummary(context, shown);
    }
    const ExitCode code = request.stream ? context.FinishWithoutAnswer() : context.Finish();
    return code == kDone && lost ? kDataLost : code;
}

} // namespace diskaccess
