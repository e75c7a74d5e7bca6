#ifndef DISKACCESS_OUTPUT_H
#define DISKACCESS_OUTPUT_H

#include <cstddef>
#include <string>

namespace diskaccess {

/// Thrown when nobody reads the program's output any more. It ends the command, and is not an error.
struct NobodyReads {};

/// The program's standard output, buffered. A terminal gets each piece at once.
class Output {
public:
    Output();
    ~Output();
    Output(const Output&) = delete;
    Output& operator=(const Output&) = delete;

    int Descriptor() const { return m_descriptor; }
    bool IsTerminal() const { return m_bufferSize == 0; }
    /// @throws Failure when it cannot be written
    /// @throws NobodyReads when it is a pipe that was closed
    void Write(const std::string& text);
    /// Writes out what is still held.
    void Flush();

private:
    int m_descriptor; ///< a copy of standard output
    size_t m_bufferSize;
    std::string m_buffer;
};

/// A line on standard error, with the program's name before it. Names of files and other words in it may hold any byte.
void Complain(const std::string& line);

/// Makes sure that descriptors 0 to 2 are taken, so that no file that is opened later gets one of them.
void OccupyStandardDescriptors();

} // namespace diskaccess

#endif // DISKACCESS_OUTPUT_H
