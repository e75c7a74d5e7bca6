#ifndef DISK_ACCESS_FORMAT_FIELD_TEXT_H
#define DISK_ACCESS_FORMAT_FIELD_TEXT_H

#include <cstddef>
#include <cstring>

namespace disk_access {

/// A NUL-terminated copy of a text field. The field itself may have no NUL.
template <size_t Size>
struct FieldText {
    explicit FieldText(const char (&field)[Size]) {
        std::memcpy(chars, field, Size);
        chars[Size] = '\0';
    }
    char chars[Size + 1];
};

} // namespace disk_access

#endif // DISK_ACCESS_FORMAT_FIELD_TEXT_H
