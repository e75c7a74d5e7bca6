#include "split_image.h"

#include <algorithm>
#include <filesystem>
#include <optional>
#include <utility>

#include "recordings/error.h"

namespace recordings {

namespace {

namespace fs = std::filesystem;

/// Digits or letters that a part's ending has at most: more parts than these count cannot be opened anyway.
constexpr size_t kLongestEnding = 5;

/// The place of a part among those of its image, as its name's ending counts it.
struct Ending {
    char zero;       ///< the digit or letter that counts as 0
    uint32_t base;   ///< 10 digits, or 26 letters
    size_t length;   ///< of the ending
    uint32_t number; ///< what it counts

    bool SameKind(const Ending& other) const { return zero == other.zero && length == other.length; }
    /// Digits are counted from 0 or from 1 on, letters from a on.
    bool IsFirst() const { return number == 0 || (zero == '0' && number == 1); }
    std::string Text(uint32_t of) const {
        std::string text(length, zero);
        for (size_t i = length; i-- > 0; of /= base) {
            text[i] = static_cast<char>(zero + static_cast<char>(of % base));
        }
        return text;
    }
};

std::optional<Ending> EndingOf(const fs::path& path) {
    const std::string name = path.extension().string();
    const std::string text = name.empty() ? "" : name.substr(1);
    const bool digits = text.size() >= 3 && text.find_first_not_of("0123456789") == std::string::npos;
    const bool letters =
        text.size() >= 2 && text.find_first_not_of("abcdefghijklmnopqrstuvwxyz") == std::string::npos;
    if (text.size() > kLongestEnding || (!digits && !letters)) {
        return std::nullopt;
    }
    Ending ending = {digits ? '0' : 'a', digits ? 10u : 26u, text.size(), 0};
    for (const char c : text) {
        ending.number = ending.number * ending.base + static_cast<uint32_t>(c - ending.zero);
    }
    return ending;
}

std::string PartName(const fs::path& path, const Ending& ending, uint32_t number) {
    return fs::path(path).replace_extension(ending.Text(number)).string();
}

/// The numbers of all parts that lie beside a part, rising.
std::vector<uint32_t> NumbersBeside(const fs::path& part, const Ending& ending) {
    std::vector<uint32_t> numbers;
    const fs::path folder = part.has_parent_path() ? part.parent_path() : fs::path(".");
    std::error_code failed;
    for (fs::directory_iterator i(folder, failed); !failed && i != fs::directory_iterator();
         i.increment(failed)) {
        const fs::path& each = i->path();
        const std::optional<Ending> other = EndingOf(each);
        if (other && other->SameKind(ending) && each.stem() == part.stem()) {
            numbers.push_back(other->number);
        }
    }
    if (failed) {
        throw Error(ErrorKind::CannotOpen, part.string() +
                                               ": the other parts of the split image cannot be looked for: " +
                                               folder.string() + ": " + failed.message());
    }
    std::sort(numbers.begin(), numbers.end());
    return numbers;
}

class SplitImage : public Source {
public:
    explicit SplitImage(std::vector<std::unique_ptr<FileSource>> files) : m_files(std::move(files)) {
        uint64_t size = 0;
        for (const auto& file : m_files) {
            size += file->Size();
            m_ends.push_back(size);
        }
    }

    const std::string& Name() const override { return m_files.front()->Name(); }
    uint64_t Size() const override { return m_ends.empty() ? 0 : m_ends.back(); }
    std::vector<int> Descriptors() const override {
        std::vector<int> descriptors;
        for (const auto& file : m_files) {
            descriptors.push_back(file->Descriptor());
        }
        return descriptors;
    }

    size_t Read(uint64_t offset, void* data, size_t size) const override {
        size_t done = 0;
        ForEachPiece(offset, size, [&](const FileSource& file, uint64_t from, size_t length) {
            const size_t got = file.Read(from, static_cast<uint8_t*>(data) + done, length);
            done += got;
            return got == length;
        });
        return done;
    }

    void WillNeed(uint64_t offset, size_t size) const override {
        ForEachPiece(offset, size, [](const FileSource& file, uint64_t from, size_t length) {
            file.WillNeed(from, length);
            return true;
        });
    }

private:
    /// Hands over the piece of each file that a stretch has in common with it, until one is refused.
    template <typename Take>
    void ForEachPiece(uint64_t offset, size_t size, const Take& take) const {
        auto file =
            static_cast<size_t>(std::upper_bound(m_ends.begin(), m_ends.end(), offset) - m_ends.begin());
        for (; size != 0 && file < m_files.size(); ++file) {
            const uint64_t begin = file == 0 ? 0 : m_ends[file - 1];
            const auto length = static_cast<size_t>(std::min<uint64_t>(size, m_ends[file] - offset));
            if (!take(*m_files[file], offset - begin, length)) {
                return;
            }
            offset += length;
            size -= length;
        }
    }

    std::vector<std::unique_ptr<FileSource>> m_files;
    std::vector<uint64_t> m_ends; ///< of each file, in the whole
};

} // namespace

std::vector<std::string> PartsOfImage(const std::string& first) {
    const std::optional<Ending> ending = EndingOf(first);
    std::vector<std::string> parts = {first};
    if (!ending || !ending->IsFirst()) {
        return parts;
    }
    uint32_t expected = ending->number + 1;
    for (const uint32_t number : NumbersBeside(first, *ending)) {
        if (number < expected) {
            continue;
        }
        if (number > expected) {
            throw Error(ErrorKind::PartMissing, first + ": part " + PartName(first, *ending, expected) +
                                                    " of the split image is missing, though " +
                                                    PartName(first, *ending, number) +
                                                    " is there; copy it into the same folder");
        }
        parts.push_back(PartName(first, *ending, number));
        ++expected;
    }
    return parts;
}

std::string FirstPartOf(const std::string& path) {
    const std::optional<Ending> ending = EndingOf(path);
    if (!ending || ending->IsFirst()) {
        return "";
    }
    std::error_code none;
    for (const uint32_t number : {0u, 1u}) {
        Ending first = *ending;
        first.number = number;
        std::string name = PartName(path, first, number);
        if (first.IsFirst() && fs::is_regular_file(name, none)) {
            return name;
        }
    }
    return "";
}

std::unique_ptr<Source> JoinFiles(std::vector<std::unique_ptr<FileSource>> files) {
    return std::make_unique<SplitImage>(std::move(files));
}

} // namespace recordings
