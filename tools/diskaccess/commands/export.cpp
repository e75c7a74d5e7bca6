#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <utility>

#include "cli/duration.h"
#include "cli/failure.h"
#include "cli/interruption.h"
#include "cli/output.h"
#include "commands/commands.h"
#include "commands/evidence.h"
#include "commands/named.h"
#include "media/error.h"
#include "media/exporter.h"
#include "recordings/error.h"
#include "render/printable.h"

namespace diskaccess {

namespace {

bool EndsWith(const std::string& text, const std::string& end) {
    return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

media::Container WantedContainer(const Options& options) {
    CheckOutputName(options);
    if (options.raw && !options.container.empty()) {
        throw WrongUse("--raw makes no container: leave --container out");
    }
    if (options.raw) {
        return media::Container::Raw;
    }
    if (!media::ContainersSupported()) {
        throw Failure("this program was built without libavformat and writes no containers; use --raw");
    }
    const bool mp4 =
        options.container.empty() ? EndsWith(options.output, ".mp4") : options.container == "mp4";
    return mp4 ? media::Container::Mp4 : media::Container::Matroska;
}

/// Reads "CODEC:RATE" (alaw, mulaw, pcm16, or a name of libavcodec's; samples a second).
media::AudioCodec ReadAudioCodec(const std::string& text) {
    constexpr std::array<std::pair<const char*, const char*>, 3> kShortNames = {
        {{"alaw", "pcm_alaw"}, {"mulaw", "pcm_mulaw"}, {"pcm16", "pcm_s16le"}}};
    const size_t colon = text.find(':');
    const std::string rate = colon == std::string::npos ? "" : text.substr(colon + 1);
    std::string name = text.substr(0, colon);
    for (const auto& [shortName, codec] : kShortNames) {
        if (name == shortName) {
            name = codec;
        }
    }
    if (name.empty() || rate.empty() || rate.size() > 6 ||
        rate.find_first_not_of("0123456789") != std::string::npos || std::stoul(rate) == 0) {
        throw WrongUse("--audio: '" + text + "' is no codec and rate; give them like alaw:8000");
    }
    if (!media::CanDecodeAudio(name)) {
        throw WrongUse("--audio: libavcodec knows no audio called '" + name +
                       "'; give alaw, mulaw, pcm16 or a name that 'ffmpeg -codecs' lists");
    }
    return {name, static_cast<uint32_t>(std::stoul(rate))};
}

/// Reads a list of "CODEC:RATE", of all channels, and "CHANNEL=CODEC:RATE".
media::AudioCodecs ReadAudio(const std::string& list) {
    media::AudioCodecs codecs;
    for (size_t begin = 0; !list.empty() && begin <= list.size();) {
        const size_t end = std::min(list.find(',', begin), list.size());
        const std::string item = list.substr(begin, end - begin);
        const size_t equals = item.find('=');
        if (equals == std::string::npos) {
            codecs.all = ReadAudioCodec(item);
        } else {
            const std::string channel = item.substr(0, equals);
            const bool isNumber = !channel.empty() && channel.size() <= 2 &&
                                  channel.find_first_not_of("0123456789") == std::string::npos;
            if (!isNumber || std::stoul(channel) >= recordings::kChannels) {
                throw WrongUse("--audio: '" + channel + "' is no channel; give a number from 0 to 31");
            }
            codecs.channels[static_cast<uint32_t>(std::stoul(channel))] =
                ReadAudioCodec(item.substr(equals + 1));
        }
        begin = end + 1;
    }
    return codecs;
}

/// Has a request ask for the record, or for what lies around the event, that the options name.
void Narrow(Context& context, media::ExportRequest& request) {
    const Options& options = context.Typed();
    if (options.record.empty() && options.event.empty()) {
        return;
    }
    request.fromGiven = true;
    request.toGiven = true;
    if (!options.record.empty()) {
        const recordings::Record record = NamedRecord(context);
        request.range = {record.start, record.end};
        request.channels = request.channels.And({1u << record.channel});
        return;
    }
    const uint32_t time = NamedEvent(context).time;
    const uint32_t around = ReadDuration(options.around, "--around");
    request.range = {time - std::min(time, around), time + std::min(UINT32_MAX - time, around)};
}

/// What names a record or an event names a time: no other goes with it.
void CheckNames(const Options& options) {
    if (!options.record.empty()) {
        ReadRecordName(options.record);
    }
    if (!options.event.empty()) {
        ReadEventName(options.event);
        ReadDuration(options.around, "--around");
    }
    const bool named = !options.record.empty() || !options.event.empty();
    if (named && (!options.from.empty() || !options.to.empty())) {
        throw WrongUse("--record and --event name a time themselves: leave --from and --to out");
    }
}

media::ExportRequest RequestOf(Context& context) {
    const Options& options = context.Typed();
    media::ExportRequest request;
    request.container = WantedContainer(options);
    request.audio = ReadAudio(options.audio);
    FillRequest(context, request);
    Narrow(context, request);
    return request;
}

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
        throw ToFailure(error);
    } catch (const recordings::Error& error) {
        if (error.Kind() == recordings::ErrorKind::Cancelled) {
            throw Failure("interrupted; nothing was kept");
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

void CheckExport(const Options& options) {
    WantedContainer(options);
    ReadAudio(options.audio);
    CheckNames(options);
}

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
    ShowTracks(context, shown);
    ShowSummary(context, shown);
    const ExitCode code = context.Finish();
    return code == kDone && lost ? kDataLost : code;
}

} // namespace diskaccess
