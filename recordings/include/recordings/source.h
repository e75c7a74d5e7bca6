#ifndef RECORDINGS_SOURCE_H
#define RECORDINGS_SOURCE_H

/// @file source.h
/// Where the bytes of a partition come from.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "recordings/export.h"

namespace recordings {

/// The bytes of a partition, read-only. Several threads may read one source at once.
class RECORDINGS_API Source {
public:
    virtual ~Source() = default;

    /// The name it was opened by.
    virtual const std::string& Name() const = 0;
    /// Bytes.
    virtual uint64_t Size() const = 0;
    virtual bool IsBlockDevice() const { return false; }
    /// Reads bytes @p offset to @p offset + @p size - 1.
    /// @return how many could be read from @p offset on: fewer at the source's end, or where the disk fails
    virtual size_t Read(uint64_t offset, void* data, size_t size) const = 0;
    /// Says that bytes will be read soon. A hint: it may do nothing, and never fails.
    virtual void WillNeed(uint64_t offset, size_t size) const {
        static_cast<void>(offset);
        static_cast<void>(size);
    }

    /// Reads all of the bytes.
    /// @return false when not all of them can be read; what is in @p data is then undefined
    bool ReadWhole(uint64_t offset, void* data, size_t size) const {
        return Read(offset, data, size) == size;
    }
};

/// Opens a block device or an image file for reading only. It is held open until the source is destroyed, so
/// that it stays the same file when its name is given to another one.
/// @throws Error (CannotOpen) for what cannot be opened, and for a directory, a pipe or a terminal
RECORDINGS_API std::unique_ptr<Source> OpenSource(const std::string& path);

} // namespace recordings

#endif // RECORDINGS_SOURCE_H
