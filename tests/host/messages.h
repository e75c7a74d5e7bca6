#ifndef TESTS_HOST_MESSAGES_H
#define TESTS_HOST_MESSAGES_H

#include <string>

#include "host/host_layer.h"

namespace test_support {

/// Keeps what the library says on this thread. It lies in a file in memory: while it is kept nothing is allocated, so
/// that allocations may be counted, and made to fail, at the same time.
class CapturedMessages : public HostLayer {
public:
    CapturedMessages();
    ~CapturedMessages() override;

    /// All of it so far.
    std::string Text() const;

protected:
    void Message(const char* format, va_list values) override __attribute__((format(printf, 2, 0)));

private:
    int m_file;
};

/// Formats a message for nobody if its text might not end where it should. Searches say so much that formatting all of
/// it would take most of a fuzzer's time.
void FormatIfUnbounded(const char* format, va_list values) __attribute__((format(printf, 1, 0)));

/// Throws away what the library says on this thread.
class DiscardedMessages : public HostLayer {
protected:
    void Message(const char* format, va_list values) override __attribute__((format(printf, 2, 0)));
};

} // namespace test_support

#endif // TESTS_HOST_MESSAGES_H
