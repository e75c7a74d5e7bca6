#ifndef DISKACCESS_EXPORT_LIST_H
#define DISKACCESS_EXPORT_LIST_H

#include <string>
#include <vector>

#include "cli/context.h"
#include "media/exporter.h"

namespace diskaccess {

/// What a row of a list asks for, besides what the options ask of all. Lists may be long: it is small.
struct ListedExport {
    std::string row; ///< "FILE.csv: row 3", for messages
    recordings::TimeRange range;
    recordings::ChannelSet channels;
    std::string name; ///< of the file
    media::Container container = media::Container::Matroska;
    std::string caseName; ///< empty: that of all
    std::string note;     ///< the same

    /// @param whole what the options ask for
    media::ExportRequest RequestOf(const media::ExportRequest& whole) const;
};

/// What the rows of --list ask for. All of them are looked at.
/// @param whole what the options ask for
/// @throws Failure that names the first row that is wrong
std::vector<ListedExport> ReadListedExports(Context& context, const media::ExportRequest& whole);

/// What came of looking at the places of what a list asks for.
struct ListedWork {
    std::vector<ListedExport> open;    ///< what is to be made
    std::vector<std::string> failures; ///< a line for each row that cannot be
    size_t rows = 0;                   ///< of the list
    size_t skipped = 0;                ///< rows whose files are there already
    bool lost = false;                 ///< of what is there already, something is missing
};

/// Looks at the places of all files before the first is begun, and skips those that are what a row asks for.
/// @param whole what the options ask for
ListedWork LookAtPlaces(Context& context, const media::ExportRequest& whole,
                        std::vector<ListedExport> exports);

} // namespace diskaccess

#endif // DISKACCESS_EXPORT_LIST_H
