#include "render/printable.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdint>
#include <cstring>

namespace diskaccess {

namespace {

/// Bytes of the UTF-8 character that begins at @p at; 0 if none does.
size_t Utf8Length(const std::string& text, size_t at) {
    const auto byte = [&](size_t i) { return i < text.size() ? static_cast<uint8_t>(text[i]) : uint8_t{0}; };
    const uint8_t first = byte(at);
    if (first < 0x80) {
        return 1;
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
    return overlong || outside ? 0 : length;
}

/// The code of a character of @p length bytes.
uint32_t CodeOf(const std::string& text, size_t at, size_t length) {
    const uint32_t leadBits[] = {0, 0x7F, 0x1F, 0x0F, 0x07};
    uint32_t code = static_cast<uint8_t>(text[at]) & leadBits[length];
    for (size_t i = 1; i < length; ++i) {
        code = code << 6 | (static_cast<uint8_t>(text[at + i]) & 0x3Fu);
    }
    return code;
}

bool IsBetween(uint32_t code, uint32_t first, uint32_t last) {
    return code >= first && code <= last;
}

/// Characters that have no shape of their own, but change what others look like or where they stand.
bool IsControl(uint32_t code) {
    const bool control = code < 0x20 || IsBetween(code, 0x7F, 0x9F);
    const bool endsLine = code == 0x2028 || code == 0x2029;
    const bool turnsText = code == 0x61C || IsBetween(code, 0x200E, 0x200F) ||
                           IsBetween(code, 0x202A, 0x202E) || IsBetween(code, 0x2066, 0x2069);
    return control || endsLine || turnsText;
}

std::string Escaped(const std::string& bytes) {
    std::string escaped;
    for (const char byte : bytes) {
        escaped += fmt::format("\\x{:02x}", static_cast<uint8_t>(byte));
    }
    return escaped;
}

} // namespace

std::string Printable(const std::string& text) {
    std::string printable;
    for (size_t at = 0; at < text.size();) {
        const size_t length = Utf8Length(text, at);
        const std::string character = text.substr(at, std::max<size_t>(length, 1));
        if (length == 0 || IsControl(CodeOf(text, at, length))) {
            printable += Escaped(character);
        } else {
            printable += character == "\\" ? "\\\\" : character;
        }
        at += character.size();
    }
    return printable;
}

bool IsText(const std::string& text) {
    for (size_t at = 0; at < text.size();) {
        const size_t length = Utf8Length(text, at);
        if (length == 0) {
            return false;
        }
        at += length;
    }
    return true;
}

std::string FieldText(const char* field, size_t size) {
    return Printable(std::string(field, strnlen(field, size)));
}

} // namespace diskaccess
