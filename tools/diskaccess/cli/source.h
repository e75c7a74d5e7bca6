#ifndef DISKACCESS_SOURCE_H
#define DISKACCESS_SOURCE_H

#include <memory>

#include "cli/partition_file.h"
#include "recordings/source.h"

namespace diskaccess {

/// Reads the file that is held open, even if its name is given to another one. Messages name it as the user did.
/// @param file must outlive the source
std::unique_ptr<recordings::Source> SourceOf(const PartitionFile& file, const std::string& name);

} // namespace diskaccess

#endif // DISKACCESS_SOURCE_H
