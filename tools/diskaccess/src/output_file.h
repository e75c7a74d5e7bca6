#ifndef DISKACCESS_OUTPUT_FILE_H
#define DISKACCESS_OUTPUT_FILE_H

#include <cstdint>
#include <memory>
#include <string>

#include "output_place.h"

namespace diskaccess {

/// A file that gets its name only when it is whole.
///
/// Until then it bears a name that nobody can foresee, in the folder that it is to lie in. Call Complete(), TakeName()
/// and Keep(), in this order; an object that goes before Keep() leaves nothing, and what bore the name before bears it
/// again. What is written is hashed on the way, unless Seek() is used too: then Complete() reads it again.
class OutputFile {
public:
    /// @param rules must stay as long as the object does
    /// @throws Failure when the place is taken, or the file cannot be made
    OutputFile(std::string path, const OutputRules& rules);
    ~OutputFile();
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    /// @throws Failure when the disk is full
    void Write(const void* data, size_t size);
    /// Moves to a place written before, or to its end; for containers that mend their headers.
    int64_t Seek(int64_t offset, int whence);

    /// Writes everything out. Sha256() and Size() hold from then on.
    void Complete();
    /// Gives the file its name. The place is looked at again: what may not be replaced may have come there meanwhile.
    /// @throws Failure when it has
    void TakeName();
    /// Makes the name final: what was replaced is gone.
    void Keep();

    /// The file's SHA-256, in hexadecimal.
    const std::string& Sha256() const { return m_sha256; }
    uint64_t Size() const { return m_size; }
    const std::string& Path() const { return m_place.Path(); }

private:
    /// How far the file has come.
    enum class State {
        Temporary, ///< under its temporary name
        Named,     ///< under its own name, which was free
        Exchanged, ///< under its own name; what was replaced bears the temporary one
        Kept,      ///< under its own name for good
    };

    void Make();
    void Flush();
    void HashAgain();
    [[noreturn]] void CannotBeWritten(int error) const;
    bool TakeFreeName();
    bool LinkToFreeName();
    bool RenameToHeldName();
    void Replace();
    void GiveNameBack();
    void RemoveTemporary() const;
    bool IsThisFile(const std::string& name) const;

    struct Hash;
    OutputPlace m_place;
    const OutputRules& m_rules;
    std::string m_temporary;
    State m_state = State::Temporary;
    int m_fd = -1;
    bool m_seeked = false;
    std::string m_buffer;
    dev_t m_device = 0;
    ino_t m_inode = 0;
    uint64_t m_size = 0;
    std::unique_ptr<Hash> m_hash;
    std::string m_sha256;
};

} // namespace diskaccess

#endif // DISKACCESS_OUTPUT_FILE_H
