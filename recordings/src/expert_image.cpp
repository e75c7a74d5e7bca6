#include "expert_image.h"

#include <libewf.h>

#include <algorithm>
#include <cstring>
#include <iterator>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <utility>

#include "recordings/error.h"

namespace recordings {

namespace {

/// Stretches of sectors that an image states errors for are at most so many; an image that states more is forged.
constexpr uint32_t kMostErrors = 1u << 20;

/// The names of an image's parts, by the name of the first.
std::vector<std::string> PartNames(const std::string& first) {
    char** names = nullptr;
    int count = 0;
    if (libewf_glob(first.c_str(), first.size(), LIBEWF_FORMAT_UNKNOWN, &names, &count, nullptr) != 1) {
        throw Error(ErrorKind::CannotOpen, first + ": the parts of the E01 image cannot be found; give its "
                                                   "first part, by a name that ends in .E01");
    }
    std::vector<std::string> parts(names, names + count);
    libewf_glob_free(names, count, nullptr);
    return parts;
}

/// The number that a part says it has, from 1 on; 0 when it is none. Nothing for images of the second version, whose parts
/// have other heads.
std::optional<uint32_t> NumberOf(const Source& part) {
    constexpr size_t kHead = 13;
    constexpr size_t kNumber = 9;
    constexpr char kSecondVersion[] = "EVF2";
    uint8_t head[kHead] = {};
    if (!part.ReadWhole(0, head, sizeof head) || !IsExpertImage(part)) {
        return 0;
    }
    if (std::memcmp(head, kSecondVersion, std::strlen(kSecondVersion)) == 0) {
        return std::nullopt;
    }
    return head[kNumber] + (uint32_t{head[kNumber + 1]} << 8);
}

/// The type of a part's last section: "next" where another part follows, "done" in the last part.
std::string LastSectionOf(const Source& part) {
    constexpr size_t kSectionHead = 76;
    char type[5] = "";
    const bool known =
        part.Size() >= kSectionHead && part.ReadWhole(part.Size() - kSectionHead, type, sizeof type - 1);
    return known ? type : "";
}

bool ContinuesAfter(const Source& part) {
    return LastSectionOf(part) == "next";
}

bool IsWhole(const Source& part) {
    return ContinuesAfter(part) || LastSectionOf(part) == "done";
}

/// The bytes that an image does not hold as the disk had them.
class DamagedBytes {
public:
    void Add(uint64_t from, uint64_t to) {
        auto next = m_ends.upper_bound(to);
        while (next != m_ends.begin() && std::prev(next)->second >= from) {
            next = std::prev(next);
            from = std::min(from, next->first);
            to = std::max(to, next->second);
            next = m_ends.erase(next);
        }
        m_ends.emplace(from, to);
    }

    /// How many bytes from @p offset on, of @p size, come before the first that is damaged.
    uint64_t SoundFrom(uint64_t offset, uint64_t size) const {
        const auto next = m_ends.upper_bound(offset);
        if (next != m_ends.begin() && std::prev(next)->second > offset) {
            return 0;
        }
        return next == m_ends.end() ? size : std::min(size, next->first - offset);
    }

private:
    std::map<uint64_t, uint64_t> m_ends; ///< of stretches that do not touch, by where they begin
};

class ExpertImage : public Source {
public:
    explicit ExpertImage(std::unique_ptr<FileSource> first) : m_name(first->Name()) {
        OpenParts(std::move(first));
        if (libewf_handle_initialize(&m_handle, nullptr) != 1) {
            throw Error(ErrorKind::OutOfMemory, m_name + ": there is no memory to read an E01 image");
        }
        try {
            Open();
        } catch (...) {
            libewf_handle_free(&m_handle, nullptr);
            throw;
        }
    }
    ~ExpertImage() override {
        libewf_handle_close(m_handle, nullptr);
        libewf_handle_free(&m_handle, nullptr);
    }
    ExpertImage(const ExpertImage&) = delete;
    ExpertImage& operator=(const ExpertImage&) = delete;

    const std::string& Name() const override { return m_name; }
    uint64_t Size() const override { return m_size; }
    std::vector<int> Descriptors() const override {
        std::vector<int> descriptors;
        for (const auto& part : m_parts) {
            descriptors.push_back(part->Descriptor());
        }
        return descriptors;
    }

    /// A read ends where the disk did not deliver when the image was made, and where the image is damaged since: libewf has
    /// zeros there.
    size_t Read(uint64_t offset, void* data, size_t size) const override {
        const std::lock_guard<std::mutex> lock(m_mutex);
        const uint64_t there = offset < m_size ? std::min<uint64_t>(size, m_size - offset) : 0;
        const auto most = static_cast<size_t>(m_damaged.SoundFrom(offset, there));
        size_t done = 0;
        for (size_t got = 1; done < most && got != 0; done += got) {
            got = ReadInChunk(offset + done, static_cast<uint8_t*>(data) + done, most - done);
        }
        NoteDamage();
        return static_cast<size_t>(m_damaged.SoundFrom(offset, done));
    }

private:
    /// What cannot be read of a chunk is all of it, and is not asked for again: libewf loses the chunk's memory each time.
    size_t ReadInChunk(uint64_t offset, uint8_t* data, size_t size) const {
        const uint64_t begin = offset / m_chunk * m_chunk;
        const auto most = static_cast<size_t>(std::min<uint64_t>(size, begin + m_chunk - offset));
        const ssize_t got =
            libewf_handle_read_random(m_handle, data, most, static_cast<off64_t>(offset), nullptr);
        if (got <= 0) {
            m_damaged.Add(begin, begin + m_chunk);
        }
        return static_cast<size_t>(std::max<ssize_t>(got, 0));
    }

    /// The parts are held open, and libewf is led to what is held.
    void OpenParts(std::unique_ptr<FileSource> first) {
        const std::optional<uint32_t> number = NumberOf(*first);
        if (number > 1u) {
            throw Error(ErrorKind::CannotOpen, m_name + ": is part " + std::to_string(*number) +
                                                   " of an E01 image; give its first part");
        }
        const std::vector<std::string> names = PartNames(m_name);
        m_parts.push_back(std::move(first));
        for (size_t i = 1; i < names.size(); ++i) {
            m_parts.push_back(std::make_unique<FileSource>(names[i]));
            if (NumberOf(*m_parts.back()).value_or(i + 1) != i + 1) {
                throw Error(ErrorKind::CannotOpen,
                            m_name + ": part " + std::to_string(i + 1) + " of the E01 image, " + names[i] +
                                ", is damaged, or a part of another image; copy it again");
            }
        }
        if (ContinuesAfter(*m_parts.back())) {
            throw Error(ErrorKind::PartMissing, m_name + ": the part of the E01 image after " +
                                                    m_parts.back()->Name() +
                                                    " is missing; copy it into the same folder");
        }
    }

    void Open() {
        std::vector<std::string> paths;
        std::vector<char*> names;
        paths.reserve(m_parts.size());
        names.reserve(m_parts.size());
        for (const auto& part : m_parts) {
            paths.push_back("/proc/self/fd/" + std::to_string(part->Descriptor()));
        }
        for (std::string& path : paths) {
            names.push_back(path.data());
        }
        if (libewf_handle_open(m_handle, names.data(), static_cast<int>(names.size()), LIBEWF_OPEN_READ,
                               nullptr) != 1) {
            throw Error(ErrorKind::CannotOpen,
                        m_name + ": cannot be read as an E01 image: it is cut off or damaged, or one of its "
                                 "parts is; copy it again");
        }
        size64_t size = 0;
        if (libewf_handle_get_media_size(m_handle, &size, nullptr) != 1 ||
            libewf_handle_get_bytes_per_sector(m_handle, &m_sector, nullptr) != 1 ||
            libewf_handle_get_chunk_size(m_handle, &m_chunk, nullptr) != 1 || m_chunk == 0) {
            throw Error(ErrorKind::CannotOpen, m_name + ": the E01 image does not say how large its disk is");
        }
        m_size = size;
        uint32_t errors = 0;
        if (libewf_handle_get_number_of_acquiry_errors(m_handle, &errors, nullptr) == 1) {
            Note(errors, libewf_handle_get_acquiry_error);
        }
        RequireContents();
    }

    /// Where the sectors of a part lie stands after them: of an image of one part that is cut off, libewf delivers nothing,
    /// but knows how large its disk is.
    void RequireContents() const {
        uint8_t byte = 0;
        if (!IsWhole(*m_parts.front()) && ExpertImage::Read(0, &byte, 1) != 1) {
            throw Error(
                ErrorKind::CannotOpen,
                m_name + ": nothing of the E01 image can be read: it is cut off or damaged; copy it again");
        }
    }

    using GetError = int (*)(libewf_handle_t*, uint32_t, uint64_t*, uint64_t*, libewf_error_t**);
    void Note(uint32_t count, GetError get, uint32_t from = 0) const {
        for (uint32_t i = from; i < std::min(count, kMostErrors); ++i) {
            uint64_t sector = 0;
            uint64_t sectors = 0;
            if (get(m_handle, i, &sector, &sectors, nullptr) == 1 &&
                sector < m_size / std::max(m_sector, 1u)) {
                const uint64_t start = sector * m_sector;
                const uint64_t most = (m_size - start) / std::max(m_sector, 1u) + 1;
                m_damaged.Add(start, start + std::min(sectors, most) * m_sector);
            }
        }
    }

    /// Checksums are found wrong as chunks are read.
    void NoteDamage() const {
        uint32_t errors = 0;
        if (libewf_handle_get_number_of_checksum_errors(m_handle, &errors, nullptr) == 1 &&
            errors > m_checksumErrors) {
            Note(errors, libewf_handle_get_checksum_error, m_checksumErrors);
            m_checksumErrors = errors;
        }
    }

    std::string m_name;
    std::vector<std::unique_ptr<FileSource>> m_parts;
    libewf_handle_t* m_handle = nullptr;
    uint64_t m_size = 0;
    uint32_t m_sector = 0;
    size32_t m_chunk = 0;       ///< bytes that have a checksum of their own
    mutable std::mutex m_mutex; ///< libewf reads one after the other
    mutable DamagedBytes m_damaged;
    mutable uint32_t m_checksumErrors = 0;
};

} // namespace

std::unique_ptr<Source> OpenExpertImage(std::unique_ptr<FileSource> first) {
    return std::make_unique<ExpertImage>(std::move(first));
}

} // namespace recordings
