#include "times.h"

#include <datetime.h>

#include <ctime>

#include "recordings/query.h"

namespace python {

namespace {

using recordings::kMicros;
/// The years 1 to 9999, which datetimes can hold, in seconds since 1970.
constexpr int64_t kFirst = -62135596800;
constexpr int64_t kLast = 253402300799;

} // namespace

bool PrepareTimes() {
    PyDateTime_IMPORT;
    return PyDateTimeAPI != nullptr;
}

PyObject* ToDatetime(int64_t micros, PyObject* zone) {
    const int64_t rest = (micros % kMicros + kMicros) % kMicros;
    const time_t seconds = micros / kMicros - (micros % kMicros < 0 ? 1 : 0); // any micros, also the least
    std::tm parts = {};
    if (seconds < kFirst || seconds > kLast || gmtime_r(&seconds, &parts) == nullptr) {
        PyErr_Format(PyExc_OverflowError, "the time stamp %lld lies outside the years 1 to 9999",
                     static_cast<long long>(micros));
        return nullptr;
    }
    PyObject* const utc = PyDateTimeAPI->DateTime_FromDateAndTime(
        parts.tm_year + 1900, parts.tm_mon + 1, parts.tm_mday, parts.tm_hour, parts.tm_min, parts.tm_sec,
        static_cast<int>(rest), PyDateTimeAPI->TimeZone_UTC, PyDateTimeAPI->DateTimeType);
    if (utc == nullptr || zone == PyDateTimeAPI->TimeZone_UTC) {
        return utc;
    }
    PyObject* const local = PyObject_CallMethod(utc, "astimezone", "O", zone);
    Py_DECREF(utc);
    return local;
}

} // namespace python
