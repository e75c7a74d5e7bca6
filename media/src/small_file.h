#ifndef MEDIA_SRC_SMALL_FILE_H
#define MEDIA_SRC_SMALL_FILE_H

#include <cstddef>
#include <string>

#include "media/error.h"

namespace media {

/// Opens a file for reading. A FIFO, a device or a folder is refused at once: nothing is waited for.
/// @param folder descriptor of the folder that relative paths are below; AT_FDCWD: the current one
/// @param name as messages have it
/// @param flags beside those that every file is opened with
/// @return its descriptor
/// @throws Error of that kind
int OpenRegularFile(int folder, const std::string& path, const std::string& name, int flags, ErrorKind kind);

/// All bytes of a file.
/// @param most bytes that it may have
/// @throws Error of that kind
std::string ReadSmallFile(const std::string& path, size_t most, ErrorKind kind);

} // namespace media

#endif // MEDIA_SRC_SMALL_FILE_H
