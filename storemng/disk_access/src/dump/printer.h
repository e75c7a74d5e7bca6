#ifndef DISK_ACCESS_DUMP_PRINTER_H
#define DISK_ACCESS_DUMP_PRINTER_H

#include <cstdint>

namespace disk_access {

/// The caller's print function, and its context. Values pass through its "..." without conversion: because of
/// the attribute, the compiler compares every format with the sizes of its values.
struct Printer {
    int (*print)(void* ctx, const char* format, ...) __attribute__((format(printf, 2, 3)));
    void* ctx;

    /// Passes text as the format itself.
    void Text(const char* text) const {
        int (*const unchecked)(void*, const char*, ...) = print;
        unchecked(ctx, text);
    }
};

/// An unsigned field of the disk as the int that %d needs.
constexpr int Decimal(uint32_t field) {
    return static_cast<int>(field);
}

} // namespace disk_access

#endif // DISK_ACCESS_DUMP_PRINTER_H
