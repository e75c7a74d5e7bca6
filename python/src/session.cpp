#include "session.h"

namespace python {

Session::Open::Open(const Opening& opening)
    : disk(recordings::OpenSource(opening.path, opening.partition), opening.diskType),
      identity(disk.Bytes().Descriptors()) {}

Session::Session(const Opening& opening) : m_path(opening.path) {
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

Session::~Session() = default;

Session::Turn::Turn(Session& session) : m_session(session) {
    if (session.IsMyTurn()) {
        throw Busy(session.m_path + ": is being read; a signal's handler cannot use it meanwhile");
    }
    session.m_turns.lock();
    session.m_whose = std::this_thread::get_id();
}

Session::Turn::~Turn() {
    m_session.m_whose = std::thread::id();
    m_session.m_turns.unlock();
}

void Session::ExpectOpen() const {
    if (m_closed) {
        throw Closed(m_path + ": is closed; open it again");
    }
}

/// Whether no signal's handler has raised an exception. What it raised stays set in this thread.
bool Session::GoesOn() {
    const pybind11::gil_scoped_acquire locked;
    return PyErr_CheckSignals() == 0;
}

void Session::ThrowWhatWasRaised() {
    if (PyErr_Occurred() != nullptr) {
        throw pybind11::error_already_set();
    }
}

void Session::Close() {
    InTurn([this] {
        for (Reading* reading : m_readings) {
            reading->Drop();
        }
        m_readings.clear();
        m_open.reset();
        m_closed = true;
    });
}

void Session::Remove(Reading& reading) {
    if (IsMyTurn()) { // garbage is collected in a signal's handler, while this thread reads something else
        m_readings.erase(&reading);
    } else {
        InTurn([this, &reading] { m_readings.erase(&reading); });
    }
}

} // namespace python
