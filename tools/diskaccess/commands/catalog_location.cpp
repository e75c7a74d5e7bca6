#include "commands/catalog_location.h"

#include <cstdlib>
#include <filesystem>

#include "cli/failure.h"

namespace diskaccess {

namespace fs = std::filesystem;

namespace {

/// The user's data folder, as the desktop's standard has it.
fs::path DataFolder() {
    const char* const data = std::getenv("XDG_DATA_HOME");
    if (data != nullptr && *data == '/') {
        return fs::path(data) / "diskaccess";
    }
    const char* const home = std::getenv("HOME");
    if (home == nullptr || *home == '\0') {
        throw Failure("there is no home folder to keep the catalogue in; give --database FILE");
    }
    return fs::path(home) / ".local" / "share" / "diskaccess";
}

void Make(const fs::path& folder) {
    std::error_code error;
    fs::create_directories(folder, error);
    if (error) {
        throw Failure(folder.string() + ": cannot be made: " + error.message() + "; give --database FILE");
    }
}

} // namespace

std::string CatalogLocation(const Options& options) {
    if (!options.database.empty()) {
        return options.database;
    }
    const fs::path folder = DataFolder();
    if (options.action == "add") {
        Make(folder);
    }
    return folder / "catalog.db";
}

} // namespace diskaccess
