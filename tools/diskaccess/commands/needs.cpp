#include <filesystem>

#include "cli/names.h"
#include "commands/commands.h"
#include "commands/export_options.h"

namespace diskaccess {

namespace {

std::string FolderOf(const std::string& path) {
    const std::string folder = std::filesystem::path(path).parent_path().string();
    return folder.empty() ? "." : folder;
}

} // namespace

std::optional<Needs> NeedsOfFind(const Options& options) {
    Needs needs;
    needs.readable = {"/dev"};
    for (const std::string& disk : options.disks) {
        const std::vector<std::string> parts = WithPartsBeside(disk);
        needs.readable.insert(needs.readable.end(), parts.begin(), parts.end());
        needs.listable.push_back(FolderOf(disk));
    }
    return needs;
}

std::optional<Needs> NeedsOfReading(const Options& options) {
    Needs needs;
    needs.readable = WithPartsBeside(options.partition);
    needs.listable = {FolderOf(options.partition)};
    needs.readable.push_back(options.passwordFile);
    needs.readable.push_back(options.signingKey);
    needs.readable.push_back(options.namesFile.empty() ? UsualNamesFile() : options.namesFile);
    if (options.askPassword) {
        needs.writable.emplace_back("/dev/tty");
    }
    return needs;
}

std::optional<Needs> NeedsOfWriting(const Options& options) {
    std::optional<Needs> needs = NeedsOfReading(options);
    needs->writable.push_back(FolderOf(options.output));
    return needs;
}

std::optional<Needs> NeedsOfExport(const Options& options) {
    if (!GoesToStandardOutput(options)) {
        return NeedsOfWriting(options);
    }
    std::optional<Needs> needs = NeedsOfReading(options);
    if (!options.manifest.empty()) {
        needs->writable.push_back(FolderOf(options.manifest));
    }
    return needs;
}

std::optional<Needs> NeedsOfTimeline(const Options& options) {
    std::optional<Needs> needs = NeedsOfReading(options);
    for (const std::string& file : {options.svg, options.html}) {
        if (!file.empty()) {
            needs->writable.push_back(FolderOf(file));
        }
    }
    return needs;
}

std::optional<Needs> NeedsOfVerify(const Options& options) {
    std::optional<Needs> needs = NeedsOfReading(options);
    needs->readable.push_back(FolderOf(options.manifest)); // the files lie beside it
    needs->readable.push_back(options.publicKey);
    return needs;
}

} // namespace diskaccess
