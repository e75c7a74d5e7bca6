#ifndef RECORDINGS_FILE_SOURCE_H
#define RECORDINGS_FILE_SOURCE_H

#include <string>
#include <vector>

#include "recordings/source.h"

namespace recordings {

/// A block device or a file, as it is.
class FileSource : public Source {
public:
    /// @throws Error (CannotOpen)
    explicit FileSource(std::string path);
    ~FileSource() override;
    FileSource(const FileSource&) = delete;
    FileSource& operator=(const FileSource&) = delete;

    const std::string& Name() const override { return m_path; }
    uint64_t Size() const override { return m_size; }
    bool IsBlockDevice() const override { return m_isBlockDevice; }
    std::vector<int> Descriptors() const override { return {m_fd}; }
    size_t Read(uint64_t offset, void* data, size_t size) const override;
    void WillNeed(uint64_t offset, size_t size) const override;

    int Descriptor() const { return m_fd; }

private:
    void Examine();

    std::string m_path;
    int m_fd = -1;
    uint64_t m_size = 0;
    bool m_isBlockDevice = false;
};

} // namespace recordings

#endif // RECORDINGS_FILE_SOURCE_H
