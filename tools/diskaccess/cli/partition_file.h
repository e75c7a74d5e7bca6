#ifndef DISKACCESS_PARTITION_FILE_H
#define DISKACCESS_PARTITION_FILE_H

#include <string>

#include "disk_access.h"
#include "media/source_identity.h"

namespace diskaccess {

/// What the user named: a block device or an image file, held open for reading under its own name for as long
/// as the library uses it.
class PartitionFile {
public:
    /// @param standardOutput where the program's output goes
    /// @throws Failure for what cannot be opened, or cannot be a partition, or would be printed into
    PartitionFile(const std::string& path, int standardOutput);
    ~PartitionFile();
    PartitionFile(const PartitionFile&) = delete;
    PartitionFile& operator=(const PartitionFile&) = delete;

    int Descriptor() const { return m_fd; }
    bool IsBlockDevice() const { return m_isBlockDevice; }
    /// Tells what must not be written.
    const media::SourceIdentity& Identity() const { return m_identity; }
    /// The name that the library is to open.
    PartAccess_t Access() const;

private:
    void CheckKind();

    std::string m_path;
    int m_fd = -1;
    bool m_isBlockDevice = false;
    media::SourceIdentity m_identity;
};

} // namespace diskaccess

#endif // DISKACCESS_PARTITION_FILE_H
