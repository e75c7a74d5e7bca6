#ifndef DISKACCESS_EXPORT_OPTIONS_H
#define DISKACCESS_EXPORT_OPTIONS_H

#include <vector>

#include "cli/context.h"
#include "media/exporter.h"

namespace diskaccess {

/// Whether an export goes to standard output, and to no file.
bool GoesToStandardOutput(const Options& options);

/// What the options ask exports for: one, or several with --split.
std::vector<media::ExportRequest> RequestsOf(Context& context);

} // namespace diskaccess

#endif // DISKACCESS_EXPORT_OPTIONS_H
