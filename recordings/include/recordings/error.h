#ifndef RECORDINGS_ERROR_H
#define RECORDINGS_ERROR_H

#include <stdexcept>
#include <string>

#include "recordings/export.h"

namespace recordings {

/// Why something could not be done at all. What is damaged, but can be passed, is a Problem instead.
enum class ErrorKind {
    CannotOpen,   ///< the system refused to open the source, or the source is no file and no block device
    PartMissing,  ///< a part of a split image is not there
    NotSupported, ///< this library was built without what it takes to read it
    SeveralPartitions, ///< the disk holds several partitions of recorders
    NoSuchPartition,   ///< the disk does not hold the partition that was asked for, or it is no recorder's
    Empty,             ///< the source holds no byte
    CutOff,            ///< the source ends inside the partition head
    HeadUnreadable,    ///< the partition head cannot be read
    NotAPartition,     ///< what stands at the start is no partition head
    WrongDiskType,     ///< the partition head is not that of the disk type that was given
    BadGeometry,       ///< the head states no blocks, or blocks that cannot hold their own parts
    Cancelled,         ///< the caller's watch ended the work
    OutOfMemory        ///< memory is short
};

/// Thrown when something cannot be done. The text says what and where, in one line, and names no option of any
/// program.
class RECORDINGS_API Error : public std::runtime_error {
public:
    /// @param systemError errno, where the system gave one; else 0
    Error(ErrorKind kind, const std::string& line, int systemError = 0)
        : std::runtime_error(line), m_kind(kind), m_systemError(systemError) {}

    ErrorKind Kind() const { return m_kind; }
    int SystemError() const { return m_systemError; }

private:
    ErrorKind m_kind;
    int m_systemError;
};

} // namespace recordings

#endif // RECORDINGS_ERROR_H
