#ifndef PYTHON_FRAME_OBJECT_H
#define PYTHON_FRAME_OBJECT_H

#include <Python.h>

#include <cstdint>
#include <memory>

#include "recordings/frame.h"

namespace python {

/// Makes the type Frame known to a module.
/// @return false with an exception set
bool AddFrameType(PyObject* module);

/// A frame as an object, which offers its payload as a buffer. The memory stays for as long as the object, or a view of its
/// payload.
/// @param memory where the payload lies
/// @param skewMicros how far the recorder's clock was ahead
/// @param zone a tzinfo
/// @return a new reference; null with an exception set
PyObject* NewFrame(const recordings::Frame& frame, std::shared_ptr<const void> memory, int64_t skewMicros,
                   PyObject* zone);

} // namespace python

#endif // PYTHON_FRAME_OBJECT_H
