#include "cli/options.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <array>
#include <limits>
#include <utility>
#include <vector>

#include "completion/values.h"
#include "media/sheet.h"

namespace diskaccess {

const char* const kHelpFooter =
    "A TIME is '2026-11-20 14:30:00' (an offset like +01:00 or Z may follow), 2026-11-20,\n"
    "14:30 (of today, as an end of the start's day), today, yesterday, now, -2h (also s, m, d, w),\n"
    "or @1700000000.\n"
    "Exit status: 0 done, 1 failed, 2 wrong use, 3 done, but something recorded is missing.";

void AddPartition(CLI::App& command, Options& options) {
    command
        .add_option(
            "PARTITION", options.partition,
            "The recorder's partition or the disk that it lies on: a block device, an image file, or the "
            "first part of a split or E01 image")
        ->type_name("FILE")
        ->required();
    AddVerboseOption(command, options);
}

void AddVerboseOption(CLI::App& command, Options& options) {
    command.add_flag("--verbose", options.verbose,
                     "Say on standard error what the program keeps itself from");
}

void AddDisks(CLI::App& command, Options& options) {
    command
        .add_option("DISK", options.disks,
                    "Disks, partitions or images of them (default: every disk of this machine)")
        ->type_name("FILE");
}

void AddZoneOptions(CLI::App& command, Options& options) {
    auto* const zone = command
                           .add_option("--tz", options.zone,
                                       "Zone of all times, like Europe/Berlin (default: this "
                                       "machine's)")
                           ->option_text("ZONE");
    command
        .add_flag_callback(
            "--utc", [&options] { options.zone = "UTC"; }, "Short for --tz UTC")
        ->excludes(zone);
}

namespace {

constexpr std::array<std::pair<const char*, Format>, 4> kFormats = {
    {{"text", Format::Text}, {"json", Format::Json}, {"ndjson", Format::Ndjson}, {"csv", Format::Csv}}};

Format FormatOf(const std::string& name) {
    const auto* const found = std::find_if(kFormats.begin(), kFormats.end(),
                                           [&name](const auto& format) { return name == format.first; });
    return found == kFormats.end() ? Format::Text : found->second;
}

CLI::Option* AddFormat(CLI::App& command, Options& options, const char* description,
                       const std::vector<std::string>& names) {
    return command
        .add_option_function<std::string>(
            "--format", [&options](const std::string& name) { options.format = FormatOf(name); }, description)
        ->transform(completion::OneOf(names))
        ->option_text("FORMAT")
        ->default_str("text");
}

} // namespace

void AddFormatOptions(CLI::App& command, Options& options) {
    CLI::Option* const format =
        AddFormat(command, options, "text, json, ndjson or csv", {"text", "json", "ndjson", "csv"});
    command
        .add_flag_callback(
            "--json", [&options] { options.format = Format::Json; }, "Short for --format json")
        ->excludes(format);
}

void AddTextFormatOption(CLI::App& command, Options& options) {
    AddFormat(command, options, "text, the only one", {"text"});
}

void AddPartitionNumber(CLI::App& command, Options& options) {
    command
        .add_option("--partition", options.partitionNumber,
                    "Number of the partition on a whole disk (default: the only one of a recorder)")
        ->option_text("N");
}

void AddSkewOption(CLI::App& command, Options& options) {
    constexpr int64_t kMostSkew =
        std::numeric_limits<uint32_t>::max(); // all that a recorder's clock can count
    command
        .add_option("--skew", options.skew, "Seconds that the recorder's clock was ahead (negative: behind)")
        ->check(completion::WholeNumber(-kMostSkew, kMostSkew))
        ->option_text("SECONDS");
}

void AddDiskOptions(CLI::App& command, Options& options) {
    AddPartitionNumber(command, options);
    AddSkewOption(command, options);
    command
        .add_option("--clock-check", options.clockCheck,
                    "The same, as seen: what the recorder's clock showed, =, and the true time then")
        ->excludes(command.get_option("--skew"))
        ->option_text("TIME=TIME");
    command
        .add_option("--names", options.namesFile,
                    "File that names channels and event types (default: names.json in "
                    "~/.config/diskaccess)")
        ->option_text("FILE")
        ->type_name("FILE");
    command
        .add_option("--disk-type", options.diskType,
                    "The recorder's disk type code (default: as the head says)")
        ->check(completion::WholeNumber(0, std::numeric_limits<int>::max()))
        ->option_text("CODE");
    auto* const file = command
                           .add_option("--password-file", options.passwordFile,
                                       "File whose first line is the disk's password")
                           ->option_text("FILE")
                           ->type_name("FILE");
    command
        .add_flag("--ask-password", options.askPassword,
                  "Ask for the disk's password (else: environment variable DISKACCESS_PASSWORD)")
        ->excludes(file);
}

void AddRangeOptions(CLI::App& command, Options& options) {
    command.add_option("--from", options.from, "First second (a date: its first)")->option_text("TIME");
    command.add_option("--to", options.to, "Last second (a date: its last)")->option_text("TIME");
}

void AddChannelOption(CLI::App& command, Options& options) {
    command
        .add_option("--channel", options.channels,
                    "Channels by number or name, like 0,2-4 or door (default: all)")
        ->option_text("LIST");
}

void AddAlarmOption(CLI::App& command, Options& options) {
    command.add_option("--alarm", options.alarm, "Event types by bits or name, like 0x5 or door, or all")
        ->option_text("TYPES");
}

void AddSilenceOption(CLI::App& command, Options& options) {
    command
        .add_option("--silence", options.silence,
                    "What parts two journeys: more time without any recording than this, like 90s, 5m or 1h")
        ->option_text("TIME")
        ->default_str("5m");
}

void AddTimelineOptions(CLI::App& command, Options& options) {
    command.add_option("--svg", options.svg, "Write it as a picture instead")
        ->option_text("FILE")
        ->type_name("FILE");
    command
        .add_option("--html", options.html,
                    "Write it as a page instead: to zoom in, with everything in one file")
        ->option_text("FILE")
        ->type_name("FILE");
    command.add_flag("--force", options.force, "Replace files that exist; never the source");
}

void AddListOptions(CLI::App& command, Options& options) {
    command.add_flag("--mix", options.mix, "Cut the recordings where alarms begin and end");
}

void AddCheckOptions(CLI::App& command, Options& options) {
    auto* const full =
        command.add_flag("--full", options.full,
                         "Read every frame too, and hold it against the index, its neighbours and its type");
    command.add_flag("--decode", options.decode, "With --full: decode every picture too")->needs(full);
}

void AddPlayOptions(CLI::App& command, Options& options) {
    auto* const record = command
                             .add_option("--record", options.record,
                                         "Play one record, as list shows it (segment 0 if left out)")
                             ->option_text("BLOCK/CHANNEL/SEGMENT");
    command.add_option("--unit", options.unit, "Play a whole block, every channel")
        ->check(completion::WholeNumber(0, std::numeric_limits<uint32_t>::max()))
        ->option_text("BLOCK")
        ->excludes(record);
    command.add_option("--seek", options.seek, "Begin at the first key frame at or after TIME")
        ->option_text("TIME");
    auto* const iframes = command.add_flag("--iframes", options.iframes, "Step from key frame to key frame");
    command.add_flag("--backward", options.backward, "With --iframes: from the last to the first")
        ->needs(iframes);
}

void AddStillOptions(CLI::App& command, Options& options) {
    auto* const at =
        command
            .add_option(
                "--at", options.at,
                "The moment: each channel's last picture at or before it; a fraction of a second may follow")
            ->option_text("TIME");
    auto* const sheet =
        command
            .add_flag("--sheet", options.sheet,
                      "One page over a range instead: a row for each channel, a column for each time")
            ->excludes(at);
    auto* const every =
        command
            .add_option("--every", options.every, "With --sheet: time from one column to the next, like 10s")
            ->option_text("TIME")
            ->needs(sheet);
    command
        .add_option("--columns", options.columns,
                    "With --sheet: so many times, from the first of the range to the last")
        ->check(completion::WholeNumber(1, static_cast<int64_t>(media::kMostSheetColumns)))
        ->option_text("N")
        ->default_str("8")
        ->needs(sheet)
        ->excludes(every);
    command
        .add_option(
            "-o,--output", options.output,
            "Picture to write, FILE.jpg or FILE.png, or a folder with / at its end, in which pictures are "
            "named by the time they were recorded")
        ->option_text("FILE")
        ->type_name("FILE")
        ->required();
    command.add_flag("--force", options.force, "Replace files that exist; never the source");
}

void AddExportOptions(CLI::App& command, Options& options) {
    auto* const record = command
                             .add_option("--record", options.record,
                                         "Export one record, as list shows it (segment 0 if left out)")
                             ->option_text("BLOCK/CHANNEL/SEGMENT");
    auto* const event =
        command.add_option("--event", options.event, "Export what lies around one event, as events shows it")
            ->option_text("BLOCK/ENTRY")
            ->excludes(record);
    command
        .add_option("--journey", options.journey, "Export one journey, by its number as journeys shows it")
        ->check(completion::WholeNumber(1, std::numeric_limits<uint32_t>::max()))
        ->option_text("N")
        ->excludes(record)
        ->excludes(event);
    command.add_option("--around", options.around, "With --event: so much before it and after it, like 30s")
        ->option_text("TIME")
        ->default_str("30s")
        ->needs(event);
    command
        .add_option(
            "-o,--output", options.output,
            "File to write; with --raw, what the files' names begin with; with --list, a folder with / "
            "at its end. FILE.json says what is in it. - for standard output: Matroska for a player, "
            "without a manifest")
        ->option_text("FILE")
        ->type_name("FILE")
        ->required();
    command.add_option("--manifest", options.manifest, "With -o -: write the manifest to this file")
        ->option_text("FILE")
        ->type_name("FILE");
    command.add_flag("--raw", options.raw,
                     "Elementary streams as the cameras delivered them, one file a channel and kind");
    command
        .add_option("--container", options.container,
                    "matroska or mp4 (default: as FILE ends, else matroska)")
        ->transform(completion::OneOf({"matroska", "mkv", "mp4"}))
        ->option_text("KIND");
    command
        .add_option("--split", options.split,
                    "A file for each journey (FILE-j3.mkv, by its number) or channel (FILE-ch0.mkv)")
        ->transform(completion::OneOf({"journey", "channel"}))
        ->option_text("KIND");
    command
        .add_option(
            "--list", options.rangeList,
            "A file for each row of a CSV file, in the folder DIR/ of --output; its first row names the "
            "columns: from, to, channels, file, case, note. Rows whose files are there are skipped")
        ->option_text("FILE.csv")
        ->type_name("FILE");
    command.add_flag("--aac", options.aac,
                     "Encode the sound as AAC that MP4 cannot hold as it was recorded; the manifest says so");
    command.add_flag("--no-audio", options.noAudio, "Leave the sound out");
    command.add_flag("--no-clock", options.noClock,
                     "Leave out the text track with the recorded time, the vehicle and the channels");
    command
        .add_option(
            "--audio", options.audio,
            "How audio is encoded, if the disk does not tell: alaw, mulaw, pcm16 or a name of "
            "libavcodec's, and samples a second, like alaw:8000; of one channel: 2=pcm16:16000; several "
            "after commas")
        ->option_text("[CHANNEL=]CODEC:RATE");
    command.add_flag("--force", options.force, "Replace files that exist; never the source");
}

void AddReportOptions(CLI::App& command, Options& options) {
    constexpr int64_t kMostPictures = 1000;
    command.add_option("-o,--output", options.output, "Page to write, FILE.html")
        ->option_text("FILE")
        ->type_name("FILE")
        ->required();
    command
        .add_option("--pictures", options.pictures,
                    "Events that are shown with a picture; of more of them, the first ones")
        ->check(completion::WholeNumber(0, kMostPictures))
        ->option_text("N")
        ->default_str("12");
    command.add_option("--case", options.caseName, "The case, for the page")->option_text("TEXT");
    command.add_option("--operator", options.operatorName, "Who does this, for the page")
        ->option_text("TEXT");
    command.add_option("--note", options.note, "Anything else, for the page")->option_text("TEXT");
    command.add_flag("--force", options.force, "Replace files that exist; never the source");
}

void AddViewOptions(CLI::App& command, Options& options) {
    command.add_option("--port", options.port, "Port of this machine to answer on (default: any free one)")
        ->check(completion::WholeNumber(0, std::numeric_limits<uint16_t>::max()))
        ->option_text("N");
    command.add_flag("--no-browser", options.noBrowser, "Print the address, and start no browser");
    command
        .add_option("--export-dir", options.exportFolder,
                    "Folder that exports of the page go to (default: the current one)")
        ->option_text("DIR")
        ->type_name("DIR");
}

void AddExtractOptions(CLI::App& command, Options& options) {
    command.add_option("-o,--output", options.output, "Image to write. FILE.json says what is in it")
        ->option_text("FILE")
        ->type_name("FILE")
        ->required();
    command.add_flag("--force", options.force, "Replace files that exist; never the source");
}

void AddEvidenceOptions(CLI::App& command, Options& options) {
    command.add_option("--case", options.caseName, "The case, for the manifest")->option_text("TEXT");
    command.add_option("--operator", options.operatorName, "Who does this, for the manifest")
        ->option_text("TEXT");
    command.add_option("--note", options.note, "Anything else, for the manifest")->option_text("TEXT");
    command.add_flag(
        "--hash-source", options.hashSource,
        "Put the SHA-256 of the whole source into the manifest; takes as long as reading it does");
    command
        .add_option("--sign", options.signingKey,
                    "Sign the manifest with this private Ed25519 key, a PEM file: FILE.json.sig")
        ->option_text("KEY")
        ->type_name("FILE");
}

void AddVerifyOptions(CLI::App& command, Options& options) {
    command
        .add_option("MANIFEST", options.manifest,
                    "The manifest of an export or an extract; the files lie beside it")
        ->type_name("FILE")
        ->required();
    command
        .add_option("--source", options.partition,
                    "What the files were made from: its blocks and frames are compared too")
        ->option_text("SOURCE")
        ->type_name("FILE");
    command
        .add_option("--public-key", options.publicKey,
                    "The manifest must be signed with this key's private one, a PEM file")
        ->option_text("KEY")
        ->type_name("FILE");
}

void AddCatalogOptions(CLI::App& command, Options& options) {
    command
        .add_option("ACTION", options.action,
                    "add: enter disks; list: all disks; find: what was recorded when; remove: take disks out")
        ->required()
        ->transform(completion::OneOf({"add", "list", "find", "remove"}))
        ->option_text("ACTION");
    command
        .add_option("WHAT", options.subjects,
                    "With add: sources, like /dev/sdb5 or image files; with remove: numbers of disks, as "
                    "list shows them")
        ->option_text("WHAT ...")
        ->type_name("FILE");
    command
        .add_option("--database", options.database,
                    "Where the catalogue is: a file, or postgresql://... (default: catalog.db in the user's "
                    "data folder)")
        ->option_text("FILE")
        ->type_name("FILE");
    command
        .add_option("--jobs", options.jobs,
                    "With add: disks that are read at once (default: one a processor)")
        ->check(completion::WholeNumber(1, 256))
        ->option_text("N");
    command.add_option("--vehicle", options.vehicle, "With find: number or id of the vehicle (default: all)")
        ->option_text("NAME");
    AddRangeOptions(command, options);
    AddChannelOption(command, options);
    command
        .add_option(
            "--event", options.alarm,
            "With find: around events of these types alone, by bits or name, like 0x5 or door, or all")
        ->option_text("TYPES");
}

void AddDumpOptions(CLI::App& command, Options& options) {
    command
        .add_option(
            "--level", options.level,
            "-1: size; 1: and head; 0: and bad-block tables; 2: head and blocks; 3: and their indexes")
        ->check(completion::WholeNumber(std::numeric_limits<int>::min(), std::numeric_limits<int>::max()))
        ->option_text("N")
        ->default_str("3");
}

} // namespace diskaccess
