#ifndef DISKACCESS_PRINTABLE_H
#define DISKACCESS_PRINTABLE_H

#include <cstddef>
#include <string>

namespace diskaccess {

/// Text from a disk or a user with everything escaped that a terminal might obey, and what is not UTF-8: "\x1b". So are marks
/// that turn the direction of text, and the backslash, "\\\\", so that an escape is never text that looks like one.
std::string Printable(const std::string& text);
/// Whether it is UTF-8 from its first byte to its last.
bool IsText(const std::string& text);
/// A text field of a disk structure, which need not be terminated.
std::string FieldText(const char* field, size_t size);

} // namespace diskaccess

#endif // DISKACCESS_PRINTABLE_H
