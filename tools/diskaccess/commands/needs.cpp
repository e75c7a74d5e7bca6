#include <filesystem>

#include "catalog/database.h"
#include "cli/names.h"
#include "commands/catalog_location.h"
#include "commands/commands.h"
#include "commands/export_options.h"

namespace diskaccess {

namespace {

std::string FolderOf(const std::string& path) {
    const std::string folder = std::filesystem::path(path).parent_path().string();
    return folder.empty() ? "." : folder;
}

void AddSource(Needs& needs, const std::string& source) {
    const std::vector<std::string> parts = WithPartsBeside(source);
    needs.readable.insert(needs.readable.end(), parts.begin(), parts.end());
    needs.listable.push_back(FolderOf(source));
}

/// What tells how a disk is to be read.
void AddSettings(Needs& needs, const Options& options) {
    needs.readable.push_back(options.passwordFile);
    needs.readable.push_back(options.namesFile.empty() ? UsualNamesFile() : options.namesFile);
    if (options.askPassword) {
        needs.writable.emplace_back("/dev/tty");
    }
}

/// What it takes to find a server by its name, and to be known to it.
std::vector<std::string> NetworkFiles() {
    return {"/etc/hosts",  "/etc/host.conf", "/etc/resolv.conf", "/etc/nsswitch.conf", "/etc/gai.conf",
            "/etc/passwd", "/etc/services",  "/etc/krb5.conf",   "/etc/krb5.conf.d"};
}

} // namespace

std::optional<Needs> NeedsOfFind(const Options& options) {
    Needs needs;
    needs.readable = {"/dev"};
    for (const std::string& disk : options.disks) {
        AddSource(needs, disk);
    }
    return needs;
}

std::optional<Needs> NeedsOfReading(const Options& options) {
    Needs needs;
    AddSource(needs, options.partition);
    AddSettings(needs, options);
    needs.readable.push_back(options.signingKey);
    return needs;
}

std::optional<Needs> NeedsOfWriting(const Options& options) {
    std::optional<Needs> needs = NeedsOfReading(options);
    needs->writable.push_back(FolderOf(options.output));
    return needs;
}

std::optional<Needs> NeedsOfExport(const Options& options) {
    if (!GoesToStandardOutput(options)) {
        std::optional<Needs> needs = NeedsOfWriting(options);
        needs->readable.push_back(options.rangeList);
        return needs;
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
    needs->readable.push_back(options.manifest);           // a link may lead elsewhere
    needs->readable.push_back(options.publicKey);
    return needs;
}

std::optional<Needs> NeedsOfCatalog(const Options& options) {
    Needs needs;
    AddSettings(needs, options);
    if (options.action == "add") {
        for (const std::string& source : options.subjects) {
            AddSource(needs, source);
        }
    }
    const std::string location = CatalogLocation(options);
    if (!catalog::IsServer(location)) {
        needs.writable.push_back(FolderOf(location)); // the journal lies beside the file
        return needs;
    }
    needs.network = true;
    for (const auto& files : {NetworkFiles(), catalog::FilesOfServer(location)}) {
        needs.readable.insert(needs.readable.end(), files.begin(), files.end());
    }
    return needs;
}

} // namespace diskaccess
