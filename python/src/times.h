#ifndef PYTHON_TIMES_H
#define PYTHON_TIMES_H

#include <Python.h>

#include <cstdint>

namespace python {

/// Makes datetime known; called once, when the module is.
/// @return false with an exception set
bool PrepareTimes();

/// A time as a datetime in a zone.
/// @param micros since 1970, true time
/// @param zone a tzinfo
/// @return a new reference; null with OverflowError set when no datetime can hold it
PyObject* ToDatetime(int64_t micros, PyObject* zone);

} // namespace python

#endif // PYTHON_TIMES_H
