#ifndef FUZZ_PROGRAM_PROGRAM_CALL_H
#define FUZZ_PROGRAM_PROGRAM_CALL_H

#include <functional>
#include <string>

#include "program/command_lines.h"

namespace fuzzing {

/// How a call of the program ended.
struct ProgramEnd {
    int exitCode = -1;
    std::string out;
    std::string err;
};

/// Runs the whole program in this process, with files in memory for what it prints. It stays unconfined, or the next call
/// could not work.
class ProgramCall {
public:
    ProgramCall();
    ~ProgramCall();
    ProgramCall(const ProgramCall&) = delete;
    ProgramCall& operator=(const ProgramCall&) = delete;

    /// @param meanwhile runs on another thread, and reads the output that there is so far; @c stopped says that the program
    ///        has ended
    using Output = std::function<std::string()>;
    using Stopped = std::function<bool()>;
    using Meanwhile = std::function<void(const Output& output, const Stopped& stopped)>;
    ProgramEnd Run(const CommandLine& line, const Meanwhile& meanwhile = nullptr);

    /// What the program that runs, or ran last, has complained of. Also for the process that this one was forked from.
    std::string Complaints() const { return Contents(m_err); }

private:
    static std::string Contents(int fd);

    int m_out;
    int m_err;
    int m_standardOutput; ///< this process's own
    int m_standardError;
};

} // namespace fuzzing

#endif // FUZZ_PROGRAM_PROGRAM_CALL_H
