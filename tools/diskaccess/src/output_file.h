#ifndef DISKACCESS_OUTPUT_FILE_H
#define DISKACCESS_OUTPUT_FILE_H

#include <cstdint>
#include <memory>
#include <string>

namespace diskaccess {

/// A file that gets its name only when it is whole.
///
/// It is written beside its place as NAME.part, and renamed at the end; an export that is given up removes it.
/// What is written is hashed on the way, unless whoever writes also seeks: then Finish() reads it again.
class OutputFile {
public:
    /// @param replace whether a file of that name may be replaced
    /// @throws Failure when it exists already, or cannot be made
    OutputFile(std::string path, bool replace);
    ~OutputFile();
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    /// @throws Failure when the disk is full
    void Write(const void* data, size_t size);
    /// Moves to a place written before, or to its end; for containers that mend their headers.
    int64_t Seek(int64_t offset, int whence);

    /// Writes everything out and gives the file its name.
    void Finish();
    /// The finished file's SHA-256, in hexadecimal.
    const std::string& Sha256() const { return m_sha256; }
    uint64_t Size() const { return m_size; }
    const std::string& Path() const { return m_path; }

private:
    void Flush();
    void HashAgain();

    struct Hash;
    std::string m_path;
    std::string m_partPath;
    int m_fd = -1;
    bool m_replace;
    bool m_finished = false;
    bool m_seeked = false;
    std::string m_buffer;
    uint64_t m_size = 0;
    std::unique_ptr<Hash> m_hash;
    std::string m_sha256;
};

} // namespace diskaccess

#endif // DISKACCESS_OUTPUT_FILE_H
