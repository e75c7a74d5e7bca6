#ifndef DISKACCESS_EXPORT_SPLIT_H
#define DISKACCESS_EXPORT_SPLIT_H

#include <string>
#include <vector>

#include "cli/context.h"
#include "media/exporter.h"

namespace diskaccess {

/// Makes several exports of one: one for each journey, or each channel, that it meets; itself when it meets none.
/// @param kind "journey" or "channel"
std::vector<media::ExportRequest> Split(Context& context, const media::ExportRequest& whole,
                                        const std::string& kind);

} // namespace diskaccess

#endif // DISKACCESS_EXPORT_SPLIT_H
