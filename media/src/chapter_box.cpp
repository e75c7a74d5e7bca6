#include "chapter_box.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>

namespace media {

namespace {

/// Boxes of one level that are looked at: files have few.
constexpr int kMostBoxes = 4096;
/// Places are counted in tenths of microseconds.
constexpr uint64_t kPlacesAMicrosecond = 10;
/// Of a chapter box: version, flags and a reserved word.
constexpr uint64_t kHeadOfChapters = 8;

/// A stretch of a file, read from its start on. What lies after its end counts as zeros.
class Stretch {
public:
    Stretch(const recordings::Source& file, uint64_t from, uint64_t to)
        : m_file(&file), m_at(from), m_end(to) {}

    uint64_t At() const { return m_at; }
    uint64_t End() const { return m_end; }
    bool IsAtEnd() const { return m_at >= m_end; }
    void Skip(uint64_t bytes) { m_at += bytes; }

    std::string Text(size_t size) {
        std::string text(size, '\0');
        const uint64_t left = IsAtEnd() ? 0 : m_end - m_at;
        const auto wanted = static_cast<size_t>(std::min<uint64_t>(size, left));
        if (wanted != 0 && m_file->Read(m_at, text.data(), wanted) != wanted) {
            m_at = m_end;
        }
        m_at += size;
        return text;
    }
    uint64_t Number(size_t bytes) {
        uint64_t number = 0;
        for (const char byte : Text(bytes)) {
            number = number << 8 | static_cast<uint8_t>(byte);
        }
        return number;
    }

private:
    const recordings::Source* m_file;
    uint64_t m_at;
    uint64_t m_end;
};

/// What the first box of a name in a stretch holds.
std::optional<Stretch> Find(const recordings::Source& file, Stretch in, const std::string& name) {
    for (int boxes = 0; boxes < kMostBoxes && !in.IsAtEnd(); ++boxes) {
        const uint64_t start = in.At();
        uint64_t size = in.Number(4);
        const std::string type = in.Text(4);
        size = size == 1 ? in.Number(8) : size == 0 ? in.End() - start : size;
        if (size < in.At() - start || size > in.End() - start) {
            return std::nullopt;
        }
        if (type == name) {
            return Stretch(file, in.At(), start + size);
        }
        in.Skip(start + size - in.At());
    }
    return std::nullopt;
}

} // namespace

std::vector<Chapter> ReadChapterBox(const recordings::Source& file) {
    std::optional<Stretch> box = Stretch(file, 0, file.Size());
    for (const char* const name : {"moov", "udta", "chpl"}) {
        box = box ? Find(file, *box, name) : std::nullopt;
    }
    std::vector<Chapter> chapters;
    if (!box) {
        return chapters;
    }
    box->Skip(kHeadOfChapters);
    for (uint64_t left = box->Number(1); left > 0 && !box->IsAtEnd(); --left) {
        Chapter chapter;
        chapter.time = static_cast<int64_t>(box->Number(8) / kPlacesAMicrosecond);
        chapter.title = box->Text(static_cast<size_t>(box->Number(1)));
        chapters.push_back(std::move(chapter));
    }
    return chapters;
}

} // namespace media
