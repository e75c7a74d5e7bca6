#include "predicted_head.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <limits>

namespace media {

namespace {

void PutBig(uint8_t* to, uint64_t value, size_t bytes) {
    for (size_t i = 0; i < bytes; ++i) {
        to[i] = static_cast<uint8_t>(value >> 8 * (bytes - 1 - i));
    }
}

uint64_t GetBig(const uint8_t* from, size_t bytes) {
    uint64_t value = 0;
    for (size_t i = 0; i < bytes; ++i) {
        value = value << 8 | from[i];
    }
    return value;
}

/// Room that is reserved for frames. What containers need beside the payloads, and what longer start codes add, is
/// mostly less than what frame heads take on the disk; the rest is for what is not.
uint64_t RoomFor(const Estimate& estimate) {
    return estimate.bytes + estimate.bytes / 1024 + 0x1000;
}

/// Whether room that was not needed may be filled. Where more than a hundredth would be filling, the head is written
/// again instead.
bool WorthFilling(uint64_t room, uint64_t used) {
    return room >= used && room - used <= used / 100 + 0x2000;
}

// ---- MP4

/// The head ends with the head of the box that holds all frames ("mdat"). Only its size is not known before; the box is
/// made large enough, and what is not needed of it is filled with zeros. The index follows it.
class Mp4Head : public HeadPredictor {
public:
    std::optional<Bytes> Predict(const Bytes& head, const ContainerFacts& facts, const Estimate& estimate,
                                 const MakeMuxer& /*makeMuxer*/) override {
        m_box = FindBox(head);
        if (!m_box) {
            return std::nullopt;
        }
        m_textEnd = estimate.textEnd ? kTextEndBytes : 0;
        m_end = head.size() + RoomFor(estimate) + SizeOfChapters(facts.chapters);
        Bytes predicted = head;
        SetSize(predicted);
        return predicted;
    }

    void Finish(Muxer& muxer, MuxedFile& file, const std::vector<Chapter>& chapters) override {
        const uint64_t end = muxer.Position() + SizeOfChapters(chapters) + m_textEnd;
        const bool fill = m_box && WorthFilling(m_end, end);
        if (fill) {
            Fill(muxer, m_end - end);
        }
        const uint64_t trailer = muxer.Position();
        file.BeginEnd();
        muxer.AddChapters(chapters);
        muxer.Finish();
        if (fill) {
            m_end = trailer + FindIndex(file.End());
            SetSize(file.Head());
        }
    }

private:
    /// Chapters are samples too, which come last in the box: a length, the title, and what tells its encoding.
    static uint64_t SizeOfChapters(const std::vector<Chapter>& chapters) {
        uint64_t size = 0;
        for (const Chapter& chapter : chapters) {
            size += chapter.title.size() + 14;
        }
        return size;
    }

    /// Where the box of the index begins, which reaches to the end.
    static size_t FindIndex(const Bytes& end) {
        for (size_t at = 0; at + 8 <= end.size(); ++at) {
            if (std::memcmp(end.data() + at + 4, "moov", 4) == 0 &&
                GetBig(end.data() + at, 4) == end.size() - at) {
                return at;
            }
        }
        return 0;
    }

    /// Where the box begins: after the file's type, with 8 bytes before it for the case that its size takes 64 bits.
    static std::optional<size_t> FindBox(const Bytes& head) {
        if (head.size() < 8) {
            return std::nullopt;
        }
        const uint64_t box = GetBig(head.data(), 4);
        if (box + 16 > head.size() || std::memcmp(head.data() + box + 4, "free", 4) != 0 ||
            std::memcmp(head.data() + box + 12, "mdat", 4) != 0) {
            return std::nullopt;
        }
        return static_cast<size_t>(box);
    }

    void SetSize(Bytes& head) const {
        uint8_t* const box = head.data() + *m_box;
        PutBig(box, 1, 4); // the size follows in 64 bits
        std::copy_n("mdat", 4, box + 4);
        PutBig(box + 8, m_end - *m_box, 8);
    }

    static void Fill(Muxer& muxer, uint64_t size) {
        static constexpr std::array<uint8_t, 4096> zeros = {};
        for (; size != 0; size -= std::min<uint64_t>(size, zeros.size())) {
            muxer.Put(zeros.data(), static_cast<size_t>(std::min<uint64_t>(size, zeros.size())));
        }
    }

    /// A text track ends with an empty text.
    static constexpr uint64_t kTextEndBytes = 2;

    std::optional<size_t> m_box;
    uint64_t m_end = 0;     ///< of the box
    uint64_t m_textEnd = 0; ///< bytes that the box ends with
};

// ---- Matroska

constexpr size_t kVoidHead = 9;

/// An element that means nothing.
void PutVoid(Muxer& muxer, uint64_t size) {
    std::array<uint8_t, 4096> bytes = {0xEC, 0x01};
    PutBig(bytes.data() + 2, size - kVoidHead, kVoidHead - 2);
    for (uint64_t done = 0; done < size;) {
        const auto part = static_cast<size_t>(std::min<uint64_t>(size - done, bytes.size()));
        muxer.Put(bytes.data(), part);
        done += part;
        std::fill_n(bytes.begin(), kVoidHead, uint8_t{0});
    }
}

/// What a cue takes at most: a time and a place for each key frame.
constexpr uint64_t kCueBytes = 40;

/// The head says where the cues lie, how large everything is, and how long each track. What is written after the frames
/// is a place predicted for the cues, and after them one for the end: the file has void elements before both.
uint64_t SizeOf(const std::vector<Chapter>& chapters) {
    uint64_t size = 0;
    for (const Chapter& chapter : chapters) {
        size += chapter.title.size() + 100; // identifiers and times
    }
    return size;
}

class MatroskaHead : public HeadPredictor {
public:
    std::optional<Bytes> Predict(const Bytes& head, const ContainerFacts& facts, const Estimate& estimate,
                                 const MakeMuxer& makeMuxer) override {
        m_facts = facts;
        const bool allKnown = std::all_of(estimate.lastFrames.begin(), estimate.lastFrames.end(),
                                          [](const auto& last) { return last.has_value(); });
        m_size = FindSize(head);
        if (!m_size || !allKnown) {
            m_size.reset();
            return std::nullopt;
        }
        m_cues = head.size() + RoomFor(estimate);
        m_end = m_cues + estimate.keyFrames * kCueBytes + SizeOf(facts.chapters) + 0x1000;
        return TryOut(estimate, makeMuxer);
    }

    void Finish(Muxer& muxer, MuxedFile& file, const std::vector<Chapter>& chapters) override {
        muxer.AddChapters(chapters);
        if (m_size) {
            muxer.WriteHeldBack();
        }
        const uint64_t end = muxer.Position();
        const bool fill = m_size && m_cues >= end + kVoidHead && WorthFilling(m_cues, end);
        if (fill) {
            PutVoid(muxer, m_cues - end);
        }
        file.BeginEnd();
        muxer.Finish();
        const uint64_t afterCues = muxer.Position();
        if (fill && m_end >= afterCues + kVoidHead && WorthFilling(m_end, afterCues)) {
            PutVoid(muxer, m_end - afterCues);
            SetSize(file.Head(), m_end);
        }
    }

private:
    /// Has another muxer write the last frames alone, and what follows them at the places predicted.
    Bytes TryOut(const Estimate& estimate, const MakeMuxer& makeMuxer) const {
        MuxedFile file(nullptr);
        const std::unique_ptr<Muxer> muxer = makeMuxer(file);
        muxer->Start(m_facts);
        file.CloseHead(std::nullopt);
        for (size_t stream = 0; stream < estimate.lastFrames.size(); ++stream) {
            const LastFrame& last = *estimate.lastFrames[stream];
            const Bytes anything(std::max<size_t>(last.size, 1)); // how long audio lasts is told by its size
            muxer->Write(stream, anything.data(), anything.size(), last.time, true);
        }
        if (estimate.textEnd) {
            muxer->WriteText("anything", *estimate.textEnd - 1000, *estimate.textEnd);
        }
        muxer->WriteHeldBack();
        muxer->SkipTo(m_cues);
        file.BeginEnd();
        muxer->AddChapters(m_facts.chapters);
        muxer->Finish();
        SetSize(file.Head(), m_end);
        return file.Head();
    }

    /// Where the head has the size of the segment: after the EBML head and the segment's identifier.
    static std::optional<size_t> FindSize(const Bytes& head) {
        constexpr std::array<uint8_t, 4> segment = {0x18, 0x53, 0x80, 0x67};
        const auto found = std::search(head.begin(), head.end(), segment.begin(), segment.end());
        if (head.end() - found < 12) {
            return std::nullopt;
        }
        return static_cast<size_t>(found - head.begin()) + segment.size();
    }

    void SetSize(Bytes& head, uint64_t end) const {
        PutBig(head.data() + *m_size, uint64_t{1} << 56 | (end - *m_size - 8), 8);
    }

    ContainerFacts m_facts;
    std::optional<size_t> m_size;
    uint64_t m_cues = 0; ///< where they begin
    uint64_t m_end = 0;  ///< of the file
};

// ---- streams

/// Neither sizes nor an index: what is read on the way needs none.
class StreamHead : public HeadPredictor {
public:
    std::optional<Bytes> Predict(const Bytes& head, const ContainerFacts& /*facts*/,
                                 const Estimate& /*estimate*/, const MakeMuxer& /*makeMuxer*/) override {
        return head;
    }

    void Finish(Muxer& muxer, MuxedFile& /*file*/, const std::vector<Chapter>& /*chapters*/) override {
        muxer.Finish();
    }
};

/// Puts bytes into a part that is kept in memory.
void Overwrite(Bytes& part, uint64_t offset, const uint8_t* data, size_t size) {
    part.resize(std::max(part.size(), static_cast<size_t>(offset) + size));
    std::copy_n(data, size, part.begin() + static_cast<ptrdiff_t>(offset));
}

} // namespace

void MuxedFile::Write(const uint8_t* data, size_t size) {
    const uint64_t at = m_position;
    m_position += size;
    if (!m_headClosed || at + size <= m_head.size()) {
        Overwrite(m_head, at, data, size);
    } else if (m_end && at >= *m_end) {
        Overwrite(m_tail, at - *m_end, data, size);
    } else if (m_file != nullptr && at < m_file->Size()) {
        m_file->Rewrite(at, data, size);
    } else {
        Append(data, size);
    }
}

void MuxedFile::Append(const uint8_t* data, size_t size) {
    if (m_file != nullptr) {
        m_file->Write(data, size);
    }
}

void MuxedFile::CloseHead(const std::optional<Bytes>& predicted) {
    m_headClosed = true;
    m_written = predicted.value_or(m_head);
    if (!predicted && m_file != nullptr) {
        m_file->ExpectRewrite();
    }
    Append(m_written.data(), m_written.size());
}

void MuxedFile::Finish() {
    Append(m_tail.data(), m_tail.size());
    if (m_head != m_written) {
        m_file->Rewrite(0, m_head.data(), m_head.size());
    }
}

std::unique_ptr<HeadPredictor> MakeStreamHead() {
    return std::make_unique<StreamHead>();
}

std::unique_ptr<HeadPredictor> MakeHeadPredictor(Container container) {
    if (container == Container::Mp4) {
        return std::make_unique<Mp4Head>();
    }
    return std::make_unique<MatroskaHead>();
}

} // namespace media
