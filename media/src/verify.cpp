#include "media/verify.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <optional>
#include <set>
#include <utility>

#include <fmt/format.h>

#include "area_reader.h"
#include "blocks_of_range.h"
#include "content_check.h"
#include "digest.h"
#include "manifest_end.h"
#include "media/error.h"
#include "opened_file.h"
#include "recordings/error.h"
#include "recordings/records.h"
#include "small_file.h"
#include "track_digests.h"

namespace media {

namespace {

using Result = Check::Result;
using Subject = Check::Subject;

/// The folder that a manifest lies in, held open.
class Folder {
public:
    explicit Folder(const std::string& path)
        : m_descriptor(open(path.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC)) {}
    ~Folder() { close(m_descriptor); }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;
    int Descriptor() const { return m_descriptor; }

private:
    int m_descriptor;
};

class Verifier {
public:
    Verifier(const VerifyRequest& request, const std::function<void(const Check&)>& report,
             const recordings::Watch& watch)
        : m_manifest(request.manifest), m_request(request), m_report(report), m_watch(watch),
          m_folder(m_manifest.folder) {}

    bool Run() {
        CheckSignature();
        CheckManifest();
        for (const NamedFile& file : m_manifest.files) {
            m_good.push_back(m_manifest.isExtract ? CheckImage(file) : CheckFile(file));
        }
        if (m_request.disk == nullptr) {
            Report(Result::Unchecked, Subject::Source, "there is no source to hold the files against");
        } else {
            CheckSource();
            CheckFacts();
            CheckBlocks();
            if (!m_manifest.isExtract) {
                CheckFrames();
            }
        }
        return !m_anyBad;
    }

private:
    void Report(Result result, Subject subject, std::string text) {
        m_anyBad = m_anyBad || result == Result::Bad;
        m_report({result, subject, std::move(text)});
    }
    bool Judge(bool good, Subject subject, const std::string& name, const char* ifGood, const char* ifBad) {
        Report(good ? Result::Good : Result::Bad, subject, name + ": " + (good ? ifGood : ifBad));
        return good;
    }

    // ---- the signature

    void CheckSignature() {
        const std::string name = m_manifest.name + ".sig";
        if (m_request.key == nullptr) {
            if (faccessat(m_folder.Descriptor(), name.c_str(), F_OK, AT_SYMLINK_NOFOLLOW) == 0) {
                Report(Result::Unchecked, Subject::Signature,
                       name + ": there is no public key to check it with");
            }
            return;
        }
        try {
            const OpenedFile file(m_folder.Descriptor(), name);
            std::string signature(kSignatureBytes, '\0');
            const bool whole =
                file.Size() == signature.size() && file.ReadWhole(0, signature.data(), signature.size());
            Judge(whole && m_request.key->Fits(m_manifest.text, signature), Subject::Signature, name,
                  "made with this key, of this manifest",
                  "was not made with this key, or not of this manifest");
        } catch (const Error& error) {
            Report(Result::Bad, Subject::Signature, error.what());
        }
    }

    // ---- the manifest itself

    void CheckManifest() {
        const std::string& text = m_manifest.text;
        Digest digest;
        const size_t ending = EndOfManifest(digest.Text()).size();
        const size_t covered = text.size() - std::min(text.size(), ending);
        digest.Restart();
        digest.Add(text.data(), covered);
        Judge(text.substr(covered) == EndOfManifest(digest.Text()), Subject::File, m_manifest.name,
              "is as it was written, by its own SHA-256", "was changed: its own SHA-256 is another");
    }

    // ---- the files

    bool CheckFile(const NamedFile& named) {
        if (named.streamed) {
            Report(Result::Unchecked, Subject::File,
                   fmt::format("{}: what went there is no file beside the manifest; if it was saved, its "
                               "SHA-256 must be {}",
                               named.name, named.sha256));
            return false;
        }
        try {
            const OpenedFile file(m_folder.Descriptor(), named.name);
            if (file.Size() != named.size) {
                Report(Result::Bad, Subject::File,
                       fmt::format("{}: has {} bytes, not {}", named.name, file.Size(), named.size));
                return false;
            }
            return Judge(Holds(file, {0, named.size, named.sha256, 0}), Subject::File, named.name,
                         "its SHA-256 is that of the manifest", "its SHA-256 is not that of the manifest");
        } catch (const Error& error) {
            Report(Result::Bad, Subject::File, error.what());
            return false;
        }
    }

    /// Whether an area still holds what it did.
    bool Holds(const recordings::Source& source, const AreaDigest& area) const {
        return HashArea(source, area.offset, area.size, m_watch).sha256 == area.sha256;
    }

    bool CheckImage(const NamedFile& named) {
        try {
            const OpenedFile file(m_folder.Descriptor(), named.name);
            if (file.Size() != named.size) {
                Report(Result::Bad, Subject::File,
                       fmt::format("{}: has {} bytes, not {}", named.name, file.Size(), named.size));
                return false;
            }
            return CheckParts(file, named.name, Subject::File) && CheckRest(file);
        } catch (const Error& error) {
            Report(Result::Bad, Subject::File, error.what());
            return false;
        }
    }

    /// Outside what was copied, an image holds nothing but zeros. Holes need not be read.
    bool CheckRest(const OpenedFile& file) {
        std::vector<AreaDigest> areas = m_manifest.areas;
        for (const NamedBlock& block : m_manifest.blocks) {
            areas.push_back(block.area);
        }
        std::sort(areas.begin(), areas.end(),
                  [](const AreaDigest& a, const AreaDigest& b) { return a.offset < b.offset; });
        areas.push_back({file.Size(), 0, "", 0});
        uint64_t at = 0;
        bool empty = true;
        for (const AreaDigest& area : areas) {
            empty = empty && (area.offset <= at || IsEmpty(file, at, std::min(area.offset, file.Size())));
            at = std::max(at, area.offset + area.size);
        }
        return Judge(empty, Subject::File, file.Name(), "there is nothing else in it",
                     "there is more in it than the manifest says");
    }

    /// Whether a file has nothing but zeros from @p from to @p to - 1.
    bool IsEmpty(const OpenedFile& file, uint64_t from, uint64_t to) const {
        while (from < to) {
            const off_t data = lseek(file.Descriptor(), static_cast<off_t>(from), SEEK_DATA);
            if (data < 0 && errno == ENXIO) {
                return true; // a hole up to the end
            }
            from = data < 0 ? from : static_cast<uint64_t>(data);
            const off_t hole = data < 0 ? -1 : lseek(file.Descriptor(), data, SEEK_HOLE);
            const uint64_t end = hole < 0 ? to : std::min(to, static_cast<uint64_t>(hole));
            if (from < end && !IsZero(file, from, end)) {
                return false;
            }
            from = std::max(from, end);
        }
        return true;
    }

    bool IsZero(const OpenedFile& file, uint64_t from, uint64_t to) const {
        AreaReader reader(file, from, to - from);
        for (AreaReader::Piece piece = reader.Next(); piece.size != 0; piece = reader.Next()) {
            const bool zero =
                std::all_of(piece.data, piece.data + piece.size, [](uint8_t byte) { return byte == 0; });
            if (!zero) {
                return false;
            }
            if (m_watch && !m_watch({0, 0, 0})) {
                throw recordings::Error(recordings::ErrorKind::Cancelled, file.Name() + ": interrupted");
            }
        }
        return true;
    }

    /// Holds what lies before the blocks, and the blocks, against the manifest.
    bool CheckParts(const recordings::Source& source, const std::string& name, Subject subject) {
        bool good = true;
        for (const AreaDigest& area : m_manifest.areas) {
            good &= Judge(Holds(source, area), subject, name,
                          "what lies before its blocks is that of the manifest",
                          "what lies before its blocks is not that of the manifest");
        }
        return HashBlocks(source, name, subject) && good;
    }

    /// All sound blocks together, and each of the others.
    bool HashBlocks(const recordings::Source& source, const std::string& name, Subject subject) {
        size_t sound = 0;
        for (const NamedBlock& block : m_manifest.blocks) {
            if (Holds(source, block.area)) {
                ++sound;
            } else {
                Report(Result::Bad, subject,
                       fmt::format("{}: block {} is not what the manifest says", name, block.number));
            }
        }
        if (sound != 0) {
            Report(Result::Good, subject,
                   fmt::format("{}: {} of {} block{} as in the manifest", name, sound,
                               m_manifest.blocks.size(), m_manifest.blocks.size() == 1 ? " is" : "s are"));
        }
        return sound == m_manifest.blocks.size();
    }

    // ---- the source

    const recordings::Source& Source() const { return m_request.disk->Bytes(); }

    void CheckSource() {
        const std::string& name = Source().Name();
        if (Source().Size() != m_manifest.deviceSize) {
            Report(Result::Bad, Subject::Source,
                   fmt::format("{}: has {} bytes, not {}", name, Source().Size(), m_manifest.deviceSize));
        }
        const AreaDigest& head = m_manifest.head;
        const bool isHead = head.offset == 0 && head.size == recordings::kPartitionHeadBytes;
        Judge(isHead && Holds(Source(), head), Subject::Source, name,
              "its partition head is that of the manifest", "its partition head is not that of the manifest");
        if (m_manifest.source) {
            const AreaDigest& whole = *m_manifest.source;
            const bool isWhole = whole.offset == 0 && whole.size == m_manifest.deviceSize;
            Judge(isWhole && Holds(Source(), whole), Subject::Source, name,
                  "its SHA-256 is that of the manifest", "its SHA-256 is not that of the manifest");
        }
    }

    /// What the manifest says of the disk, beside digests.
    void CheckFacts() {
        const recordings::DiskFacts& facts = m_request.disk->Facts();
        const bool isRing = m_manifest.blockCount == facts.blockCount &&
                            m_manifest.blockSize == facts.blockSize &&
                            m_manifest.description == m_request.printable(facts.description);
        if (!isRing) {
            Report(Result::Bad, Subject::Source,
                   Source().Name() + ": its blocks or its description are not those of the manifest");
        }
        if (!IsVehicle()) {
            Report(Result::Bad, Subject::Source,
                   Source().Name() + ": its vehicle is not that of the manifest");
        }
    }

    bool IsVehicle() const {
        const auto identity =
            m_manifest.blocks.empty() || m_manifest.blocks.front().number >= m_request.disk->BlockCount()
                ? std::nullopt
                : recordings::ReadIdentity(*m_request.disk, m_manifest.blocks.front().number);
        const auto is = [this](const std::optional<std::string>& named, const std::string& text) {
            return !named || *named == m_request.printable(text);
        };
        return !identity || (is(m_manifest.vehicleNumber, identity->vehicleNumber) &&
                             is(m_manifest.vehicleId, identity->vehicleId));
    }

    void CheckBlocks() {
        const recordings::Disk& disk = *m_request.disk;
        const bool placed =
            std::all_of(m_manifest.blocks.begin(), m_manifest.blocks.end(), [&disk](const NamedBlock& block) {
                return block.number < disk.BlockCount() && block.area.offset == disk.StartOf(block.number) &&
                       block.area.size == disk.Facts().blockSize;
            });
        if (!placed) {
            Report(Result::Bad, Subject::Block,
                   Source().Name() + ": the blocks of the manifest do not lie where those of this source do");
            return;
        }
        if (m_manifest.isExtract) {
            CheckParts(Source(), Source().Name(), Subject::Block);
            CheckExtent();
        } else {
            HashBlocks(Source(), Source().Name(), Subject::Block);
        }
    }

    /// An extract has all of its range, as far as that is not locked: nobody took a block out of it.
    void CheckExtent() {
        const recordings::ChannelSet seen =
            m_manifest.channels.Without(m_manifest.locked).Without(m_request.disk->Hidden());
        std::set<uint32_t> missing =
            BlocksOfRange(*m_request.disk, *m_request.blocks, m_manifest.range, seen, {}, m_watch);
        const size_t expected = missing.size();
        for (const NamedBlock& block : m_manifest.blocks) {
            missing.erase(block.number);
        }
        Judge(
            missing.empty(), Subject::Block, m_manifest.name, "it has all blocks of its range",
            fmt::format("{} of the {} blocks of its range are not in it", missing.size(), expected).c_str());
    }

    // ---- the frames

    void CheckFrames() {
        const recordings::ChannelSet hidden = m_request.disk->Hidden().Without(m_manifest.locked);
        for (const NamedTrack& track : m_manifest.tracks) {
            if (hidden.Has(track.channel)) {
                Report(Result::Bad, Subject::Frames,
                       WordsOf(track) + ": is locked on the source; give its password to compare it");
                return;
            }
        }
        const FileDigests inFiles = DigestFiles();
        ContentCheck(
            m_request, inFiles,
            [this](Result result, Subject subject, const std::string& text) {
                Report(result, subject, text);
            },
            m_watch)
            .Run();
    }

    // ---- the files' side

    /// What the files hold. Each of those that cannot be compared is reported.
    FileDigests DigestFiles() {
        FileDigests digests;
        digests.tracks.resize(m_manifest.tracks.size());
        digests.facts.resize(m_manifest.files.size());
        digests.texts.resize(m_manifest.files.size());
        for (size_t file = 0; file < m_manifest.files.size(); ++file) {
            digests.comparable.push_back(m_good[file] && DigestFile(file, digests));
            if (!m_good[file]) {
                Report(Result::Unchecked, Subject::Frames,
                       m_manifest.files[file].name + ": its frames are not compared: " +
                           (m_manifest.files[file].streamed ? "they are in no file"
                                                            : "it is not the file that was made"));
            }
        }
        return digests;
    }

    /// @return false when it cannot be read, which is reported
    bool DigestFile(size_t number, FileDigests& digests) {
        const NamedFile& named = m_manifest.files[number];
        if (m_manifest.container == Container::Raw) {
            // The file has nothing but payloads: its digest, which was checked, is theirs.
            for (const size_t track : TracksOf(m_manifest, number)) {
                digests.tracks[track].sha256 = named.sha256;
                digests.tracks[track].frames = m_manifest.tracks[track].frames;
            }
            return true;
        }
        try {
            const OpenedFile file(m_folder.Descriptor(), named.name);
            DigestContainer(file, m_manifest, number, digests, m_watch);
            return true;
        } catch (const Error& error) {
            Report(Result::Bad, Subject::Frames, error.what());
            return false;
        }
    }

    const ManifestFile& m_manifest;
    const VerifyRequest& m_request;
    const std::function<void(const Check&)>& m_report;
    const recordings::Watch& m_watch;
    Folder m_folder;
    std::vector<bool> m_good; ///< of each file: it is the one that was made
    bool m_anyBad = false;
};

} // namespace

const char* NameOf(Check::Result result) {
    switch (result) {
    case Result::Good:
        return "good";
    case Result::Bad:
        return "bad";
    default:
        return "unchecked";
    }
}

const char* NameOf(Check::Subject subject) {
    switch (subject) {
    case Subject::Signature:
        return "signature";
    case Subject::File:
        return "file";
    case Subject::Source:
        return "source";
    case Subject::Block:
        return "block";
    case Subject::Frames:
        return "frames";
    case Subject::Gaps:
        return "gaps";
    case Subject::Events:
        return "events";
    case Subject::Text:
        return "text";
    case Subject::Chapters:
        return "chapters";
    default:
        return "facts";
    }
}

bool Verify(const VerifyRequest& request, const std::function<void(const Check&)>& report,
            const recordings::Watch& watch) {
    return Verifier(request, report, watch).Run();
}

} // namespace media
