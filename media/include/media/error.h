#ifndef MEDIA_ERROR_H
#define MEDIA_ERROR_H

#include <stdexcept>
#include <string>

namespace media {

/// Why files could not be made. What is wrong with the disk is a recordings::Problem or a recordings::Error instead.
enum class ErrorKind {
    OutputIsSource, ///< an output would be written to the source, or to what that is stored in
    OutputIsNoFile, ///< an output's name is that of a folder, a link, a device
    OutputExists,   ///< a file of an output's name is there, and is not to be replaced
    StaleSignature, ///< a signature is there that the new manifest would not fit
    OutputTwice,    ///< two outputs would get the same name
    CannotMake,     ///< the system refused to make an output
    CannotWrite,    ///< an output cannot be written, or not to its end
    NobodyReads,    ///< the output is a pipe that was closed
    CannotReadBack, ///< an output cannot be read again to hash it
    NoContainers,   ///< libavformat was not there when the library was built
    BadKey,         ///< a file holds no key for signatures
    CannotSign,     ///< libcrypto makes no signature
    BadManifest     ///< what is to be verified is no manifest, or one that names what no manifest does
};

/// Thrown when files cannot be made; none is kept then. The text says what and where, in one line, and names no option
/// of any program.
class Error : public std::runtime_error {
public:
    /// @param systemError errno, where the system refused to make an output; else 0
    Error(ErrorKind kind, const std::string& line, int systemError = 0)
        : std::runtime_error(line), m_kind(kind), m_systemError(systemError) {}

    ErrorKind Kind() const { return m_kind; }
    int SystemError() const { return m_systemError; }

private:
    ErrorKind m_kind;
    int m_systemError;
};

} // namespace media

#endif // MEDIA_ERROR_H
