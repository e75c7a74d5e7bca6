#ifndef MEDIA_SRC_OPENED_FILE_H
#define MEDIA_SRC_OPENED_FILE_H

#include <cstdint>
#include <string>

#include "recordings/source.h"

namespace media {

/// A file that is held open and read as it is, whatever its name says.
class OpenedFile : public recordings::Source {
public:
    /// @param folder descriptor of the folder that the file lies in
    /// @param name its name there; a symbolic link is refused
    /// @throws Error (CannotReadBack)
    OpenedFile(int folder, const std::string& name);
    ~OpenedFile() override;
    OpenedFile(const OpenedFile&) = delete;
    OpenedFile& operator=(const OpenedFile&) = delete;

    const std::string& Name() const override { return m_name; }
    uint64_t Size() const override { return m_size; }
    size_t Read(uint64_t offset, void* data, size_t size) const override;
    int Descriptor() const { return m_file; }

private:
    std::string m_name;
    int m_file;
    uint64_t m_size;
};

} // namespace media

#endif // MEDIA_SRC_OPENED_FILE_H
