#include "program/disk_files.h"

extern "C" {
#include <libavutil/adler32.h>
}

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <stdexcept>

namespace fuzzing {

namespace {

namespace fs = std::filesystem;
using Random = std::mt19937_64;

std::string ReadWhole(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

/// An E01 image of a file, as ewfacquire makes it.
std::string ExpertImageOf(const std::string& path) {
    const std::string made = path + ".E01";
    const std::string command =
        "ewfacquire -u -q -c fast -t '" + path + "' '" + path + "' >/dev/null 2>&1 </dev/null";
    const bool done =
        std::system(command.c_str()) == 0; // NOLINT(cert-env33-c): run as a person would, by the shell
    std::string bytes = done ? ReadWhole(made) : "";
    fs::remove(made);
    return bytes;
}

/// Copies a stretch of a file, without its holes, to a file of its own.
void CopyPart(int whole, off_t begin, off_t end, const std::string& path) {
    const int part = open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    bool copied = part >= 0 && ftruncate(part, end - begin) == 0;
    for (off_t data = begin; data < end && (data = lseek(whole, data, SEEK_DATA)) >= 0 && data < end;) {
        std::vector<char> bytes(static_cast<size_t>(std::min(end, lseek(whole, data, SEEK_HOLE)) - data));
        const auto size = static_cast<ssize_t>(bytes.size());
        copied = copied && pread(whole, bytes.data(), bytes.size(), data) == size &&
                 pwrite(part, bytes.data(), bytes.size(), data - begin) == size;
        data += size;
    }
    close(part);
    if (!copied) {
        throw std::runtime_error(path + ": cannot be made");
    }
}

/// Cuts a file into parts at any places; one of them may be missing.
std::vector<std::string> Cut(const std::string& path, Random& random) {
    const int whole = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    const off_t size = lseek(whole, 0, SEEK_END);
    std::vector<off_t> edges = {0, size};
    for (uint64_t i = 1 + random() % 3; i > 0; --i) {
        edges.push_back(static_cast<off_t>(random() % (static_cast<uint64_t>(size) + 1)));
    }
    std::sort(edges.begin(), edges.end());
    const size_t missing = random() % 4 == 0 ? 2 + static_cast<size_t>(random() % 3) : 0;
    std::vector<std::string> paths;
    for (size_t part = 1; part < edges.size(); ++part) {
        if (part != missing) {
            paths.push_back(fs::path(path).replace_extension(".00" + std::to_string(part)).string());
            CopyPart(whole, edges[part - 1], edges[part], paths.back());
        }
    }
    close(whole);
    fs::remove(path);
    return paths;
}

/// A stretch of an E01 image that a checksum follows.
struct Sealed {
    size_t offset;
    size_t size;

    size_t End() const { return offset + size; }
};

template <typename T>
T NumberAt(const std::string& bytes, size_t offset) {
    T number = 0;
    std::memcpy(&number, bytes.data() + offset, sizeof number);
    return number;
}

template <typename T>
void PutNumber(std::string& bytes, size_t offset, T number) {
    std::memcpy(bytes.data() + offset, &number, sizeof number);
}

/// The heads of an image's sections, what it says of its disk, and its tables of chunks.
std::vector<Sealed> SealedIn(const std::string& image) {
    constexpr size_t kFileHead = 13;
    constexpr size_t kSectionHead = 72; // type, place of the next section, size
    constexpr size_t kNext = 16;
    constexpr size_t kData = kSectionHead + 4;
    constexpr size_t kVolume = 1048;
    constexpr size_t kTableHead = 20;
    std::vector<Sealed> sealed;
    for (size_t at = kFileHead, last = 0; at > last && at + kData <= image.size();) {
        const std::string type = image.c_str() + at;
        sealed.push_back({at, kSectionHead});
        if (type == "volume" || type == "data") {
            sealed.push_back({at + kData, kVolume});
        } else if (type == "table" || type == "table2") {
            const Sealed head = {at + kData, kTableHead};
            sealed.push_back(head);
            sealed.push_back({head.End() + 4, size_t{4} * NumberAt<uint32_t>(image, head.offset)});
        }
        last = at;
        at = static_cast<size_t>(NumberAt<uint64_t>(image, at + kNext));
    }
    return sealed;
}

/// Changes a field of an image, and mostly its checksum with it: else nobody looks at the field.
void Forge(std::string& image, const std::vector<Sealed>& sealed, Random& random) {
    constexpr uint32_t kEdges[] = {0,      1,          2,          0x7F,       0x80,
                                   0xFFFF, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFE, 0xFFFFFFFF};
    const Sealed& part = sealed.at(random() % sealed.size());
    constexpr size_t kFields = 96; // what follows is padding, or more of the same
    const size_t field = part.offset + static_cast<size_t>(random() % std::min(part.size, kFields)) / 4 * 4;
    const auto held = NumberAt<uint32_t>(image, field);
    const uint32_t edge = kEdges[random() % std::size(kEdges)];
    const uint32_t values[] = {edge, held + 1, held - 1, held ^ 1u << random() % 32,
                               static_cast<uint32_t>(random())};
    PutNumber(image, field, values[random() % std::size(values)]);
    if (random() % 8 != 0) {
        PutNumber(image, part.End(),
                  av_adler32_update(1, reinterpret_cast<const uint8_t*>(image.data()) + part.offset,
                                    static_cast<unsigned>(part.size)));
    }
}

/// Changes fields and any bytes, and may cut the end off.
std::string Damaged(std::string image, Random& random) {
    const size_t size = image.size();
    const std::vector<Sealed> sealed = SealedIn(image);
    for (uint64_t i = random() % 3; i > 0; --i) {
        Forge(image, sealed, random);
    }
    for (uint64_t i = random() % 3; i > 0; --i) {
        image.at(static_cast<size_t>(random() % size)) = static_cast<char>(random());
    }
    if (random() % 6 == 0) {
        image.resize(static_cast<size_t>(random() % size));
    }
    return image;
}

} // namespace

DiskFiles::DiskFiles(const std::string& whole) : m_expertImage(ExpertImageOf(whole)) {}

DiskFiles::Form DiskFiles::FormOf(uint64_t number) const {
    const uint64_t kind = Random(number ^ 0x5A5A)() % 24;
    return kind == 0 && !m_expertImage.empty() ? Form::Expert : kind <= 2 ? Form::Split : Form::Whole;
}

DiskFiles::Put DiskFiles::Write(const FileDisk& disk, uint64_t number, const std::string& path) const {
    Random random(number ^ 0xA5A5);
    switch (FormOf(number)) {
    case Form::Split:
        disk.Write(path);
        return {disk.story + ", in parts", Cut(path, random)};
    case Form::Expert: {
        const std::string image = fs::path(path).replace_extension(".E01").string();
        std::ofstream(image, std::ios::binary) << Damaged(m_expertImage, random);
        return {"damaged E01 image", {image}};
    }
    default:
        disk.Write(path);
        return {disk.story, {path}};
    }
}

} // namespace fuzzing
