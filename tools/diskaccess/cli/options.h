#ifndef DISKACCESS_OPTIONS_H
#define DISKACCESS_OPTIONS_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "render/renderer.h"

namespace CLI {
class App;
}

namespace diskaccess {

/// The options of all commands, as typed. query.h says what they mean.
struct Options {
    std::vector<std::string> arguments; ///< all that was typed after the program's name
    std::string partition;
    std::optional<uint32_t> partitionNumber; ///< in the partition table of a whole disk
    std::string zone;
    Format format = Format::Text;
    bool verbose = false;

    // timeline
    std::string svg;
    std::string html;

    // find
    std::vector<std::string> disks;

    // commands that join recordings
    std::string silence = "5m";

    // commands that search the disk
    int64_t skew = 0; ///< seconds that the recorder's clock was ahead of true time
    std::string clockCheck;
    std::optional<int> diskType;
    std::string passwordFile;
    std::string namesFile;
    bool askPassword = false;
    std::string from;
    std::string to;
    std::string channels = "all";
    std::string alarm;

    // list
    bool mix = false;

    // check
    bool full = false;
    bool decode = false;

    // play
    bool iframes = false;
    bool backward = false;
    std::optional<uint32_t> unit;
    std::string record;
    std::string seek;

    // still
    std::string at;
    bool sheet = false;
    std::string every;
    uint32_t columns = 8;

    // export
    std::string event;
    std::string around = "30s";
    std::optional<uint32_t> journey;
    std::string output;
    std::string container;
    std::string audio;
    bool raw = false;
    bool noClock = false;
    bool noAudio = false;
    bool aac = false;
    std::string split;
    std::string rangeList;
    bool force = false;

    // report
    uint32_t pictures = 12; ///< of events

    // view
    uint16_t port = 0; ///< 0: any free one
    bool noBrowser = false;
    std::string exportFolder = ".";
    // commands that write files of evidence
    std::string caseName;
    std::string operatorName;
    std::string note;
    std::string signingKey;
    bool hashSource = false;

    // verify
    std::string manifest; ///< of export too
    std::string publicKey;
    // catalog
    std::string action;
    std::vector<std::string> subjects; ///< sources to add, or numbers of disks to remove
    std::string database;
    uint32_t jobs = 0; ///< 0: as many as the machine has processors
    std::string vehicle;

    // dump
    int level = 3;
};

/// What --help ends with: how times are typed, and the exit status.
extern const char* const kHelpFooter;

// Each of these has a command accept options, and lead to @p options what is typed.

void AddPartition(CLI::App& command, Options& options);
/// To see what the program gave up. AddPartition() brings it along.
void AddVerboseOption(CLI::App& command, Options& options);
/// Which partition of a whole disk.
void AddPartitionNumber(CLI::App& command, Options& options);
/// Any number of disks.
void AddDisks(CLI::App& command, Options& options);
void AddZoneOptions(CLI::App& command, Options& options);
void AddFormatOptions(CLI::App& command, Options& options);
/// --format for a command that has text only.
void AddTextFormatOption(CLI::App& command, Options& options);
/// What it takes to read a disk right: disk type, clock skew, password.
void AddDiskOptions(CLI::App& command, Options& options);
void AddRangeOptions(CLI::App& command, Options& options);
void AddChannelOption(CLI::App& command, Options& options);
void AddAlarmOption(CLI::App& command, Options& options);

/// Seconds that the recorder's clock was ahead.
void AddSkewOption(CLI::App& command, Options& options);
void AddTimelineOptions(CLI::App& command, Options& options);
void AddSilenceOption(CLI::App& command, Options& options);
void AddListOptions(CLI::App& command, Options& options);
void AddCheckOptions(CLI::App& command, Options& options);
void AddPlayOptions(CLI::App& command, Options& options);
void AddStillOptions(CLI::App& command, Options& options);
void AddExportOptions(CLI::App& command, Options& options);
void AddReportOptions(CLI::App& command, Options& options);
void AddViewOptions(CLI::App& command, Options& options);
void AddExtractOptions(CLI::App& command, Options& options);
/// What the manifest is to tell, and who signs it.
void AddEvidenceOptions(CLI::App& command, Options& options);
void AddVerifyOptions(CLI::App& command, Options& options);
void AddCatalogOptions(CLI::App& command, Options& options);
void AddDumpOptions(CLI::App& command, Options& options);

} // namespace diskaccess

#endif // DISKACCESS_OPTIONS_H
