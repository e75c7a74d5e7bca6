#ifndef TESTS_SUPPORT_RUN_PROGRAM_H
#define TESTS_SUPPORT_RUN_PROGRAM_H

#include <cstdint>
#include <string>
#include <vector>

namespace test_support {

/// How a program run ended.
struct ProgramResult {
    int exitCode = -1; ///< 128 + N when it died of signal N
    std::string out;
    std::string err;
    uint64_t memoryPeak = 0; ///< bytes of memory that it held at most
};

struct ProgramSetting {
    std::vector<std::string> environment; ///< NAME=VALUE, added to this process's
    std::string input;                    ///< standard input
    bool closeStandardInput = false;      ///< start without descriptor 0
    bool closedPipe = false;              ///< standard output is a pipe that nobody reads
    /// Run as this user, when not 0 and this process is root. A build that counts what tests reach then says on standard
    /// error that this user cannot write the counters: that is left out of the result.
    unsigned int userId = 0;
};

ProgramResult RunProgram(const std::vector<std::string>& command, const ProgramSetting& setting = {});

/// Runs a program at a terminal of its own, and types @p answer once it has shown @p prompt.
/// @return what the terminal showed, as its output
ProgramResult RunAtTerminal(const std::vector<std::string>& command, const std::string& prompt,
                            const std::string& answer);

/// What a program left of its terminal when it was ended.
struct TerminalEnd {
    int exitCode = -1;       ///< as in ProgramResult
    bool echoWasOff = false; ///< at the prompt
    bool echoIsOn = false;   ///< at the end
};

/// Runs a program at a terminal of its own, waits for @p prompt and for the terminal to show no typing, types @p keys, and
/// sends it @p signal unless that is 0.
TerminalEnd EndAtTerminal(const std::vector<std::string>& command, const std::string& prompt,
                          const std::string& keys, int signal);

} // namespace test_support

#endif // TESTS_SUPPORT_RUN_PROGRAM_H
