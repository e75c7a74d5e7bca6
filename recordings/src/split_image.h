#ifndef RECORDINGS_SPLIT_IMAGE_H
#define RECORDINGS_SPLIT_IMAGE_H

#include <memory>
#include <string>
#include <vector>

#include "file_source.h"

namespace recordings {

/// The files of a split image, beginning with @p first: "disk.001", "disk.002", ... or "disk.aa", "disk.ab", ...
/// @return @p first alone, where it does not have the name of a first part or no other part is beside it
/// @throws Error (PartMissing) when a later part is there, but not the one before it
std::vector<std::string> PartsOfImage(const std::string& first);

/// Files one after the other, as one source with the name of the first.
std::unique_ptr<Source> JoinFiles(std::vector<std::unique_ptr<FileSource>> files);

} // namespace recordings

#endif // RECORDINGS_SPLIT_IMAGE_H
