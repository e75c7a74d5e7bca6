#include <filesystem>

#include "commands/commands.h"

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
    }
    return needs;
}

std::optional<Needs> NeedsOfReading(const Options& options) {
    Needs needs;
    needs.readable = WithPartsBeside(options.partition);
    needs.readable.push_back(options.passwordFile);
    needs.readable.push_back(options.signingKey);
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

/// The image is attached to a loop device, which the kernel chooses.
std::optional<Needs> NeedsOfDump(const Options& options) {
    std::optional<Needs> needs = NeedsOfReading(options);
    if (options.attach) {
        needs->readable.emplace_back("/dev");
    }
    return needs;
}

} // namespace diskaccess
