#ifndef DISKACCESS_LIBRARY_MESSAGES_H
#define DISKACCESS_LIBRARY_MESSAGES_H

namespace diskaccess {

/// Keeps what the library prints out of the program's output.
///
/// The library prints what it does on standard output. For as long as this lives, descriptor 1 leads into memory.
class LibraryMessages {
public:
    LibraryMessages();
    ~LibraryMessages();
    LibraryMessages(const LibraryMessages&) = delete;
    LibraryMessages& operator=(const LibraryMessages&) = delete;

private:
    int m_standardOutput = -1; ///< a copy
    int m_messages = -1;
};

} // namespace diskaccess

#endif // DISKACCESS_LIBRARY_MESSAGES_H
