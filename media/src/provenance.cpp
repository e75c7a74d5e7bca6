#include "media/provenance.h"

#include <sys/sysmacros.h>

#include <algorithm>
#include <fstream>
#include <initializer_list>
#include <system_error>

#include <fmt/format.h>

#include "area_reader.h"
#include "digest.h"
#include "recordings/error.h"

namespace media {

namespace fs = std::filesystem;

namespace {

/// More than any disk says of itself.
constexpr size_t kLongestFact = 256;

/// What a file of the kernel's says, without blanks around it.
std::string FactIn(const fs::path& file) {
    std::ifstream stream(file, std::ios::binary);
    std::string text(kLongestFact, '\0');
    stream.read(text.data(), static_cast<std::streamsize>(text.size()));
    text.resize(static_cast<size_t>(stream.gcount()));
    const char* const blanks = " \t\r\n";
    const size_t end = text.find_last_not_of(std::string(blanks) + '\0') + 1;
    const size_t begin = std::min(text.find_first_not_of(blanks), end);
    return text.substr(begin, end - begin);
}

/// The unit serial number page of a SCSI or SATA disk: four bytes, the last one a length, and the number.
std::string SerialInPage(const fs::path& file) {
    std::ifstream stream(file, std::ios::binary);
    std::string head(4, '\0');
    if (!stream.read(head.data(), static_cast<std::streamsize>(head.size()))) {
        return "";
    }
    std::string serial(static_cast<unsigned char>(head[3]), '\0');
    stream.read(serial.data(), static_cast<std::streamsize>(serial.size()));
    serial.resize(static_cast<size_t>(stream.gcount()));
    const size_t begin = std::min(serial.find_first_not_of(' '), serial.size());
    const size_t end = serial.find_last_not_of(std::string(" \0", 2)) + 1;
    return begin < end ? serial.substr(begin, end - begin) : "";
}

std::string FirstKnown(std::initializer_list<std::string> texts) {
    for (const std::string& text : texts) {
        if (!text.empty()) {
            return text;
        }
    }
    return "";
}

} // namespace

AreaDigest HashArea(const recordings::Source& source, uint64_t offset, uint64_t size,
                    const recordings::Watch& watch) {
    AreaReader reader(source, offset, size);
    Digest digest;
    uint64_t done = 0;
    for (AreaReader::Piece piece = reader.Next(); piece.size != 0; piece = reader.Next()) {
        digest.Add(piece.data, piece.size);
        done += piece.size;
        if (watch && !watch({done, size, done})) {
            throw recordings::Error(recordings::ErrorKind::Cancelled, source.Name() + ": interrupted");
        }
    }
    return {offset, size, digest.Text(), reader.UnreadableBytes()};
}

DeviceFacts ReadDeviceFacts(dev_t device, const fs::path& kernel) {
    std::error_code none;
    fs::path entry =
        fs::canonical(kernel / "dev/block" / fmt::format("{}:{}", major(device), minor(device)), none);
    if (entry.empty()) {
        return {};
    }
    if (fs::exists(entry / "partition", none)) {
        entry = entry.parent_path();
    }
    const fs::path disk = entry / "device";
    // Memory cards have a name in place of a model.
    return {FirstKnown({FactIn(disk / "model"), FactIn(disk / "name")}),
            FirstKnown({FactIn(disk / "serial"), SerialInPage(disk / "vpd_pg80"), FactIn(entry / "serial")})};
}

} // namespace media
