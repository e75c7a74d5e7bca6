#include "commands/export_options.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <utility>

#include "cli/duration.h"
#include "cli/ending.h"
#include "cli/failure.h"
#include "commands/commands.h"
#include "commands/evidence.h"
#include "commands/export_split.h"
#include "commands/named.h"

namespace diskaccess {

namespace {

media::Container WantedContainer(const Options& options) {
    if (options.rangeList.empty()) {
        CheckOutputName(options);
    }
    if (options.raw && !options.container.empty()) {
        throw WrongUse("--raw makes no container: leave --container out");
    }
    if (options.raw) {
        return media::Container::Raw;
    }
    if (!media::ContainersSupported()) {
        throw Failure("this program was built without libavformat and writes no containers; use --raw");
    }
    RefuseOtherKinds(options, options.output, "--output: ");
    return ContainerOf(options, options.output);
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

/// Whether the options name something that has a time of its own.
bool NameATime(const Options& options) {
    return !options.record.empty() || !options.event.empty() || options.journey;
}

/// Has a request ask for the record, the journey, or what lies around the event, that the options name.
void Narrow(Context& context, media::ExportRequest& request) {
    const Options& options = context.Typed();
    if (!NameATime(options)) {
        return;
    }
    request.fromGiven = true;
    request.toGiven = true;
    if (options.journey) {
        const recordings::Journey journey = NamedJourney(context);
        request.range = {journey.start, journey.end};
        return;
    }
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

/// Looks at what goes with standard output, and what with files.
void CheckStandardOutput(const Options& options) {
    if (!GoesToStandardOutput(options)) {
        if (!options.manifest.empty()) {
            throw WrongUse("--manifest goes with -o -: the manifest of files lies beside them");
        }
        return;
    }
    if (!options.split.empty()) {
        throw WrongUse("-o -: standard output is one file: leave --split out");
    }
    if (options.raw || options.container == "mp4") {
        throw WrongUse("-o -: standard output takes Matroska alone: leave --raw and --container out");
    }
    if (options.format != Format::Text) {
        throw WrongUse("-o -: the recording itself goes to standard output: leave --json and --format out");
    }
    const bool forManifest = options.hashSource || !options.signingKey.empty() || !options.caseName.empty() ||
                             !options.operatorName.empty() || !options.note.empty();
    if (forManifest && options.manifest.empty()) {
        throw WrongUse(
            "-o -: --case, --operator, --note, --sign and --hash-source are for the manifest: give "
            "--manifest FILE");
    }
    if (isatty(STDOUT_FILENO) == 1) {
        throw WrongUse("-o -: standard output is a terminal; lead it to a player (| mpv -) or to a file");
    }
}

/// A list names the times, and a folder for its files.
void CheckList(const Options& options) {
    if (options.rangeList.empty()) {
        return;
    }
    const bool timed = NameATime(options) || !(options.from + options.to).empty();
    if (options.raw || timed || !options.split.empty()) {
        throw WrongUse(
            "--list names the times itself, and makes one file of each: leave --from, --to, --event, "
            "--record, --journey, --split and --raw out");
    }
    if (!EndsWith(options.output, "/")) {
        throw WrongUse("--list makes a file of each row: give a folder with / at its end, like -o DIR/");
    }
}

/// AAC is for what MP4 cannot hold. Of a list, each row names its own container.
void CheckAac(const Options& options) {
    if (!options.aac) {
        return;
    }
    if (options.noAudio) {
        throw WrongUse("--no-audio leaves the sound out: leave --aac out");
    }
    const media::Container container = WantedContainer(options);
    if (container == media::Container::Raw) {
        throw WrongUse("--raw writes the sound as it was recorded: leave --aac out");
    }
    const bool rowsTell = !options.rangeList.empty() && options.container.empty();
    if (container != media::Container::Mp4 && !rowsTell) {
        throw WrongUse("Matroska holds the sound as it was recorded: leave --aac out, or name a FILE.mp4");
    }
}

/// What names a record, an event or a journey names a time: no other goes with it.
void CheckNames(const Options& options) {
    if (!options.record.empty()) {
        ReadRecordName(options.record);
    }
    if (!options.event.empty()) {
        ReadEventName(options.event);
        ReadDuration(options.around, "--around");
    }
    if (NameATime(options) && !(options.from + options.to).empty()) {
        throw WrongUse("--record, --event and --journey name a time themselves: leave --from and --to out");
    }
}

} // namespace

void RefuseOtherKinds(const Options& options, const std::string& name, const std::string& where) {
    for (const char* const ending :
         {".avi", ".mov", ".wmv", ".asf", ".flv", ".mpg", ".mpeg", ".ts", ".webm", ".3gp"}) {
        if (options.container.empty() && EndsWith(Lowered(name), ending)) {
            throw WrongUse(fmt::format(
                "{}'{}' would not be a {} file; name a FILE.mkv or a FILE.mp4, or give --container", where,
                name, ending));
        }
    }
}

media::Container ContainerOf(const Options& options, const std::string& name) {
    const bool mp4 = options.container.empty() ? EndsWith(Lowered(name), ".mp4") : options.container == "mp4";
    return mp4 ? media::Container::Mp4 : media::Container::Matroska;
}

media::ExportRequest RequestOf(Context& context) {
    const Options& options = context.Typed();
    media::ExportRequest request;
    request.container = WantedContainer(options);
    request.audio = ReadAudio(options.audio);
    request.clockText = !options.noClock;
    request.withAudio = !options.noAudio;
    request.aac = options.aac;
    FillRequest(context, request);
    Narrow(context, request);
    if (GoesToStandardOutput(options)) {
        request.name = "standard output";
        request.manifest = options.manifest;
        request.stream = STDOUT_FILENO;
    }
    return request;
}

std::vector<media::ExportRequest> RequestsOf(Context& context) {
    media::ExportRequest request = RequestOf(context);
    const std::string& kind = context.Typed().split;
    return kind.empty() ? std::vector<media::ExportRequest>{std::move(request)}
                        : Split(context, request, kind);
}

bool GoesToStandardOutput(const Options& options) {
    return options.output == "-";
}

void CheckExport(const Options& options) {
    if (options.noAudio && !options.audio.empty()) {
        throw WrongUse("--no-audio leaves the sound out: leave --audio out");
    }
    if (options.raw && options.split == "channel") {
        throw WrongUse("--raw makes a file of each channel anyway: leave --split out");
    }
    if (!options.split.empty() || options.journey) {
        CheckJourneys(options);
    }
    CheckList(options);
    CheckStandardOutput(options);
    WantedContainer(options);
    CheckAac(options);
    ReadAudio(options.audio);
    CheckNames(options);
}

} // namespace diskaccess
