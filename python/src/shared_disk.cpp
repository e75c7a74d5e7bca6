#include "shared_disk.h"

namespace python {

SharedDisk::Open::Open(const Opening& opening)
    : disk(recordings::OpenSource(opening.path, opening.partition), opening.diskType),
      identity(disk.Bytes().Descriptors()) {}

SharedDisk::SharedDisk(const Opening& opening) : m_path(opening.path) {
    try {
        const pybind11::gil_scoped_release unlocked;
        m_open = std::make_unique<Open>(opening);
        recordings::Disk& disk = m_open->disk;
        if (opening.password && !disk.Hidden().Empty() && !disk.Unlock(*opening.password)) {
            throw WrongPassword(m_path + ": wrong password; open it with the right one, or without one");
        }
        m_open->blocks = recordings::BlockList::Read(
            disk, [](const recordings::Progress& /*progress*/) { return GoesOn(); });
    } catch (const recordings::Error&) {
        ThrowWhatWasRaised();
        throw;
    }
}

SharedDisk::~SharedDisk() = default;

SharedDisk::Turn::Turn(SharedDisk& shared) : m_shared(shared) {
    if (shared.IsMyTurn()) {
        throw Busy(shared.m_path + ": is being read; a signal's handler cannot use it meanwhile");
    }
    shared.m_turns.lock();
    shared.m_whose = std::this_thread::get_id();
}

SharedDisk::Turn::~Turn() {
    m_shared.m_whose = std::thread::id();
    m_shared.m_turns.unlock();
}

void SharedDisk::ExpectOpen() const {
    if (m_closed) {
        throw Closed(m_path + ": is closed; open it again");
    }
}

/// Whether no signal's handler has raised an exception. What it raised stays set in this thread.
bool SharedDisk::GoesOn() {
    const pybind11::gil_scoped_acquire locked;
    return PyErr_CheckSignals() == 0;
}

void SharedDisk::ThrowWhatWasRaised() {
    if (PyErr_Occurred() != nullptr) {
        throw pybind11::error_already_set();
    }
}

void SharedDisk::Close() {
    InTurn([this] {
        for (Reading* reading : m_readings) {
            reading->Drop();
        }
        m_readings.clear();
        m_open.reset();
        m_closed = true;
    });
}

void SharedDisk::Remove(Reading& reading) {
    if (IsMyTurn()) { // garbage is collected in a signal's handler, while this thread reads something else
        m_readings.erase(&reading);
    } else {
        InTurn([this, &reading] { m_readings.erase(&reading); });
    }
}

} // namespace python
