#ifndef DISKACCESS_FAILURE_H
#define DISKACCESS_FAILURE_H

#include <stdexcept>

namespace diskaccess {

/// How the program ends.
enum ExitCode {
    kDone = 0,     ///< done; finding nothing is not a failure
    kFailed = 1,   ///< not done, or only in part; a line on standard error says why
    kWrongUse = 2, ///< the command line is wrong
    kDataLost = 3, ///< done, but something that was recorded is missing; each loss is named on standard error
};

/// Ends a command: one line that says what, where, and what to do.
class Failure : public std::runtime_error {
public:
    explicit Failure(const std::string& line, ExitCode code = kFailed)
        : std::runtime_error(line), m_code(code) {}
    ExitCode Code() const { return m_code; }

private:
    ExitCode m_code;
};

/// A command line that cannot be carried out.
class WrongUse : public Failure {
public:
    explicit WrongUse(const std::string& line) : Failure(line, kWrongUse) {}
};

} // namespace diskaccess

#endif // DISKACCESS_FAILURE_H
