#include "render/printable.h"

#include <fmt/format.h>

#include <cstdint>
#include <cstring>

namespace diskaccess {

namespace {

/// Bytes of the UTF-8 character that begins at @p at, 0 if none does or if it is a control character.
size_t Utf8Length(const std::string& text, size_t at) {
    const auto byte = [&](size_t i) { return i < text.size() ? static_cast<uint8_t>(text[i]) : uint8_t{0}; };
    const uint8_t first = byte(at);
    if (first < 0x80) {
        return first >= 0x20 && first != 0x7F ? 1 : 0;
    }
    const size_t length = first >= 0xC2 && first < 0xE0   ? 2
                          : first >= 0xE0 && first < 0xF0 ? 3
                          : first >= 0xF0 && first < 0xF5 ? 4
                                                          : 0;
    for (size_t i = 1; i < length; ++i) {
        if ((byte(at + i) & 0xC0) != 0x80) {
            return 0;
        }
    }
    const uint8_t second = byte(at + 1);
    const bool overlong = (first == 0xE0 && second < 0xA0) || (first == 0xF0 && second < 0x90);
    const bool outside = (first == 0xED && second >= 0xA0) || (first == 0xF4 && second >= 0x90);
    const bool control = first == 0xC2 && second < 0xA0;
    return overlong || outside || control ? 0 : length;
}

} // namespace

std::string Printable(const std::string& text) {
    std::string printable;
    for (size_t at = 0; at < text.size();) {
        const size_t length = Utf8Length(text, at);
        if (length == 0) {
            printable += fmt::format("\\x{:02x}", static_cast<uint8_t>(text[at]));
            ++at;
        } else {
            printable += text.substr(at, length);
            at += length;
        }
    }
    return printable;
}

std::string FieldText(const char* field, size_t size) {
    return Printable(std::string(field, strnlen(field, size)));
}

} // namespace diskaccess
