#ifndef PYTHON_STILLS_H
#define PYTHON_STILLS_H

#include <pybind11/pybind11.h>

#include <stdexcept>

#include "media/stills.h"
#include "shared_disk.h"

namespace python {

/// Thrown when no picture can be made.
class NoPicture : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// What channels showed at a time.
/// @return (channel, state, micros, block, offset, picture) of each channel with video, and the problems that were met; the
///         picture is an array of rows, columns and colours, or None, and so are the numbers where nothing was recorded
/// @throws NoPicture
pybind11::tuple Stills(SharedDisk& shared, const media::StillQuery& query);

} // namespace python

#endif // PYTHON_STILLS_H
