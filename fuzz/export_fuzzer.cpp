// Exports of a partition that may hold anything, as files of all kinds: on a device whose reads may fail, to a file system
// of which calls may fail, for a caller who may want no more. An export ends with an error, and everything is as it was
// before; or with files, and their manifest fits.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "media/error.h"
#include "media/exporter.h"
#include "media/manifest_file.h"
#include "media/verify.h"
#include "support/disk_run.h"
#include "support/file_calls.h"
#include "support/findings.h"
#include "support/partition_run.h"
#include "support/scratch_folder.h"

namespace fuzzing {

namespace {

using namespace media;

constexpr CostLimits kLimits = {80, 160, 64, 6 << 20};
/// What a block lacks at the source's end is hashed as zeros. To do so for gigabytes takes seconds and teaches nothing.
constexpr uint32_t kLargestBlock = 1 << 20;
/// System calls on files that an export makes: for each file, for each piece of bytes, and before it knows its files.
/// And one a frame: where time jumps, a frame begins a new cluster of Matroska, whose length is written later.
constexpr uint64_t kCallsOfAFile = 16;
constexpr uint64_t kBytesOfACall = 16 << 10;
constexpr uint64_t kMostFileCalls = 20000;
/// Bytes that a container has beside its frames, for each frame and on the whole.
constexpr uint64_t kContainerBytes = 48 << 10;
constexpr uint64_t kContainerBytesOfAFrame = 64;
/// Bytes of a manifest on the whole, and for each thing that it names.
constexpr uint64_t kManifestBytes = 8 << 10;
constexpr uint64_t kManifestBytesOfAnEntry = 1 << 10;

/// What a name stands for before the export.
struct Placed {
    enum Kind : uint8_t { Nothing, File, LinkToSource, HardLinkToSource, Folder };
    Kind kind = Nothing;
    std::string name;
};

constexpr const char* kSource = "disk";
constexpr const char* kSourceText = "the source";
constexpr const char* kPlacedText = "what was there before";

/// The file that an export to a stream goes to; it has the name of the output from the start.
class Stream {
public:
    explicit Stream(const std::string& path)
        : m_descriptor(open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600)) {}
    ~Stream() { close(m_descriptor); }
    Stream(const Stream&) = delete;
    Stream& operator=(const Stream&) = delete;

    int Descriptor() const { return m_descriptor; }

private:
    int m_descriptor;
};

/// A text of a disk, which may hold any byte, for a manifest, which holds characters alone.
std::string Printable(const std::string& text) {
    std::string printable = text;
    std::replace_if(
        printable.begin(), printable.end(), [](char byte) { return byte < ' ' || byte > '~'; }, '?');
    return printable;
}

/// The lowest number that the next descriptor gets.
int NextDescriptor() {
    const int next = dup(STDERR_FILENO);
    close(next);
    return next;
}

std::string NameOfFile(const std::string& path) {
    return std::filesystem::path(path).filename().string();
}

uint64_t SizeOf(const std::string& path) {
    std::error_code failed;
    const uint64_t size = std::filesystem::file_size(path, failed);
    Require(!failed, "a file of the export is not there");
    return size;
}

class ExportRun : private DiskRun {
public:
    ExportRun(const PartitionInput& input, const MemoryDevice& device) : DiskRun(input, device, kLimits) {
        QuietContainers();
        MakeFile(m_folder.PathOf(kSource), kSourceText);
    }

    void RunScript() {
        if (Disk().Facts().blockSize > kLargestBlock) {
            return;
        }
        const ExportRequest request = MakeRequest();
        PlaceSomething();
        const FileCalls::Fault fault = ChooseFault();
        const std::set<std::string> before = m_folder.Names();
        const std::optional<ExportResult> result = Make(request, fault);
        RequireSourceUntouched();
        if (!result || result->outputs.empty()) {
            RequireNothingMade(before);
            return;
        }
        CheckFiles(*result, before);
        CheckSizes(*result);
        if (!result->manifest.empty()) {
            CheckManifest(request, *result);
        }
        if (IsFaultless() && !m_fileFault) {
            CheckFrames(request, *result);
            MakeAgain(request, *result);
        }
    }

private:
    // ---- what is asked for

    ExportRequest MakeRequest() {
        static constexpr Container kContainers[] = {Container::Raw, Container::Matroska, Container::Mp4,
                                                    Container::Matroska};
        ExportRequest request;
        const uint32_t choice = Words().Below(std::size(kContainers));
        request.container = kContainers[choice];
        request.name = m_folder.PathOf("out");
        if (choice == 3) {
            request.stream = m_stream.emplace(request.name).Descriptor();
            request.manifest = Words().Flag() ? m_folder.PathOf("out.json") : "";
        }
        request.range = Range();
        request.channels = Channels();
        request.replace = Words().Flag();
        if (Words().Flag()) {
            request.audio.all = {"pcm_mulaw", 8000};
        }
        if (Input().FirstRefused() != AllocationWatch::kNone) {
            // The last thing before the manifest: the JSON library takes memory to release some, and ends the process when
            // there is none.
            request.provenance.hashSource = [this] {
                AllocationWatch::End();
                return HashArea(Disk().Bytes(), 0, recordings::kPartitionHeadBytes);
            };
        }
        request.made = "2026-11-22T08:00:00Z";
        request.wording.timestamp = [](int64_t time) { return std::to_string(time); };
        request.wording.utcTimestamp = [](int64_t) { return "2026-11-20T14:00:00.000000Z"; };
        request.wording.readableTime = [](int64_t time) { return std::to_string(time); };
        request.wording.readableSecond = request.wording.readableTime;
        request.wording.printable = Printable;
        return request;
    }

    /// Puts something where the export wants to put a file.
    void PlaceSomething() {
        static constexpr const char* kNames[] = {"out.json", "out-ch0.h264", "out.json.sig", "out"};
        static constexpr Placed::Kind kKinds[] = {
            Placed::Nothing, Placed::Nothing,      Placed::Nothing,          Placed::Nothing, Placed::File,
            Placed::File,    Placed::LinkToSource, Placed::HardLinkToSource, Placed::Folder};
        m_placed = {kKinds[Words().Below(std::size(kKinds))],
                    kNames[Words().Below(std::size(kNames) - (m_stream ? 1 : 0))]};
        const std::string path = m_folder.PathOf(m_placed.name);
        const std::string source = m_folder.PathOf(kSource);
        switch (m_placed.kind) {
        case Placed::Nothing:
            break;
        case Placed::File:
            MakeFile(path, kPlacedText);
            break;
        case Placed::LinkToSource:
            std::filesystem::create_symlink(source, path);
            break;
        case Placed::HardLinkToSource:
            std::filesystem::create_hard_link(source, path);
            break;
        case Placed::Folder:
            std::filesystem::create_directory(path);
        }
    }

    FileCalls::Fault ChooseFault() {
        FileCalls::Fault fault;
        if (Words().Below(4) == 1) {
            m_fileFault = true;
            fault.call = static_cast<FileCall>(Words().Below(kFileCalls));
            fault.strike = {Words().Below(12), Words().Flag()};
            fault.comesShort = Words().Flag();
        }
        return fault;
    }

    // ---- the export

    /// @return nothing when there is nothing to export, and when the export ended with an error
    std::optional<ExportResult> Make(const ExportRequest& request, const FileCalls::Fault& fault) {
        const int descriptor = open(m_folder.PathOf(kSource).c_str(), O_RDONLY | O_CLOEXEC);
        const int next = NextDescriptor();
        std::optional<ExportResult> result;
        {
            const SourceIdentity source(descriptor);
            const FileCalls calls(fault, kMostFileCalls);
            Try([&] { MakeUnlessRefused(request, source, calls, result); });
            m_calls = calls.Made();
        }
        Require(NextDescriptor() == next, "a descriptor was left open");
        close(descriptor);
        return result;
    }

    void MakeUnlessRefused(const ExportRequest& request, const SourceIdentity& source, const FileCalls& calls,
                           std::optional<ExportResult>& result) {
        try {
            result = Export(Disk(), Blocks(), source, request, Sink(), CancelSometime());
        } catch (const Error& error) {
            Require(std::strlen(error.what()) > 0 && std::strchr(error.what(), '\n') == nullptr,
                    "an error does not say in one line what is wrong");
            if (!calls.HasFailed() && m_placed.kind == Placed::Nothing) {
                Report("an export ends with an error, though nothing failed: %s", error.what());
            }
        }
    }

    // ---- what must hold

    void RequireSourceUntouched() const {
        Require(Contents(m_folder.PathOf(kSource)) == kSourceText, "an export has written to its source");
    }

    void RequireNothingMade(const std::set<std::string>& before) const {
        Require(m_folder.Names() == before, "an export that made nothing has left a file, or taken one away");
        Require(m_placed.kind != Placed::File || Contents(m_folder.PathOf(m_placed.name)) == kPlacedText,
                "an export that made nothing has changed a file");
    }

    void CheckFiles(const ExportResult& result, const std::set<std::string>& before) const {
        std::set<std::string> expected = before;
        for (const Exported& output : result.outputs) {
            Require(SizeOf(output.path) == output.size, "a file is not as large as it is said to be");
            expected.insert(NameOfFile(output.path));
        }
        if (!result.manifest.empty()) {
            expected.insert(NameOfFile(result.manifest));
        }
        Require(m_folder.Names() == expected, "there are other files than the export tells of");
    }

    void CheckSizes(const ExportResult& result) const {
        uint64_t payload = 0;
        uint64_t frames = 0;
        uint64_t size = 0;
        for (const Track& track : result.tracks) {
            payload += track.bytes;
            frames += track.frames;
        }
        for (const Exported& output : result.outputs) {
            size += output.size;
        }
        Require(payload <= RingBytes(), "the frames are more than the disk holds");
        Require(size <= payload + kContainerBytes * result.outputs.size() + kContainerBytesOfAFrame * frames,
                "the files are larger than their frames allow");
        Require(m_calls <= kCallsOfAFile * (result.outputs.size() + 2) + size / kBytesOfACall + frames,
                "the export has made more system calls than its files allow");
    }

    void CheckManifest(const ExportRequest& made, const ExportResult& result) const {
        size_t segments = 0;
        for (const auto& each : result.segments) {
            segments += each.size();
        }
        const size_t entries = result.tracks.size() + result.leftOut.size() + result.outputs.size() +
                               result.events.size() + result.gaps.size() + segments + result.blocks.size() +
                               result.problems.size();
        Require(SizeOf(result.manifest) <= kManifestBytes + kManifestBytesOfAnEntry * entries,
                "the manifest is larger than what it names allows");
        const ManifestFile manifest = ReadManifest(result.manifest);
        Require(manifest.files.size() == result.outputs.size(), "the manifest does not name all files");
        VerifyRequest request = {manifest};
        request.printable = Printable;
        request.wording = &made.wording;
        request.timeOf = [](const std::string& text) { return std::optional<int64_t>(std::stoll(text)); };
        if (IsFaultless()) {
            request.disk = &Disk();
            request.blocks = &Blocks();
        }
        Verify(request, [](const media::Check& check) {
            if (check.result == media::Check::Result::Bad) {
                Report("the manifest does not fit: %s", check.text.c_str());
            }
        });
    }

    /// Every frame that can be read is in a file, or is counted among those that are not.
    void CheckFrames(const ExportRequest& request, const ExportResult& result) const {
        recordings::FrameQuery query;
        query.range = request.range;
        query.channels = request.channels;
        uint64_t readable = 0;
        recordings::RangeFrames frames(Disk(), Blocks(), query, {});
        for (recordings::Frame frame; frames.Next(frame);) {
            ++readable;
        }
        uint64_t told = 0;
        for (const Track& track : result.tracks) {
            told += track.frames;
        }
        for (const LeftOut& item : result.leftOut) {
            told += item.frames;
        }
        Require(told == readable, "there are other frames than the export tells of");
    }

    /// The same range gives the same bytes.
    void MakeAgain(const ExportRequest& request, const ExportResult& result) {
        if (Words().Below(4) != 1 || m_placed.kind != Placed::Nothing || m_stream) {
            return;
        }
        ExportRequest again = request;
        again.name = m_folder.PathOf("again");
        const std::optional<ExportResult> second = Make(again, {});
        if (!second) {
            return; // cancelled
        }
        const auto same = [](const Exported& a, const Exported& b) {
            return a.size == b.size && a.sha256 == b.sha256;
        };
        Require(std::equal(result.outputs.begin(), result.outputs.end(), second->outputs.begin(),
                           second->outputs.end(), same),
                "the same export gives other bytes");
    }

    ScratchFolder m_folder;
    std::optional<Stream> m_stream;
    Placed m_placed;
    bool m_fileFault = false;
    uint64_t m_calls = 0; ///< on files, of the last export
};

} // namespace

void RunPartition(const PartitionInput& input, Machine& machine) {
    RunOnDisk<ExportRun>(input, machine.Device(0));
}

} // namespace fuzzing
