#ifndef DISKACCESS_INTERRUPTION_H
#define DISKACCESS_INTERRUPTION_H

#include <array>

namespace diskaccess {

/// Keeps SIGINT, SIGTERM and SIGHUP from ending the program while it lives. The work asks whether one has come, and cleans
/// up. One that is ignored, as nohup has it for SIGHUP, stays so.
class Interruption {
public:
    Interruption();
    ~Interruption();
    Interruption(const Interruption&) = delete;
    Interruption& operator=(const Interruption&) = delete;

    /// Whether such a signal has come.
    static bool Asked();

private:
    using Handler = void (*)(int);
    std::array<Handler, 3> m_before;
};

} // namespace diskaccess

#endif // DISKACCESS_INTERRUPTION_H
