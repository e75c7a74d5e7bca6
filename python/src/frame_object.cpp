#include "frame_object.h"

#include <new>
#include <utility>

#include "times.h"

namespace python {

namespace {

/// Written against the interpreter itself: there may be hundreds of thousands of frames a second.
struct FrameObject {
    PyObject base;
    recordings::Frame frame;
    std::shared_ptr<const void> memory;
    int64_t micros; ///< true time
    PyObject* zone;
};

PyTypeObject* g_type = nullptr;

FrameObject* AsFrame(PyObject* object) {
    return reinterpret_cast<FrameObject*>(object);
}

void Deallocate(PyObject* object) {
    FrameObject* const self = AsFrame(object);
    PyTypeObject* const type = Py_TYPE(object);
    Py_DECREF(self->zone);
    self->memory.~shared_ptr();
    type->tp_free(object);
    Py_DECREF(type);
}

int GetBuffer(PyObject* object, Py_buffer* view, int flags) {
    static uint8_t empty = 0;
    const recordings::Frame& frame = AsFrame(object)->frame;
    void* const data = frame.data == nullptr ? &empty : const_cast<uint8_t*>(frame.data); // read-only
    return PyBuffer_FillInfo(view, object, data, frame.data == nullptr ? 0 : Py_ssize_t{frame.size}, 1,
                             flags);
}

Py_ssize_t Length(PyObject* object) {
    return AsFrame(object)->frame.size;
}

PyObject* Time(PyObject* object, void* /*closure*/) {
    return ToDatetime(AsFrame(object)->micros, AsFrame(object)->zone);
}

PyObject* Timestamp(PyObject* object, void* /*closure*/) {
    return PyLong_FromLongLong(AsFrame(object)->micros);
}

PyObject* Channel(PyObject* object, void* /*closure*/) {
    return PyLong_FromUnsignedLong(AsFrame(object)->frame.channel);
}

PyObject* Kind(PyObject* object, void* /*closure*/) {
    static PyObject* const names[] = {PyUnicode_InternFromString("picture"),
                                      PyUnicode_InternFromString("key"), PyUnicode_InternFromString("audio")};
    return Py_NewRef(names[AsFrame(object)->frame.type]); // media frames alone are delivered
}

PyObject* Block(PyObject* object, void* /*closure*/) {
    return PyLong_FromUnsignedLong(AsFrame(object)->frame.block);
}

PyObject* Offset(PyObject* object, void* /*closure*/) {
    return PyLong_FromUnsignedLong(AsFrame(object)->frame.offset);
}

PyObject* Data(PyObject* object, void* /*closure*/) {
    return PyMemoryView_FromObject(object);
}

PyObject* Describe(PyObject* object) {
    PyObject* const kind = Kind(object, nullptr);
    const recordings::Frame& frame = AsFrame(object)->frame;
    PyObject* const text =
        PyUnicode_FromFormat("<Frame %U channel %u at %lld, %u bytes>", kind, frame.channel,
                             static_cast<long long>(AsFrame(object)->micros), frame.size);
    Py_DECREF(kind);
    return text;
}

PyGetSetDef g_properties[] = {
    {"time", Time, nullptr,
     "When it was recorded. OverflowError for a damaged one outside the years 1 to 9999.", nullptr},
    {"timestamp", Timestamp, nullptr, "The same in microseconds since 1970.", nullptr},
    {"channel", Channel, nullptr, "0 to 31.", nullptr},
    {"kind", Kind, nullptr, "'key': video that can be decoded by itself; 'picture': other video; 'audio'.",
     nullptr},
    {"data", Data, nullptr, "The payload, as a read-only memoryview; empty when heads alone were asked for.",
     nullptr},
    {"block", Block, nullptr, "Number of the block that it lies in.", nullptr},
    {"offset", Offset, nullptr, "Of its head, in bytes from the start of the block's frame area.", nullptr},
    {nullptr, nullptr, nullptr, nullptr, nullptr}};

template <typename Function>
void* Slot(Function* function) {
    return reinterpret_cast<void*>(function);
}

constexpr const char* kDoc =
    "A frame. It offers its payload as a read-only buffer: bytes(frame), memoryview(frame), "
    "av.Packet(frame),\n"
    "numpy.frombuffer(frame, 'u1'). The buffer is no copy, and stays valid for as long as somebody holds "
    "it.\n"
    "A frame that is kept keeps its whole block's memory. len() is the payload's size, also when only heads\n"
    "were asked for.";

} // namespace

bool AddFrameType(PyObject* module) {
    static PyType_Slot slots[] = {{Py_tp_dealloc, Slot(Deallocate)},
                                  {Py_tp_repr, Slot(Describe)},
                                  {Py_tp_getset, g_properties},
                                  {Py_tp_doc, const_cast<char*>(kDoc)},
                                  {Py_bf_getbuffer, Slot(GetBuffer)},
                                  {Py_sq_length, Slot(Length)},
                                  {0, nullptr}};
    static PyType_Spec spec = {"diskaccess.Frame", sizeof(FrameObject), 0,
                               Py_TPFLAGS_DEFAULT | Py_TPFLAGS_DISALLOW_INSTANTIATION, slots};
    PyObject* const type = PyType_FromSpec(&spec);
    if (type == nullptr) {
        return false;
    }
    g_type = reinterpret_cast<PyTypeObject*>(type);
    return PyModule_AddObjectRef(module, "Frame", type) == 0;
}

PyObject* NewFrame(const recordings::Frame& frame, std::shared_ptr<const void> memory, int64_t skewMicros,
                   PyObject* zone) {
    PyObject* const object = g_type->tp_alloc(g_type, 0);
    if (object != nullptr) {
        FrameObject* const self = AsFrame(object);
        new (&self->frame) recordings::Frame(frame);
        new (&self->memory) std::shared_ptr<const void>(std::move(memory));
        // A damaged time stamp may be any number.
        self->micros =
            static_cast<int64_t>(static_cast<uint64_t>(frame.time) - static_cast<uint64_t>(skewMicros));
        self->zone = Py_NewRef(zone);
    }
    return object;
}

} // namespace python
