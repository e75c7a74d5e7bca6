#ifndef DISKACCESS_PARTITION_FILE_H
#define DISKACCESS_PARTITION_FILE_H

#include <string>

#include "disk_access.h"

namespace diskaccess {

/// What the user named: a block device or an image file, held open for reading under its own name for as long
/// as the library uses it.
class PartitionFile {
public:
    /// @throws Failure for what cannot be opened, or cannot be a partition
    explicit PartitionFile(const std::string& path);
    ~PartitionFile();
    PartitionFile(const PartitionFile&) = delete;
    PartitionFile& operator=(const PartitionFile&) = delete;

    int Descriptor() const { return m_fd; }
    bool IsBlockDevice() const { return m_isBlockDevice; }
    /// The name that the library is to open.
    PartAccess_t Access() const;

private:
    std::string m_path;
    int m_fd = -1;
    bool m_isBlockDevice = false;
};

} // namespace diskaccess

#endif // DISKACCESS_PARTITION_FILE_H
