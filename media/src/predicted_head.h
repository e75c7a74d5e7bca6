#ifndef MEDIA_SRC_PREDICTED_HEAD_H
#define MEDIA_SRC_PREDICTED_HEAD_H

/// @file predicted_head.h
/// A container's head tells what is known only when its last frame is there: sizes, durations, where the index lies. A
/// file whose head is written then can be hashed only then. So the head is predicted, and written as predicted; where it
/// turns out right, and it does on a sound disk, the file was hashed on the way.

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "file_writer.h"
#include "muxer.h"

namespace media {

using Bytes = std::vector<uint8_t>;

/// A muxer's file: its head and its end are kept in memory, where the muxer may go back and mend them; what lies between
/// is sent on as it comes.
class MuxedFile : public MuxTarget {
public:
    /// @param file where everything goes; null: nothing is kept but the head
    explicit MuxedFile(FileWriter* file) : m_file(file) {}

    void Write(const uint8_t* data, size_t size) override;
    void Seek(uint64_t offset) override { m_position = offset; }

    /// The head, as it is by now.
    Bytes& Head() { return m_head; }
    /// The end, as it is by now.
    const Bytes& End() const { return m_tail; }
    /// Everything written so far is the head.
    /// @param predicted what it will be in the end, if that is known; of the same size
    void CloseHead(const std::optional<Bytes>& predicted);
    /// Everything written from now on is the end, unless it belongs to the head.
    void BeginEnd() { m_end = m_position; }
    /// Writes the end, and mends the head if it has not become what was predicted.
    void Finish();

private:
    void Append(const uint8_t* data, size_t size);

    FileWriter* m_file;
    Bytes m_head;
    Bytes m_written; ///< the head, as it was sent
    Bytes m_tail;
    bool m_headClosed = false;
    std::optional<uint64_t> m_end; ///< where the end begins
    uint64_t m_position = 0;
};

/// How the head of a kind of container can be predicted.
class HeadPredictor {
public:
    using MakeMuxer = std::function<std::unique_ptr<Muxer>(MuxTarget&)>;

    virtual ~HeadPredictor() = default;
    /// Called when the muxer has started. From then on, the file is laid out so that it comes true, if it can.
    /// @param head as the muxer has written it
    /// @param facts that it has started with; its chapters with places in the file, in microseconds, as times
    /// @param estimate with places in the file, in microseconds, as times
    /// @param makeMuxer makes another muxer of the same streams, not started
    virtual std::optional<Bytes> Predict(const Bytes& head, const ContainerFacts& facts,
                                         const Estimate& estimate, const MakeMuxer& makeMuxer) = 0;
    /// Ends the file.
    /// @param chapters that the file will have, with places as times
    virtual void Finish(Muxer& muxer, MuxedFile& file, const std::vector<Chapter>& chapters) = 0;
};

std::unique_ptr<HeadPredictor> MakeHeadPredictor(Container container);
/// For a file that is written from its start to its end: the head stays as it is.
std::unique_ptr<HeadPredictor> MakeStreamHead();

} // namespace media

#endif // MEDIA_SRC_PREDICTED_HEAD_H
