#ifndef CATALOG_ERROR_H
#define CATALOG_ERROR_H

#include <stdexcept>

namespace catalog {

/// Thrown when a catalogue cannot be opened, read or written. The text says what and where, in one line.
class Error : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

} // namespace catalog

#endif // CATALOG_ERROR_H
