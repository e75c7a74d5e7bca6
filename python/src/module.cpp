// The module diskaccess._native: disks as Python's side of the package takes them.

#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "coverage.h"
#include "export.h"
#include "frame_iterator.h"
#include "frame_object.h"
#include "frame_reader.h"
#include "media/error.h"
#include "rows.h"
#include "shared_disk.h"
#include "stills.h"
#include "times.h"

namespace {

namespace py = pybind11;
using python::FrameReader;
using python::SharedDisk;

recordings::RecordQuery QueryOf(uint32_t first, uint32_t last, uint32_t channels) {
    recordings::RecordQuery query;
    query.range = {first, last};
    query.channels = {channels};
    return query;
}

std::unique_ptr<FrameReader> Frames(std::shared_ptr<SharedDisk> shared, uint32_t first, uint32_t last,
                                    uint32_t channels, bool decodable, bool payload, int64_t skewMicros,
                                    py::object zone) {
    recordings::FrameQuery query;
    query.range = {first, last};
    query.channels = {channels};
    query.decodable = decodable;
    query.want = payload ? recordings::Want::Payloads : recordings::Want::Heads;
    return std::make_unique<FrameReader>(std::move(shared), query, skewMicros, std::move(zone));
}

media::Container ContainerOf(const std::string& name) {
    return name == "raw"   ? media::Container::Raw
           : name == "mp4" ? media::Container::Mp4
                           : media::Container::Matroska;
}

/// Takes what the package's Python side has put together: see _native.pyi.
py::object Export(SharedDisk& shared, const py::dict& asked, const py::object& words) {
    media::ExportRequest request;
    request.name = asked["name"].cast<std::string>();
    request.container = ContainerOf(asked["container"].cast<std::string>());
    request.range = {asked["first"].cast<uint32_t>(), asked["last"].cast<uint32_t>()};
    request.fromGiven = asked["from_given"].cast<bool>();
    request.toGiven = asked["to_given"].cast<bool>();
    request.channels = {asked["channels"].cast<uint32_t>()};
    request.audio.all = {asked["audio_codec"].cast<std::string>(), asked["audio_rate"].cast<uint32_t>()};
    request.replace = asked["replace"].cast<bool>();
    request.made = asked["made"].cast<std::string>();
    request.skewSeconds = asked["skew"].cast<int64_t>();
    request.zone = asked["zone"].cast<std::string>();
    request.provenance.program = "diskaccess for Python " DISKACCESS_VERSION;
    request.provenance.sourcePath = asked["source"].cast<std::string>();
    return python::Export(shared, std::move(request), words);
}

/// Makes an exception of the package.
py::object AddException(const py::module_& module, const char* name, const char* doc,
                        const py::object& bases) {
    const std::string full = std::string("diskaccess.") + name;
    auto made =
        py::reinterpret_steal<py::object>(PyErr_NewExceptionWithDoc(full.c_str(), doc, bases.ptr(), nullptr));
    if (!made) {
        throw py::error_already_set();
    }
    module.attr(name) = made;
    return made;
}

/// The exceptions, for as long as the process runs.
struct Exceptions {
    PyObject* open;
    PyObject* password;
    PyObject* closed;
    PyObject* busy;
    PyObject* still;
    PyObject* output;
};
Exceptions g_exceptions;

void Raise(PyObject* type, const char* text, int number = 0) {
    const auto line = py::reinterpret_steal<py::object>(PyUnicode_DecodeFSDefault(text));
    const py::object exception = py::reinterpret_borrow<py::object>(type)(line);
    if (number != 0) {
        exception.attr("errno") = number;
    }
    PyErr_SetObject(type, exception.ptr());
}

void Translate(std::exception_ptr thrown) {
    try {
        if (thrown) {
            std::rethrow_exception(std::move(thrown));
        }
    } catch (const recordings::Error& error) {
        if (error.Kind() == recordings::ErrorKind::OutOfMemory) {
            PyErr_NoMemory();
        } else {
            Raise(g_exceptions.open, error.what(), error.SystemError());
        }
    } catch (const python::WrongPassword& error) {
        Raise(g_exceptions.password, error.what());
    } catch (const python::Closed& error) {
        Raise(g_exceptions.closed, error.what());
    } catch (const python::Busy& error) {
        Raise(g_exceptions.busy, error.what());
    } catch (const python::NoPicture& error) {
        Raise(g_exceptions.still, error.what());
    } catch (const media::Error& error) {
        Raise(g_exceptions.output, error.what());
    }
}

void AddExceptions(const py::module_& module) {
    const auto exception = py::reinterpret_borrow<py::object>(PyExc_Exception);
    const py::object base =
        AddException(module, "Error", "What this package raises. The text says what, and where.", exception);
    base.attr("errno") = py::none();
    g_exceptions.open = AddException(module, "OpenError",
                                     "A source cannot be opened, or holds no recorder's partition.", base)
                            .release()
                            .ptr();
    g_exceptions.password =
        AddException(module, "PasswordError", "The disk's password is another one.", base).release().ptr();
    g_exceptions.closed =
        AddException(module, "ClosedError", "The disk is closed already.", base).release().ptr();
    g_exceptions.busy = AddException(module, "BusyError", "Another use of the same object is going on.", base)
                            .release()
                            .ptr();
    g_exceptions.still =
        AddException(module, "StillError", "There is no picture of that time and channel.", base)
            .release()
            .ptr();
    g_exceptions.output =
        AddException(module, "ExportError", "Files could not be made; none was.", base).release().ptr();
    py::register_exception_translator(Translate);
}

/// Keeps a class's objects from being made by __new__ alone: they would have nothing native in them, and their methods would
/// not know that. Functions of the module make whole ones.
void ForbidMaking(const py::handle& type) {
    auto* const made = reinterpret_cast<PyTypeObject*>(type.ptr());
    made->tp_new = nullptr;
    PyType_Modified(made);
}

} // namespace

PYBIND11_MODULE(_native, module) {
    AddExceptions(module);
    if (!python::PrepareTimes() || !python::AddFrameType(module.ptr()) ||
        !python::AddFrameIteratorType(module.ptr())) {
        throw py::error_already_set();
    }
    module.def("to_datetime", [](int64_t micros, const py::object& zone) {
        PyObject* const time = python::ToDatetime(micros, zone.ptr());
        if (time == nullptr) {
            throw py::error_already_set();
        }
        return py::reinterpret_steal<py::object>(time);
    });
    py::class_<FrameReader>(module, "FrameReader")
        .def("__iter__", &python::IteratorOver)
        .def("__next__", &FrameReader::Next)
        .def("problems", [](FrameReader& reader) { return python::AsList(reader.Problems()); })
        .def("gaps",
             [](FrameReader& reader) {
                 py::list gaps;
                 for (const recordings::Gap& gap : reader.Gaps()) {
                     gaps.append(py::make_tuple(gap.channel, gap.video, gap.block, gap.before, gap.after));
                 }
                 return gaps;
             })
        .def("close", &FrameReader::Finish);
    py::class_<SharedDisk, std::shared_ptr<SharedDisk>>(module, "SharedDisk")
        .def("close", &SharedDisk::Close)
        .def("is_closed", &SharedDisk::IsClosed)
        .def("facts", &python::Facts)
        .def("records",
             [](SharedDisk& shared, uint32_t first, uint32_t last, uint32_t channels) {
                 return python::PackedRecords(shared, QueryOf(first, last, channels));
             })
        .def("events",
             [](SharedDisk& shared, uint32_t first, uint32_t last, uint64_t types) {
                 return python::PackedEvents(shared, {first, last}, types);
             })
        .def("problems",
             [](SharedDisk& shared, uint32_t first, uint32_t last, uint32_t channels) {
                 return python::AsList(python::ProblemsOf(shared, QueryOf(first, last, channels)));
             })
        .def("journeys",
             [](SharedDisk& shared, uint32_t channels, uint32_t silence) {
                 return python::PackedJourneys(shared, {{channels}, silence});
             })
        .def("coverage",
             [](SharedDisk& shared, uint32_t channels, uint32_t silence) {
                 return python::CoverageOf(shared, {{channels}, silence});
             })
        .def("stills",
             [](SharedDisk& shared, int64_t micros, uint32_t channels) {
                 return python::Stills(shared, {micros, {channels}});
             })
        .def("export", &Export);
    ForbidMaking(module.attr("FrameReader"));
    ForbidMaking(module.attr("SharedDisk"));
    module.def("read_frames", &Frames);
    module.def("open_disk", [](const std::string& path, std::optional<uint32_t> partition,
                               std::optional<int> diskType, const std::optional<std::string>& password) {
        return std::make_shared<SharedDisk>(python::Opening{path, partition, diskType, password});
    });
}
