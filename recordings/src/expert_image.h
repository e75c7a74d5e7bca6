#ifndef RECORDINGS_EXPERT_IMAGE_H
#define RECORDINGS_EXPERT_IMAGE_H

#include <memory>

#include "file_source.h"

namespace recordings {

/// Whether a file is a part of an image in the Expert Witness format, as E01 files are.
bool IsExpertImage(const Source& file);

/// Opens such an image by its first part.
/// @throws Error when it cannot be read, or this library was built without libewf
std::unique_ptr<Source> OpenExpertImage(std::unique_ptr<FileSource> first);

} // namespace recordings

#endif // RECORDINGS_EXPERT_IMAGE_H
