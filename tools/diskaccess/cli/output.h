#ifndef DISKACCESS_OUTPUT_H
#define DISKACCESS_OUTPUT_H

#include <string>

namespace diskaccess {

/// Keeps the program's output and the library's apart.
///
/// The library prints what it does on standard output. From construction on, the program's own output goes to
/// a private copy of standard output, and descriptor 1 leads into memory: there it is looked through for
/// failed reads, and shown on standard error when asked for.
class Output {
public:
    /// @param verbose show the library's messages
    explicit Output(bool verbose);
    ~Output();
    Output(const Output&) = delete;
    Output& operator=(const Output&) = delete;

    /// The program's standard output.
    int Descriptor() const { return m_own; }
    /// Writes to the program's standard output. A closed pipe is no error.
    /// @return false when nobody reads it any more
    /// @throws Failure when it cannot be written
    bool Write(const std::string& text) const;

    /// The failed reads and seeks that the library reported since the last call; shows its messages if asked
    /// for.
    size_t TakeLibraryFailures() const;

private:
    bool m_verbose;
    int m_own = -1;
    int m_library = -1;
};

/// A line on standard error, with the program's name before it.
void Complain(const std::string& line);

/// Makes sure that descriptors 0 to 2 are taken: the library refuses a device that was given descriptor 0.
void OccupyStandardDescriptors();

} // namespace diskaccess

#endif // DISKACCESS_OUTPUT_H
