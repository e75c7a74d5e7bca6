#ifndef DISKACCESS_INTERRUPTION_H
#define DISKACCESS_INTERRUPTION_H

namespace diskaccess {

/// Keeps SIGINT and SIGTERM from ending the program while it lives. The work asks whether one has come, and cleans up.
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
    Handler m_atInterrupt;
    Handler m_atTermination;
};

} // namespace diskaccess

#endif // DISKACCESS_INTERRUPTION_H
