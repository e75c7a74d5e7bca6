#ifndef PYTHON_FRAME_ITERATOR_H
#define PYTHON_FRAME_ITERATOR_H

#include <pybind11/pybind11.h>

namespace python {

/// Makes the type of iterators known to a module.
/// @return false with an exception set
bool AddFrameIteratorType(PyObject* module);

/// An iterator over what a FrameReader delivers. Calls through pybind11 cost as much as the reading of small frames: loops
/// need one for some frames only.
pybind11::object IteratorOver(const pybind11::object& reader);

} // namespace python

#endif // PYTHON_FRAME_ITERATOR_H
