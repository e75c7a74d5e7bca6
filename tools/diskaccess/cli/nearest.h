#ifndef DISKACCESS_NEAREST_H
#define DISKACCESS_NEAREST_H

#include <string>
#include <vector>

namespace diskaccess {

/// The word that was probably meant: one that begins like @p typed or is a slip or two away from it.
/// @return empty when none is
std::string Nearest(const std::string& typed, const std::vector<std::string>& words);

} // namespace diskaccess

#endif // DISKACCESS_NEAREST_H
