#include <fmt/format.h>

#include <algorithm>
#include <stdexcept>
#include <vector>

#include "cli/failure.h"
#include "cli/interruption.h"
#include "cli/output.h"
#include "commands/commands.h"
#include "commands/evidence.h"
#include "commands/export_list.h"
#include "commands/export_options.h"
#include "media/error.h"
#include "media/exporter.h"
#include "recordings/error.h"
#include "render/printable.h"

namespace diskaccess {

namespace {

/// What to do about frames that a container does not hold.
std::string HintFor(const media::LeftOut& item, const media::ExportRequest& request) {
    switch (item.reason) {
    case media::LeftOutReason::EncodingUnknown:
        return item.isVideo ? ": use --raw" : ": give --audio CODEC:RATE, or use --raw";
    case media::LeftOutReason::NotForContainer:
        return request.container != media::Container::Mp4 ? ": use --raw"
               : item.isVideo || request.aac              ? ": use Matroska or --raw"
                                                          : ": give --aac, or use Matroska or --raw";
    case media::LeftOutReason::NoPictureSize:
    case media::LeftOutReason::FrameTooLarge:
        return ": use --raw";
    default:
        return ": export that time by itself, or use --raw";
    }
}

/// What is said when a signal ends a run, or would have it end after a file that was being finished.
const char* const kSomeKept = "interrupted; the files that are finished are kept";
const char* const kListStopped =
    "interrupted; the files that are finished are kept, and the same command makes the others";

bool IsLoss(const recordings::Problem& problem) {
    return problem.severity == recordings::Severity::Loss;
}

/// What came of one export.
struct Made {
    std::optional<media::ExportResult> result; ///< nothing: the range holds no frames
    bool anyLoss = false; ///< something of its range is missing, also where other exports have met it
};

/// Makes one export. The caller keeps signals from ending the program.
/// @param interrupted what is said when one has come
Made Run(Context& context, const media::ExportRequest& request, const char* interrupted,
         const std::string& doing = "exporting") {
    const recordings::Watch watch = InterruptibleWatch(context, doing);
    const std::vector<recordings::Problem>& opening = context.Disk().OpeningProblems();
    Made made;
    made.anyLoss = std::any_of(opening.begin(), opening.end(), IsLoss);
    const recordings::ProblemSink note = [&,
                                          report = context.Problems()](const recordings::Problem& problem) {
        made.anyLoss = made.anyLoss || IsLoss(problem);
        report(problem);
    };
    ReportingErrors(interrupted, [&] {
        try {
            made.result =
                media::Export(context.Disk(), context.Blocks(), context.Source(), request, note, watch);
        } catch (const media::Error& error) {
            if (error.Kind() == media::ErrorKind::NobodyReads) {
                throw NobodyReads();
            }
            throw;
        }
    });
    return made;
}

/// @return whether something is left out that the user expects to be there
bool NoteLeftOut(const media::ExportResult& result, const media::ExportRequest& request) {
    bool lost = false;
    for (const media::LeftOut& item : result.leftOut) {
        Complain(fmt::format("channel {}: {} {} frame{} left out: {}{}", item.channel, item.frames,
                             item.isVideo ? "video" : "audio", item.frames == 1 ? " is" : "s are",
                             item.description, HintFor(item, request)));
        // What a container cannot hold is left out by the user's choice of it.
        lost = lost || item.reason == media::LeftOutReason::TrackBegunTooLate ||
               item.reason == media::LeftOutReason::FrameTooLarge;
    }
    return lost;
}

void SayThatNothingWasWritten(const Context& context, const std::string& subject,
                              recordings::ChannelSet channels, bool anyLoss) {
    const bool allLocked = channels.Without(context.Disk().Hidden()).Empty();
    const char* const why = allLocked ? "these channels are locked"
                            : anyLoss ? "no frames of that time and these channels could be read"
                                      : "holds no frames of that time and these channels";
    Complain(fmt::format("{}: {}; nothing was written", subject, why));
}

/// Exports one after the other, and what came of them.
struct Exports {
    std::vector<media::ExportResult> results;
    bool lost = false;    ///< something is left out that the user expects to be there
    bool failed = false;  ///< of one, no file could be made
    bool anyLoss = false; ///< of one that was run, something is missing on the disk
};

bool IsAnyEncoded(const std::vector<media::ExportResult>& results) {
    return std::any_of(results.begin(), results.end(), [](const media::ExportResult& result) {
        return std::any_of(result.tracks.begin(), result.tracks.end(),
                           [](const media::Track& track) { return track.encoded.has_value(); });
    });
}

void ShowTracks(Context& context, const std::vector<media::ExportResult>& results) {
    Renderer& answer = context.Answer();
    answer.BeginTable({"tracks",
                       {{"channel", "CHANNEL"},
                        {"media", "KIND"},
                        {"codec", "CODEC"},
                        {"encoded_codec", IsAnyEncoded(results) ? "ENCODED" : ""},
                        {"frame_count", "FRAMES"},
                        {"payload_bytes", "SIZE"},
                        {"start", "START"},
                        {"end", "END"},
                        {"file", "FILE"}},
                       {}});
    for (const media::ExportResult& result : results) {
        for (const media::Track& track : result.tracks) {
            answer.ShowRow(
                {context.Names().Channel(track.channel), std::string(track.isVideo ? "video" : "audio"),
                 track.Codec(), track.encoded ? Value(track.encoded->codec) : Value(), track.frames,
                 Bytes{track.bytes}, context.Clock().TrueInstant(track.first),
                 context.Clock().TrueInstant(track.last), Printable(result.outputs.at(track.output).path)});
        }
    }
    answer.EndTable();
}

uint64_t SizeOf(const media::ExportResult& result) {
    uint64_t size = 0;
    for (const media::Exported& output : result.outputs) {
        size += output.size;
    }
    return size;
}

uint64_t LossesOf(const media::ExportResult& result) {
    return static_cast<uint64_t>(std::count_if(result.problems.begin(), result.problems.end(), IsLoss));
}

/// Each of several exports, which has a manifest of its own.
void ShowExports(Context& context, const std::vector<media::ExportResult>& results) {
    Renderer& answer = context.Answer();
    answer.BeginTable({"exports",
                       {{"size_bytes", "SIZE"},
                        {"gap_count", "GAPS"},
                        {"loss_count", "LOSSES"},
                        {"manifest_file", "MANIFEST"},
                        {"signature_file", ""}},
                       {}});
    for (const media::ExportResult& result : results) {
        answer.ShowRow({Bytes{SizeOf(result)}, uint64_t{result.gaps.size()}, LossesOf(result),
                        PathOrNothing(result.manifest), PathOrNothing(result.signature)});
    }
    answer.EndTable();
}

/// @param single whether it is of one export, whose manifest no table names
void ShowSummary(Context& context, const std::vector<media::ExportResult>& results, bool single) {
    uint64_t size = 0;
    uint64_t gaps = 0;
    uint64_t losses = 0;
    for (const media::ExportResult& result : results) {
        size += SizeOf(result);
        gaps += result.gaps.size();
        losses += LossesOf(result);
    }
    const std::string manifest = results.size() == 1 ? results.front().manifest : "";
    const std::string signature = results.size() == 1 ? results.front().signature : "";
    context.Answer().ShowFacts(
        {{"size_bytes", "Written", Bytes{size}},
         {"gap_count", "Gaps", gaps},
         {"loss_count", "Losses", losses},
         {"manifest_file", single ? "Manifest" : "", PathOrNothing(manifest)},
         {"signature_file", signature.empty() ? "" : "Signature", PathOrNothing(signature)}});
}

/// Looks at the places of all files before the first is begun.
void CheckAllPlaces(Context& context, const std::vector<media::ExportRequest>& requests) {
    ReportingErrors(kNothingKept, [&] {
        for (const media::ExportRequest& request : requests) {
            media::CheckPlaces(context.Disk(), context.Source(), request);
        }
    });
}

std::string NothingFits(const Context& context, const media::ExportRequest& request,
                        const media::ExportResult& result) {
    const media::LeftOut& first = result.leftOut.front();
    return fmt::format("{}: nothing of it can be put into a {} file: {}{}", context.Typed().partition,
                       NameOf(request.container), first.description, HintFor(first, request));
}

void Take(const Context& context, const media::ExportRequest& request, const media::ExportResult& result,
          Exports& exports) {
    NoteSourceDigest(context, result.sourceDigest);
    exports.lost = NoteLeftOut(result, request) || exports.lost;
    exports.results.push_back(result);
}

/// A signal that comes while one file is finished does not undo that: it ends the run before the next.
void StopBeforeNext(const char* interrupted) {
    if (Interruption::Asked()) {
        throw Failure(interrupted);
    }
}

Exports RunAll(Context& context, const std::vector<media::ExportRequest>& requests) {
    context.Blocks(); // a signal may end that: there is nothing to clean up
    const Interruption interruption;
    const char* const interrupted = requests.front().stream ? "interrupted; what was written is not whole"
                                    : requests.size() == 1  ? kNothingKept
                                                            : kSomeKept;
    Exports exports;
    for (const media::ExportRequest& request : requests) {
        StopBeforeNext(interrupted);
        const auto [result, anyLoss] = Run(context, request, interrupted);
        exports.anyLoss = exports.anyLoss || anyLoss;
        if (!result) {
            continue;
        }
        if (result->outputs.empty() && requests.size() == 1) {
            throw Failure(NothingFits(context, request, *result));
        }
        if (result->outputs.empty()) {
            Complain(request.name + ": " + NothingFits(context, request, *result));
            exports.failed = true;
            continue;
        }
        Take(context, request, *result, exports);
    }
    return exports;
}

void RunRow(Context& context, const std::string& row, const media::ExportRequest& request,
            const std::string& doing, Exports& exports) {
    const auto [result, anyLoss] = Run(context, request, kListStopped, doing);
    if (!result) {
        SayThatNothingWasWritten(context, row + ": " + context.Typed().partition, request.channels, anyLoss);
    } else if (result->outputs.empty()) {
        throw Failure(NothingFits(context, request, *result));
    } else {
        Take(context, request, *result, exports);
    }
}

/// Runs the rows of a list until a signal comes. One that fails does not stop the others.
/// @return whether a signal has left rows undone
bool RunOpenRows(Context& context, const media::ExportRequest& whole, ListedWork& work, Exports& exports) {
    const Interruption interruption;
    for (size_t i = 0; i < work.open.size(); ++i) {
        const ListedExport& each = work.open[i];
        try {
            StopBeforeNext(kListStopped);
            RunRow(context, each.row, each.RequestOf(whole),
                   fmt::format("exporting {} of {}", i + 1, work.open.size()), exports);
        } catch (const std::runtime_error& error) {
            if (Interruption::Asked()) {
                return true;
            }
            work.failures.push_back(each.row + ": " + error.what());
        }
    }
    return false;
}

/// Runs the rows of a list. Those that fail are named in the end.
Exports RunRows(Context& context, const media::ExportRequest& whole, ListedWork& work) {
    Exports exports;
    exports.lost = work.lost;
    const bool stopped = RunOpenRows(context, whole, work, exports);
    for (const std::string& failure : work.failures) {
        Complain(failure);
    }
    if (stopped) {
        throw Failure(kListStopped);
    }
    exports.failed = !work.failures.empty();
    return exports;
}

/// @param code as the problems of the disk have it
ExitCode CodeOf(const Exports& exports, ExitCode code) {
    if (exports.failed) {
        return kFailed;
    }
    return code == kDone && exports.lost ? kDataLost : code;
}

void ShowSkipped(Context& context, const ListedWork& work) {
    if (work.skipped == work.rows) {
        context.Answer().ShowProse({"All files of the list are there already; nothing was written.\n"});
    } else if (work.skipped != 0) {
        context.Answer().ShowProse(
            {fmt::format("Files of the list that are there already: {} of {}.\n", work.skipped, work.rows)});
    }
}

ExitCode ExportList(Context& context) {
    const std::optional<media::SigningKey> key = ReadSigningKey(context.Typed());
    media::ExportRequest whole = RequestOf(context);
    whole.key = key ? &*key : nullptr;
    ListedWork work = LookAtPlaces(context, whole, ReadListedExports(context, whole));
    const Exports exports = RunRows(context, whole, work);
    ShowSkipped(context, work);
    ShowTracks(context, exports.results);
    ShowExports(context, exports.results);
    ShowSummary(context, exports.results, false);
    return CodeOf(exports, context.Finish());
}

} // namespace

ExitCode Export(Context& context) {
    media::QuietContainers();
    if (!context.Typed().rangeList.empty()) {
        return ExportList(context);
    }
    std::vector<media::ExportRequest> requests = RequestsOf(context);
    const std::optional<media::SigningKey> key = ReadSigningKey(context.Typed());
    for (media::ExportRequest& request : requests) {
        request.key = key ? &*key : nullptr;
    }
    CheckAllPlaces(context, requests);
    const Exports exports = RunAll(context, requests);
    if (exports.results.empty() && !exports.failed) {
        SayThatNothingWasWritten(context, context.Typed().partition, context.Asked().channels,
                                 exports.anyLoss);
    }
    if (requests.front().stream) {
        return CodeOf(exports, context.FinishWithoutAnswer());
    }
    ShowTracks(context, exports.results);
    if (requests.size() > 1) {
        ShowExports(context, exports.results);
    }
    ShowSummary(context, exports.results, requests.size() == 1);
    return CodeOf(exports, context.Finish());
}

} // namespace diskaccess
