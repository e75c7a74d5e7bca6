#ifndef DISKACCESS_INTERRUPTION_H
#define DISKACCESS_INTERRUPTION_H

namespace diskaccess {

/// Has SIGINT and SIGTERM end the work at its next step, for as long as it lives: what was begun is then removed.
class Interruption {
public:
    Interruption();
    ~Interruption();
    Interruption(const Interruption&) = delete;
    Interruption& operator=(const Interruption&) = delete;

    /// @throws Failure when such a signal has come
    static void EndIfAsked();

private:
    using Handler = void (*)(int);
    Handler m_atInterrupt;
    Handler m_atTermination;
};

} // namespace diskaccess

#endif // DISKACCESS_INTERRUPTION_H
