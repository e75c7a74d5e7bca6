#ifndef DISKACCESS_LIBRARY_MESSAGES_H
#define DISKACCESS_LIBRARY_MESSAGES_H

#include <cstddef>

namespace diskaccess {

/// Keeps what the library prints out of the program's output.
///
/// The library prints what it does on standard output. For as long as this lives, descriptor 1 leads into memory: what is
/// printed there is searched for failed reads, and shown on standard error when asked for.
class LibraryMessages {
public:
    /// @param show whether the messages are shown
    explicit LibraryMessages(bool show);
    ~LibraryMessages();
    LibraryMessages(const LibraryMessages&) = delete;
    LibraryMessages& operator=(const LibraryMessages&) = delete;

    /// The failed reads and seeks that the library reported since the last call; shows its messages if asked
    /// for.
    size_t TakeFailures() const;

private:
    bool m_show;
    int m_standardOutput = -1; ///< a copy
    int m_messages = -1;
};

} // namespace diskaccess

#endif // DISKACCESS_LIBRARY_MESSAGES_H
