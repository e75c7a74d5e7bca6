#ifndef DISKACCESS_CATALOG_LOCATION_H
#define DISKACCESS_CATALOG_LOCATION_H

#include <string>

#include "cli/options.h"

namespace diskaccess {

/// Where the catalogue is: a file, or a server. To add disks to it, makes the folder of the user's own.
/// @throws Failure
std::string CatalogLocation(const Options& options);

} // namespace diskaccess

#endif // DISKACCESS_CATALOG_LOCATION_H
