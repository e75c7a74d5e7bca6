#include "frame_reader.h"

#include <utility>

#include "frame_object.h"

namespace python {

namespace {

/// Frames that are read at a time.
constexpr size_t kSome = 128;

} // namespace

FrameReader::FrameReader(std::shared_ptr<SharedDisk> shared, const recordings::FrameQuery& query,
                         int64_t skewMicros, pybind11::object zone)
    : m_shared(std::move(shared)), m_query(query), m_skewMicros(skewMicros), m_zone(std::move(zone)) {
    m_shared->Do([this](const SharedDisk::Open& /*open*/, const recordings::Watch& /*watch*/) {
        m_shared->Add(*this);
    });
}

// NOLINTNEXTLINE(bugprone-exception-escape): taking a turn throws only in one's own turn, where Remove() takes none
FrameReader::~FrameReader() {
    m_shared->Remove(*this);
}

pybind11::object FrameReader::Next() {
    m_shared->ExpectOpen();
    if (!HasRead()) {
        Fill();
        if (!HasRead()) {
            m_shared->ExpectOpen();
            throw pybind11::stop_iteration();
        }
    }
    PyObject* const frame = TakeRead();
    if (frame == nullptr) {
        throw pybind11::error_already_set();
    }
    return pybind11::reinterpret_steal<pybind11::object>(frame);
}

PyObject* FrameReader::TakeRead() {
    Entry& entry = m_read[m_next++];
    return NewFrame(entry.frame, std::move(entry.memory), m_skewMicros, m_zone.ptr());
}

void FrameReader::Fill() {
    if (m_filling) {
        throw Busy("another thread waits for the next frame; give each thread frames of its own");
    }
    m_filling = true;
    m_read.clear();
    m_next = 0;
    try {
        m_read = m_shared->Do([this](const SharedDisk::Open& open, const recordings::Watch& watch) {
            return ReadSome(open, watch);
        });
    } catch (...) {
        m_filling = false;
        throw;
    }
    m_filling = false;
}

std::vector<FrameReader::Entry> FrameReader::ReadSome(const SharedDisk::Open& open,
                                                      const recordings::Watch& watch) {
    std::vector<Entry> some;
    if (m_ended) {
        return some;
    }
    m_ended = true; // unless all goes well
    if (!m_frames) {
        m_frames = std::make_unique<recordings::RangeFrames>(open.disk, open.blocks, m_query,
                                                             m_problems.Sink(), watch);
    }
    some.reserve(kSome);
    recordings::Frame frame;
    while (some.size() < kSome) {
        if (!m_frames->Next(frame)) {
            m_gaps = m_frames->Gaps();
            m_frames.reset();
            return some;
        }
        some.push_back({frame, m_frames->HoldPayload()});
    }
    m_ended = false;
    return some;
}

std::vector<recordings::Problem> FrameReader::Problems() {
    return m_shared->InTurn([this] { return m_problems.All(); });
}

std::vector<recordings::Gap> FrameReader::Gaps() {
    return m_shared->InTurn([this] { return m_frames ? m_frames->Gaps() : m_gaps; });
}

void FrameReader::Finish() {
    m_read.clear();
    m_next = 0;
    m_shared->InTurn([this] { Drop(); });
}

void FrameReader::Drop() {
    m_ended = true;
    if (m_frames) {
        m_gaps = m_frames->Gaps();
        m_frames.reset();
    }
}

} // namespace python
