#ifndef MEDIA_SRC_CONTENT_CHECK_H
#define MEDIA_SRC_CONTENT_CHECK_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "media/verify.h"
#include "recordings/query.h"
#include "track_digests.h"
#include "track_key.h"

namespace media {

/// Holds what the files of a manifest hold, and what the manifest says of it, against the frames and events of a disk.
class ContentCheck {
public:
    using Report = std::function<void(Check::Result result, Check::Subject subject, const std::string& text)>;

    /// @param request with a disk; what is handed over must outlive the object
    ContentCheck(const VerifyRequest& request, const FileDigests& inFiles, Report report,
                 const recordings::Watch& watch);

    void Run();

private:
    void Judge(bool good, Check::Subject subject, const std::string& ifGood, const std::string& ifBad);
    std::optional<int64_t> StampOf(const std::string& text) const;
    const std::string& NameOfFile(size_t file) const { return m_manifest.files[file].name; }

    std::optional<recordings::Frame> FindFirst() const;
    bool BeginsInFirst(const TrackKey& key) const;
    std::vector<std::optional<int64_t>> ClaimedStarts() const;
    std::vector<bool> CompareTracks(const DiskDigests& onDisk);
    bool CompareTrack(const NamedTrack& track, const TrackDigest& inFile, const TrackDigest& onDisk);
    static std::string WrongAbout(const NamedTrack& track, const TrackDigest& onDisk);
    bool CompareEncodedTrack(const NamedTrack& track, const TimeDigest& inFile, const TrackDigest& onDisk);
    bool CompareTimes(const NamedTrack& track, const TimeDigest& inFile, const TimeDigest& onDisk);

    void CompareClock(const DiskDigests& onDisk);
    void CompareWholeSpan(const DiskDigests& onDisk);
    void CompareSegments(size_t file, const DiskFile& onDisk);
    bool IsSpan(const std::string& start, const std::string& end, uint64_t frames, int64_t earliest,
                int64_t latest) const;
    bool AreSegments(size_t file, const std::vector<ClockSegment>& expected) const;

    void CompareGaps(const std::vector<recordings::Gap>& gaps);
    void CompareEvents();
    bool IsGap(const NamedGap& named, const recordings::Gap& gap) const;
    bool IsEvent(const NamedEvent& named, const recordings::Event& event) const;

    void CompareWords(size_t file, const DiskFile& onDisk);
    void CompareText(size_t file, const TextDigest& onDisk);
    void CompareChapters(size_t file, const std::vector<Chapter>& onDisk);
    void CompareFacts(size_t file, const ContainerFacts& onDisk);
    std::string WrongFact(size_t file, const ContainerFacts& onDisk) const;
    bool IsStart(const std::string& inFile, const std::string& expected) const;

    const VerifyRequest& m_request;
    const ManifestFile& m_manifest;
    const FileDigests& m_inFiles;
    Report m_report;
    const recordings::Watch& m_watch;
    std::vector<recordings::Event> m_events; ///< of the range, on the disk
};

} // namespace media

#endif // MEDIA_SRC_CONTENT_CHECK_H
