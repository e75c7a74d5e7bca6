#ifndef DISKACCESS_DURATION_H
#define DISKACCESS_DURATION_H

#include <cstdint>
#include <string>

namespace diskaccess {

/// Reads a length of time: "5m", "90s", "1h", "2d", or seconds.
/// @param option what it was given by, for the error
/// @throws WrongUse
uint32_t ReadDuration(const std::string& text, const std::string& option);

} // namespace diskaccess

#endif // DISKACCESS_DURATION_H
