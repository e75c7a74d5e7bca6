#include "host/messages.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <stdexcept>

namespace test_support {

CapturedMessages::CapturedMessages() : m_file(memfd_create("messages", MFD_CLOEXEC)) {
    if (m_file < 0) {
        throw std::runtime_error("there is no room for messages");
    }
}

CapturedMessages::~CapturedMessages() {
    close(m_file);
}

void CapturedMessages::Message(const char* format, va_list values) {
    vdprintf(m_file, format, values);
}

std::string CapturedMessages::Text() const {
    std::string text(static_cast<size_t>(lseek(m_file, 0, SEEK_END)), '\0');
    if (pread(m_file, text.data(), text.size(), 0) != static_cast<ssize_t>(text.size())) {
        throw std::runtime_error("messages cannot be read back");
    }
    return text;
}

void FormatIfUnbounded(const char* format, va_list values) {
    if (std::strchr(format, '*') != nullptr) {
        char text[512];
        std::vsnprintf(text, sizeof text, format, values);
    }
}

void DiscardedMessages::Message(const char* format, va_list values) {
    FormatIfUnbounded(format, values);
}

} // namespace test_support
