#ifndef DISKACCESS_PASSWORD_H
#define DISKACCESS_PASSWORD_H

#include <optional>
#include <string>

namespace diskaccess {

/// The disk's password, if the user gave one: typed at a prompt, the first line of a file, or in the
/// environment variable DISKACCESS_PASSWORD, in this order. Never from the command line itself, which others
/// can see.
/// @throws Failure when it was to be given and could not be read
std::optional<std::string> GivenPassword(const std::string& file, bool ask);

} // namespace diskaccess

#endif // DISKACCESS_PASSWORD_H
