#include "media/verify.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <iterator>
#include <optional>
#include <utility>

#include <fmt/format.h>

#include "area_reader.h"
#include "media/error.h"
#include "opened_file.h"
#include "recordings/records.h"
#include "small_file.h"
#include "survey.h"
#include "time_check.h"
#include "track_digests.h"
#include "track_finder.h"

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

/// Places are whole microseconds; a fraction of seconds may be off by what 32-bit x86 computes more exactly.
constexpr double kHalfAMicrosecond = 5e-7;

std::string NameOf(const NamedTrack& track) {
    return fmt::format("channel {} {}", track.channel, track.isVideo ? "video" : "audio");
}

/// What the files of a manifest hold.
struct FileDigests {
    std::vector<TrackDigest> tracks; ///< those of files that cannot be compared are empty
    std::vector<bool> comparable;    ///< of each file

    bool Any() const { return std::count(comparable.begin(), comparable.end(), true) != 0; }
    bool All() const { return std::count(comparable.begin(), comparable.end(), false) == 0; }
};

class Verifier {
public:
    Verifier(const VerifyRequest& request, const std::function<void(const Check&)>& report,
             const recordings::Watch& watch)
        : m_manifest(request.manifest), m_request(request), m_report(report), m_watch(watch),
          m_folder(m_manifest.folder) {}

    bool Run() {
        CheckSignature();
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
            if (!zero || (m_watch && !m_watch({0, 0, 0}))) {
                return false;
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
        } else {
            HashBlocks(Source(), Source().Name(), Subject::Block);
        }
    }

    // ---- the frames

    void CheckFrames() {
        const recordings::ChannelSet hidden = m_request.disk->Hidden().Without(m_manifest.locked);
        for (const NamedTrack& track : m_manifest.tracks) {
            if (hidden.Has(track.channel)) {
                Report(Result::Bad, Subject::Frames,
                       NameOf(track) + ": is locked on the source; give its password to compare it");
                return;
            }
        }
        const FileDigests inFiles = DigestFiles();
        if (!inFiles.Any()) {
            return;
        }
        const DiskDigests onDisk = DigestFrames(*m_request.disk, *m_request.blocks, m_manifest,
                                                inFiles.tracks, FindStarts(), m_watch);
        bool good = inFiles.All();
        for (size_t i = 0; i < m_manifest.tracks.size(); ++i) {
            const NamedTrack& track = m_manifest.tracks[i];
            if (inFiles.comparable[track.output]) {
                good &= CompareTrack(track, inFiles.tracks[i], onDisk.tracks[i]);
            }
        }
        if (good && m_request.timeOf) {
            CompareClock(onDisk);
        }
    }

    // ---- times

    std::optional<int64_t> StampOf(const std::string& text) const {
        return TimeStampOf(m_manifest, m_request.timeOf, text);
    }

    /// Where the times of the files begin: the first one's with the first frame that shows a track, each other's with its
    /// own first frame. One may begin earlier, with an event.
    std::vector<FileStart> FindStarts() const {
        std::vector<FileStart> starts(m_manifest.files.size());
        if (m_manifest.container == Container::Raw || !m_request.timeOf || starts.empty()) {
            return starts;
        }
        for (auto segment = m_manifest.segments.rbegin(); segment != m_manifest.segments.rend(); ++segment) {
            if (segment->output < starts.size()) { // the first of each file comes last
                starts[segment->output].claimed = StampOf(segment->time);
            }
        }
        starts.front().expected = FindFirst();
        return starts;
    }

    /// The time of the frame that an export begins with, found as it was then.
    std::optional<int64_t> FindFirst() const {
        const recordings::FrameQuery query = QueryOf(m_manifest);
        const auto refuses = [this](const Track& track, const recordings::Frame& frame) {
            return RefusalOf(m_manifest.container, track, frame).has_value();
        };
        const TrackFinder finder(*m_request.disk, *m_request.blocks, {});
        const Survey survey = MakeSurvey(*m_request.disk, *m_request.blocks, query, m_watch);
        auto tracks = finder.FindAll(query, survey, refuses, m_watch);
        for (auto track = tracks.begin(); track != tracks.end();) {
            const bool wanted = m_manifest.withAudio || !track->first.isAudio;
            track = wanted ? std::next(track) : tracks.erase(track);
        }
        return tracks.empty() ? std::nullopt : std::optional(FirstOf(tracks).time);
    }

    /// Holds what the manifest says of times against the disk.
    void CompareClock(const DiskDigests& onDisk) {
        for (size_t i = 0; i < m_manifest.tracks.size(); ++i) {
            const NamedTrack& track = m_manifest.tracks[i];
            const TrackDigest& found = onDisk.tracks[i];
            if (!IsSpan(track.start, track.end, found.frames, found.earliest, found.latest)) {
                Report(Result::Bad, Subject::Frames,
                       fmt::format("{}: {}: its start and end are not those of the source", m_manifest.name,
                                   NameOf(track)));
            }
        }
        CompareWholeSpan(onDisk);
        for (size_t file = 0; file < m_manifest.files.size(); ++file) {
            CompareSegments(file, onDisk);
        }
    }

    bool IsSpan(const std::string& start, const std::string& end, uint64_t frames, int64_t earliest,
                int64_t latest) const {
        return frames == 0 ? start.empty() && end.empty()
                           : StampOf(start) == earliest && StampOf(end) == latest;
    }

    void CompareWholeSpan(const DiskDigests& onDisk) {
        TrackDigest all;
        for (const TrackDigest& track : onDisk.tracks) {
            if (track.frames != 0) {
                all.earliest = all.frames == 0 ? track.earliest : std::min(all.earliest, track.earliest);
                all.latest = all.frames == 0 ? track.latest : std::max(all.latest, track.latest);
                all.frames += track.frames;
            }
        }
        if (!IsSpan(m_manifest.start, m_manifest.end, all.frames, all.earliest, all.latest)) {
            Report(Result::Bad, Subject::Frames,
                   m_manifest.name + ": its start and end are not those of the source");
        }
    }

    void CompareSegments(size_t file, const DiskDigests& onDisk) {
        const std::vector<ClockSegment>& segments = onDisk.segments[file];
        if (!AreSegments(file, segments)) {
            Report(Result::Bad, Subject::Frames,
                   m_manifest.files[file].name + ": the segments of its clock are not those of the source");
        } else if (!segments.empty() && segments.front().time != onDisk.starts[file].expected &&
                   !IsTimeOfEvent(segments.front().time)) {
            Report(Result::Unchecked, Subject::Frames,
                   m_manifest.files[file].name +
                       ": begins before its first frame, with nothing that is on the source");
        }
    }

    bool AreSegments(size_t file, const std::vector<ClockSegment>& expected) const {
        size_t found = 0;
        for (const NamedSegment& segment : m_manifest.segments) {
            if (segment.output != file) {
                continue;
            }
            const bool fits =
                found < expected.size() &&
                std::abs(segment.seconds - SecondsOf(expected[found].place)) < kHalfAMicrosecond &&
                StampOf(segment.time) == expected[found].time;
            if (!fits) {
                return false;
            }
            ++found;
        }
        return found == expected.size();
    }

    bool IsTimeOfEvent(int64_t time) const {
        const std::vector<recordings::Event> events = recordings::FindEvents(
            *m_request.disk, *m_request.blocks, m_manifest.range, recordings::kAllEvents, {}, m_watch);
        return std::any_of(events.begin(), events.end(),
                           [time](const recordings::Event& event) { return event.micros == time; });
    }

    // ---- the files' side

    /// What the files hold. Each of those that cannot be compared is reported.
    FileDigests DigestFiles() {
        FileDigests digests{std::vector<TrackDigest>(m_manifest.tracks.size()), {}};
        for (size_t file = 0; file < m_manifest.files.size(); ++file) {
            digests.comparable.push_back(m_good[file] && DigestFile(file, digests.tracks));
            if (!m_good[file]) {
                Report(Result::Unchecked, Subject::Frames,
                       m_manifest.files[file].name + ": its frames are not compared: " +
                           (m_manifest.files[file].streamed ? "they are in no file"
                                                            : "it is not the file that was made"));
            }
        }
        return digests;
    }

    /// Entries of the manifest's tracks.
    std::vector<size_t> TracksOf(size_t file) const {
        std::vector<size_t> tracks;
        for (size_t i = 0; i < m_manifest.tracks.size(); ++i) {
            if (m_manifest.tracks[i].output == file) {
                tracks.push_back(i);
            }
        }
        return tracks;
    }

    /// @return false when it cannot be read, which is reported
    bool DigestFile(size_t number, std::vector<TrackDigest>& digests) {
        const NamedFile& named = m_manifest.files[number];
        const std::vector<size_t> tracks = TracksOf(number);
        if (m_manifest.container == Container::Raw) {
            // The file has nothing but payloads: its digest, which was checked, is theirs.
            for (const size_t track : tracks) {
                digests[track].sha256 = named.sha256;
                digests[track].frames = m_manifest.tracks[track].frames;
            }
            return true;
        }
        try {
            const OpenedFile file(m_folder.Descriptor(), named.name);
            const std::vector<TrackDigest> found = DigestContainer(file, m_manifest, tracks, m_watch);
            for (size_t i = 0; i < tracks.size(); ++i) {
                digests[tracks[i]] = found[i];
            }
            return true;
        } catch (const Error& error) {
            Report(Result::Bad, Subject::Frames, error.what());
            return false;
        }
    }

    /// @return whether it is that of the source
    bool CompareTrack(const NamedTrack& track, const TrackDigest& inFile, const TrackDigest& onDisk) {
        const std::string& file = m_manifest.files[track.output].name;
        if (onDisk.frames != track.frames || onDisk.tooMany != 0) {
            Report(Result::Bad, Subject::Frames,
                   fmt::format("{}: {}: the source has {} frames, the manifest {}", file, NameOf(track),
                               onDisk.frames + onDisk.tooMany, track.frames));
            return false;
        }
        if (onDisk.sha256 != inFile.sha256) {
            Report(Result::Bad, Subject::Frames,
                   fmt::format("{}: {}: its frames are not those of the source", file, NameOf(track)));
            return false;
        }
        if (m_request.timeOf && m_manifest.container != Container::Raw &&
            !CompareTimes(track, inFile.times, onDisk.times)) {
            return false;
        }
        Report(Result::Good, Subject::Frames,
               fmt::format("{}: {}: {} frame{} of the source, byte for byte", file, NameOf(track),
                           track.frames, track.frames == 1 ? ", that" : "s, those"));
        return true;
    }

    bool CompareTimes(const NamedTrack& track, const TimeDigest& inFile, const TimeDigest& onDisk) {
        const std::string name = fmt::format("{}: {}: ", m_manifest.files[track.output].name, NameOf(track));
        switch (Compare(m_manifest.container, track.isVideo, inFile, onDisk)) {
        case Result::Bad:
            Report(Result::Bad, Subject::Frames, name + "its times are not those of the source");
            return false;
        case Result::Unchecked:
            Report(Result::Unchecked, Subject::Frames, name + "its times are not compared");
            return true;
        default:
            return true;
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
    default:
        return "frames";
    }
}

bool Verify(const VerifyRequest& request, const std::function<void(const Check&)>& report,
            const recordings::Watch& watch) {
    return Verifier(request, report, watch).Run();
}

} // namespace media
