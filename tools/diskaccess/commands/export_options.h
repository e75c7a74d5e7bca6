#ifndef DISKACCESS_EXPORT_OPTIONS_H
#define DISKACCESS_EXPORT_OPTIONS_H

#include <string>
#include <vector>

#include "cli/context.h"
#include "media/exporter.h"

namespace diskaccess {

/// Whether an export goes to standard output, and to no file.
bool GoesToStandardOutput(const Options& options);

/// Refuses names that players would take for another kind of video file, unless a container was asked for.
/// @param where what names the file: "--output: "
/// @throws WrongUse
void RefuseOtherKinds(const Options& options, const std::string& name, const std::string& where);

/// The container of a file: as it was asked for, else as the file's name ends.
media::Container ContainerOf(const Options& options, const std::string& name);

/// What the options ask an export for.
media::ExportRequest RequestOf(Context& context);
/// What they ask exports for: one, or several with --split.
std::vector<media::ExportRequest> RequestsOf(Context& context);

} // namespace diskaccess

#endif // DISKACCESS_EXPORT_OPTIONS_H
