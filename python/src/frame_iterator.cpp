#include "frame_iterator.h"

#include "frame_reader.h"

namespace python {

namespace {

struct FrameIterator {
    PyObject base;
    PyObject* owner; ///< keeps the reader
    FrameReader* reader;
};

PyTypeObject* g_type = nullptr;

FrameIterator* AsIterator(PyObject* object) {
    return reinterpret_cast<FrameIterator*>(object);
}

void Deallocate(PyObject* object) {
    PyTypeObject* const type = Py_TYPE(object);
    Py_DECREF(AsIterator(object)->owner);
    type->tp_free(object);
    Py_DECREF(type);
}

PyObject* Next(PyObject* object) {
    FrameReader* const reader = AsIterator(object)->reader;
    if (reader->HasRead()) {
        return reader->TakeRead();
    }
    // Reads some more, and raises what there is to raise.
    return PyObject_CallMethod(AsIterator(object)->owner, "__next__", nullptr);
}

template <typename Function>
void* Slot(Function* function) {
    return reinterpret_cast<void*>(function);
}

} // namespace

bool AddFrameIteratorType(PyObject* module) {
    static PyType_Slot slots[] = {{Py_tp_dealloc, Slot(Deallocate)},
                                  {Py_tp_iter, Slot(PyObject_SelfIter)},
                                  {Py_tp_iternext, Slot(Next)},
                                  {0, nullptr}};
    static PyType_Spec spec = {"diskaccess._native.FrameIterator", sizeof(FrameIterator), 0,
                               Py_TPFLAGS_DEFAULT | Py_TPFLAGS_DISALLOW_INSTANTIATION, slots};
    PyObject* const type = PyType_FromSpec(&spec);
    if (type == nullptr) {
        return false;
    }
    g_type = reinterpret_cast<PyTypeObject*>(type);
    return PyModule_AddObjectRef(module, "FrameIterator", type) == 0;
}

pybind11::object IteratorOver(const pybind11::object& reader) {
    PyObject* const object = g_type->tp_alloc(g_type, 0);
    if (object == nullptr) {
        throw pybind11::error_already_set();
    }
    AsIterator(object)->owner = Py_NewRef(reader.ptr());
    AsIterator(object)->reader = reader.cast<FrameReader*>();
    return pybind11::reinterpret_steal<pybind11::object>(object);
}

} // namespace python
