#ifndef PYTHON_FRAME_READER_H
#define PYTHON_FRAME_READER_H

#include <pybind11/pybind11.h>

#include <memory>
#include <vector>

#include "recordings/range_frames.h"
#include "shared_disk.h"

namespace python {

/// Delivers frames as Python objects. They are read some at a time: taking and giving back the interpreter's lock for each
/// would cost more than reading it.
class FrameReader : public Reading {
public:
    FrameReader(std::shared_ptr<SharedDisk> shared, const recordings::FrameQuery& query, int64_t skewMicros,
                pybind11::object zone);
    // NOLINTNEXTLINE(bugprone-exception-escape): as where it is defined
    ~FrameReader() override;
    FrameReader(const FrameReader&) = delete;
    FrameReader& operator=(const FrameReader&) = delete;

    /// @throws pybind11::stop_iteration at the end; Busy when another thread is in here
    pybind11::object Next();
    /// Whether a frame is there that was read already.
    bool HasRead() const { return m_next < m_read.size() && !m_shared->IsClosed(); }
    /// That frame, as a new reference; null with an exception set.
    PyObject* TakeRead();
    /// What was met so far.
    std::vector<recordings::Problem> Problems();
    std::vector<recordings::Gap> Gaps();
    /// Ends the reading before its end, and lets go of memory.
    void Finish();
    void Drop() override;

private:
    struct Entry {
        recordings::Frame frame;
        std::shared_ptr<const void> memory;
    };

    void Fill();
    std::vector<Entry> ReadSome(const SharedDisk::Open& open, const recordings::Watch& watch);

    std::shared_ptr<SharedDisk> m_shared;
    recordings::FrameQuery m_query;
    int64_t m_skewMicros;
    pybind11::object m_zone;

    // Used under the interpreter's lock.
    std::vector<Entry> m_read;
    size_t m_next = 0; ///< of m_read
    bool m_filling = false;

    // Used in a turn.
    recordings::ProblemList m_problems;
    std::vector<recordings::Gap> m_gaps;
    std::unique_ptr<recordings::RangeFrames> m_frames;
    bool m_ended = false;
};

} // namespace python

#endif // PYTHON_FRAME_READER_H
