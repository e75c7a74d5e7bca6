#ifndef MEDIA_SOURCE_IDENTITY_H
#define MEDIA_SOURCE_IDENTITY_H

#include <sys/stat.h>

#include <filesystem>
#include <set>
#include <utility>
#include <vector>

namespace media {

/// What must never be written: the source itself under any of its names, and whatever it is stored in.
///
/// An image file is known by its inode. A block device is known by its number; with it belong the whole disk that a
/// partition lies on, the devices that a mapped device is made of, and the files that loop devices show. The same holds
/// for the device that has an image file's file system.
class SourceIdentity {
public:
    /// @param source descriptor of the opened source; what is known of it holds while that stays open
    /// @param kernel where the kernel tells of its devices
    explicit SourceIdentity(int source, std::filesystem::path kernel = "/sys");
    /// @param sources descriptors of all that the source's bytes come from: the parts of a split image, for one
    explicit SourceIdentity(const std::vector<int>& sources, std::filesystem::path kernel = "/sys");

    /// Whether writing to a file would write to the source.
    bool Includes(const struct stat& file) const;

private:
    std::filesystem::path EntryOf(dev_t device) const;
    void AddSource(int source);
    void Add(const struct stat& file);
    void AddDevice(dev_t device);
    void AddDeviceOf(const std::filesystem::path& entry);
    void AddLoopFileOf(const std::filesystem::path& entry);
    void AddLoopFile(int source);

    std::filesystem::path m_kernel;
    std::set<std::pair<dev_t, ino_t>> m_files;
    std::set<dev_t> m_devices;
};

} // namespace media

#endif // MEDIA_SOURCE_IDENTITY_H
