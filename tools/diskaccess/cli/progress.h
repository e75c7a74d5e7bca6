#ifndef DISKACCESS_PROGRESS_H
#define DISKACCESS_PROGRESS_H

#include <chrono>
#include <cstdint>
#include <string>

namespace diskaccess {

/// A line on a terminal that says how far a long piece of work has come, its rate and the time left. Nothing
/// is shown in the first second, nor when standard error is not a terminal.
class Progress {
public:
    /// @param what "exporting"
    explicit Progress(std::string what);
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    /// Called again and again while the work is done.
    /// @param done  0 to 1
    /// @param bytes worked through so far; 0: not counted
    void Show(double done, uint64_t bytes);
    /// Takes the line away, so that something else can be printed.
    void Hide();

private:
    using Clock = std::chrono::steady_clock;

    std::string m_what;
    bool m_terminal;
    bool m_shown = false;
    Clock::time_point m_begin = Clock::now();
    Clock::time_point m_next;
};

/// "exporting  42 %  130.5 MiB/s  0:12 left"; without a rate where bytes are not counted
std::string ProgressText(const std::string& what, double done, uint64_t bytes, double seconds);

} // namespace diskaccess

#endif // DISKACCESS_PROGRESS_H
