#include "content_check.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <iterator>
#include <utility>

#include <fmt/format.h>

#include "chapter_box.h"
#include "container_rules.h"
#include "recordings/records.h"
#include "survey.h"
#include "time_check.h"
#include "track_finder.h"

namespace media {

namespace {

using Result = Check::Result;
using Subject = Check::Subject;

/// Places are whole microseconds; a fraction of seconds may be off by what 32-bit x86 computes more exactly.
constexpr double kHalfAMicrosecond = 5e-7;
/// Chapters of MP4 have places in milliseconds.
bool IsNear(int64_t found, int64_t expected) {
    constexpr uint64_t kMillisecond = 1000;
    const uint64_t distance = static_cast<uint64_t>(found) - static_cast<uint64_t>(expected); // it may be any
    return distance + kMillisecond <= 2 * kMillisecond;
}

/// Where the seconds end in a time stamp.
constexpr size_t kEndOfSeconds = 19;

/// "1 gap", "2 gaps"
std::string Counted(size_t count, const char* what) {
    return fmt::format("{} {}{}", count, what, count == 1 ? "" : "s");
}

bool AreChapters(const std::vector<Chapter>& found, const std::vector<Chapter>& expected) {
    return std::equal(found.begin(), found.end(), expected.begin(), expected.end(),
                      [](const Chapter& one, const Chapter& other) {
                          return one.title == other.title && IsNear(one.time, other.time);
                      });
}

/// The chapters that MP4's list has room for.
std::vector<Chapter> ListedOf(std::vector<Chapter> chapters) {
    chapters.resize(std::min(chapters.size(), kMostInChapterBox));
    return chapters;
}

std::string TimeAsNumber(int64_t time) {
    return std::to_string(time);
}

/// Stands in where it is not known how times were written.
const Wording& NoWording() {
    static const Wording wording = {TimeAsNumber, TimeAsNumber, TimeAsNumber, TimeAsNumber,
                                    [](const std::string& text) { return text; }};
    return wording;
}

} // namespace

ContentCheck::ContentCheck(const VerifyRequest& request, const FileDigests& inFiles, Report report,
                           const recordings::Watch& watch)
    : m_request(request), m_manifest(request.manifest), m_inFiles(inFiles), m_report(std::move(report)),
      m_watch(watch) {}

void ContentCheck::Run() {
    m_events = recordings::FindEvents(*m_request.disk, *m_request.blocks, m_manifest.range,
                                      recordings::kAllEvents, {}, m_watch);
    const ContainerDescriber describer(*m_request.disk, *m_request.blocks,
                                       m_request.wording == nullptr ? NoWording() : *m_request.wording,
                                       m_events, m_manifest.textTrack.value_or(false));
    const DiskDigests onDisk = DigestFrames(*m_request.disk, *m_request.blocks, m_manifest, m_inFiles,
                                            {describer, FindFirst(), ClaimedStarts()}, m_watch);
    const std::vector<bool> good = CompareTracks(onDisk);
    const bool allGood = std::count(good.begin(), good.end(), false) == 0;
    if (allGood && m_request.timeOf) {
        CompareClock(onDisk);
    }
    CompareGaps(onDisk.gaps);
    CompareEvents();
    for (size_t file = 0; file < good.size() && m_manifest.container != Container::Raw; ++file) {
        if (good[file]) {
            CompareWords(file, onDisk.files[file]);
        }
    }
}

void ContentCheck::Judge(bool good, Subject subject, const std::string& ifGood, const std::string& ifBad) {
    m_report(good ? Result::Good : Result::Bad, subject, good ? ifGood : ifBad);
}

std::optional<int64_t> ContentCheck::StampOf(const std::string& text) const {
    return TimeStampOf(m_manifest, m_request.timeOf, text);
}

// ---- where files begin

/// The frame that an export begins with, found as it was then.
std::optional<recordings::Frame> ContentCheck::FindFirst() const {
    if (m_manifest.container == Container::Raw) {
        return std::nullopt;
    }
    const recordings::FrameQuery query = QueryOf(m_manifest);
    const bool encodes = std::any_of(m_manifest.tracks.begin(), m_manifest.tracks.end(),
                                     [](const NamedTrack& track) { return track.recorded.has_value(); });
    const auto refuses = [this, encodes](const Track& track, const recordings::Frame& frame) {
        const auto refusal = RefusalOf(m_manifest.container, track, frame);
        return refusal && !(encodes && EncodingFor(m_manifest.container, track, *refusal));
    };
    const TrackFinder finder(*m_request.disk, *m_request.blocks, {});
    const Survey survey = MakeSurvey(*m_request.disk, *m_request.blocks, query, m_watch);
    auto tracks = finder.FindAll(query, survey, refuses, m_watch);
    for (auto track = tracks.begin(); track != tracks.end();) {
        track = BeginsInFirst(track->first) ? std::next(track) : tracks.erase(track);
    }
    return tracks.empty() ? std::nullopt : std::optional(FirstOf(tracks));
}

/// Whether a track's frames were to begin in the first file: what is in no file does not make one begin.
bool ContentCheck::BeginsInFirst(const TrackKey& key) const {
    return std::any_of(m_manifest.tracks.begin(), m_manifest.tracks.end(), [&key](const NamedTrack& track) {
        return track.output == 0 && TrackKey{track.channel, !track.isVideo} == key;
    });
}

/// The times of the files begin with their first frames, or earlier, with an event.
std::vector<std::optional<int64_t>> ContentCheck::ClaimedStarts() const {
    std::vector<std::optional<int64_t>> starts(m_manifest.files.size());
    if (!m_request.timeOf) {
        return starts;
    }
    for (auto segment = m_manifest.segments.rbegin(); segment != m_manifest.segments.rend(); ++segment) {
        if (segment->output < starts.size()) { // the first of each file comes last
            starts[segment->output] = StampOf(segment->time);
        }
    }
    return starts;
}

// ---- frames

/// @return of each file, whether its frames and their times are those of the source
std::vector<bool> ContentCheck::CompareTracks(const DiskDigests& onDisk) {
    std::vector<bool> good = m_inFiles.comparable;
    for (size_t i = 0; i < m_manifest.tracks.size(); ++i) {
        const NamedTrack& track = m_manifest.tracks[i];
        if (m_inFiles.comparable[track.output] &&
            !CompareTrack(track, m_inFiles.tracks[i], onDisk.tracks[i])) {
            good[track.output] = false;
        }
    }
    return good;
}

/// What the manifest says wrongly of a track's frames; empty if nothing is.
std::string ContentCheck::WrongAbout(const NamedTrack& track, const TrackDigest& onDisk) {
    if (onDisk.bytes != track.bytes) {
        return fmt::format("the source has {} bytes of payload, the manifest {}", onDisk.bytes, track.bytes);
    }
    if (track.isVideo && onDisk.keyFrames != track.keyFrames) {
        return fmt::format("the source has {} key frames, the manifest {}", onDisk.keyFrames,
                           track.keyFrames);
    }
    const bool tells = track.isVideo && onDisk.keyFrames != 0;
    return tells && !onDisk.isOfCodec ? "no key frame of the source is " + track.codec : "";
}

bool ContentCheck::CompareTrack(const NamedTrack& track, const TrackDigest& inFile,
                                const TrackDigest& onDisk) {
    const std::string name = NameOfFile(track.output) + ": " + WordsOf(track) + ": ";
    if (onDisk.frames != track.frames || onDisk.tooMany != 0) {
        m_report(Result::Bad, Subject::Frames,
                 fmt::format("{}the source has {} frames, the manifest {}", name,
                             onDisk.frames + onDisk.tooMany, track.frames));
        return false;
    }
    if (const std::string wrong = WrongAbout(track, onDisk); !wrong.empty()) {
        m_report(Result::Bad, Subject::Frames, name + wrong);
        return false;
    }
    if (track.recorded) {
        return CompareEncodedTrack(track, inFile.times, onDisk);
    }
    if (onDisk.sha256 != inFile.sha256) {
        m_report(Result::Bad, Subject::Frames, name + "its frames are not those of the source");
        return false;
    }
    if (m_request.timeOf && m_manifest.container != Container::Raw &&
        !CompareTimes(track, inFile.times, onDisk.times)) {
        return false;
    }
    m_report(Result::Good, Subject::Frames,
             fmt::format("{}{} frame{} of the source, byte for byte", name, track.frames,
                         track.frames == 1 ? ", that" : "s, those"));
    return true;
}

/// Of sound that was encoded, nothing but when there is some can be compared.
bool ContentCheck::CompareEncodedTrack(const NamedTrack& track, const TimeDigest& inFile,
                                       const TrackDigest& onDisk) {
    const std::string name = NameOfFile(track.output) + ": " + WordsOf(track) + ": ";
    Track recorded;
    recorded.isVideo = false;
    recorded.audio = *track.recorded;
    if (RefusalOf(m_manifest.container, recorded, {}) != LeftOutReason::NotForContainer) {
        m_report(Result::Bad, Subject::Frames,
                 fmt::format("{}is said to be encoded, but {} holds {} as it was recorded", name,
                             NameOf(m_manifest.container), recorded.Codec()));
        return false;
    }
    const bool compared = m_request.timeOf && !onDisk.notDecoded;
    if (compared && CompareEncoded(track.encodedRate, inFile, onDisk.times) == Result::Bad) {
        m_report(Result::Bad, Subject::Frames, name + "its times are not those of the source");
        return false;
    }
    m_report(Result::Unchecked, Subject::Frames,
             fmt::format("{}{} frame{} of the source {} encoded as AAC: {}", name, track.frames,
                         track.frames == 1 ? "" : "s", track.frames == 1 ? "was" : "were",
                         compared ? "the times are those of the source, the sound itself is not compared"
                                  : "neither times nor the sound itself are compared"));
    return true;
}

bool ContentCheck::CompareTimes(const NamedTrack& track, const TimeDigest& inFile, const TimeDigest& onDisk) {
    const std::string name = NameOfFile(track.output) + ": " + WordsOf(track) + ": ";
    switch (Compare(m_manifest.container, track.isVideo, inFile, onDisk)) {
    case Result::Bad:
        m_report(Result::Bad, Subject::Frames, name + "its times are not those of the source");
        return false;
    case Result::Unchecked:
        m_report(Result::Unchecked, Subject::Frames, name + "its times are not compared");
        return true;
    default:
        return true;
    }
}

// ---- times

/// Holds what the manifest says of times against the disk.
void ContentCheck::CompareClock(const DiskDigests& onDisk) {
    for (size_t i = 0; i < m_manifest.tracks.size(); ++i) {
        const NamedTrack& track = m_manifest.tracks[i];
        const TrackDigest& found = onDisk.tracks[i];
        if (!IsSpan(track.start, track.end, found.frames, found.earliest, found.latest)) {
            m_report(Result::Bad, Subject::Frames,
                     fmt::format("{}: {}: its start and end are not those of the source", m_manifest.name,
                                 WordsOf(track)));
        }
    }
    CompareWholeSpan(onDisk);
    for (size_t file = 0; file < m_manifest.files.size(); ++file) {
        CompareSegments(file, onDisk.files[file]);
    }
}

bool ContentCheck::IsSpan(const std::string& start, const std::string& end, uint64_t frames, int64_t earliest,
                          int64_t latest) const {
    return frames == 0 ? start.empty() && end.empty() : StampOf(start) == earliest && StampOf(end) == latest;
}

void ContentCheck::CompareWholeSpan(const DiskDigests& onDisk) {
    TrackDigest all;
    for (const TrackDigest& track : onDisk.tracks) {
        if (track.frames != 0) {
            all.earliest = all.frames == 0 ? track.earliest : std::min(all.earliest, track.earliest);
            all.latest = all.frames == 0 ? track.latest : std::max(all.latest, track.latest);
            all.frames += track.frames;
        }
    }
    if (!IsSpan(m_manifest.start, m_manifest.end, all.frames, all.earliest, all.latest)) {
        m_report(Result::Bad, Subject::Frames,
                 m_manifest.name + ": its start and end are not those of the source");
    }
}

void ContentCheck::CompareSegments(size_t file, const DiskFile& onDisk) {
    if (!AreSegments(file, onDisk.segments)) {
        m_report(Result::Bad, Subject::Frames,
                 NameOfFile(file) + ": the segments of its clock are not those of the source");
    } else if (!onDisk.segments.empty() && onDisk.segments.front().time != onDisk.start) {
        m_report(Result::Unchecked, Subject::Frames,
                 NameOfFile(file) + ": begins before its first frame, with nothing that is on the source");
    }
}

bool ContentCheck::AreSegments(size_t file, const std::vector<ClockSegment>& expected) const {
    size_t found = 0;
    for (const NamedSegment& segment : m_manifest.segments) {
        if (segment.output != file) {
            continue;
        }
        const bool fits = found < expected.size() &&
                          std::abs(segment.seconds - SecondsOf(expected[found].place)) < kHalfAMicrosecond &&
                          StampOf(segment.time) == expected[found].time;
        if (!fits) {
            return false;
        }
        ++found;
    }
    return found == expected.size();
}

// ---- what the manifest lists

bool ContentCheck::IsGap(const NamedGap& named, const recordings::Gap& gap) const {
    return named.channel == gap.channel && named.isVideo == gap.video && named.block == gap.block &&
           (!m_request.timeOf || (StampOf(named.start) == gap.before && StampOf(named.end) == gap.after));
}

void ContentCheck::CompareGaps(const std::vector<recordings::Gap>& gaps) {
    const bool same =
        std::equal(m_manifest.gaps.begin(), m_manifest.gaps.end(), gaps.begin(), gaps.end(),
                   [this](const NamedGap& named, const recordings::Gap& gap) { return IsGap(named, gap); });
    const std::string found =
        gaps.empty() ? "no gaps, as on the source" : Counted(gaps.size(), "gap") + ", as on the source";
    Judge(same, Subject::Gaps, m_manifest.name + ": " + found,
          fmt::format("{}: its gaps are not those of the source, which has {}", m_manifest.name,
                      Counted(gaps.size(), "gap")));
}

bool ContentCheck::IsEvent(const NamedEvent& named, const recordings::Event& event) const {
    return named.types == event.type && named.block == event.block && named.entry == event.entry &&
           (!m_request.timeOf || StampOf(named.time) == int64_t{event.time} * recordings::kMicros);
}

void ContentCheck::CompareEvents() {
    const bool same = std::equal(
        m_manifest.events.begin(), m_manifest.events.end(), m_events.begin(), m_events.end(),
        [this](const NamedEvent& named, const recordings::Event& event) { return IsEvent(named, event); });
    const std::string found = m_events.empty() ? "no events, as on the source"
                                               : Counted(m_events.size(), "event") + ", as on the source";
    Judge(same, Subject::Events, m_manifest.name + ": " + found,
          fmt::format("{}: its events are not those of the source, which has {}", m_manifest.name,
                      Counted(m_events.size(), "event")));
}

// ---- what files say in words

/// Holds texts, chapters and titles of a container against what an export would write.
void ContentCheck::CompareWords(size_t file, const DiskFile& onDisk) {
    if (m_request.wording == nullptr || !m_request.timeOf) {
        m_report(Result::Unchecked, Subject::Text,
                 NameOfFile(file) +
                     ": its texts, chapters and title are not compared: it is not known here how its zone "
                     "writes times");
        return;
    }
    if (!onDisk.start) {
        return; // it has no frames
    }
    CompareText(file, onDisk.text);
    CompareChapters(file, onDisk.facts.chapters);
    CompareFacts(file, onDisk.facts);
}

void ContentCheck::CompareText(size_t file, const TextDigest& onDisk) {
    const TextDigest& inFile = m_inFiles.texts[file];
    const bool isThere = inFile.times.unit.numerator > 0;
    const std::string& name = NameOfFile(file);
    if (!m_manifest.textTrack) {
        m_report(isThere ? Result::Bad : Result::Unchecked, Subject::Text,
                 name + (isThere ? ": has a text track, of which the manifest says nothing"
                                 : ": a text track is not there; the manifest says nothing of one"));
        return;
    }
    if (*m_manifest.textTrack != isThere || !isThere) {
        Judge(*m_manifest.textTrack == isThere, Subject::Text,
              name + ": a text track is not there, as the manifest says",
              name + (isThere ? ": has a text track, but the manifest says that it has none"
                              : ": has no text track, but the manifest says that it has one"));
        return;
    }
    const bool same = inFile.sha256 == onDisk.sha256 &&
                      Compare(m_manifest.container, true, inFile.times, onDisk.times) == Result::Good;
    Judge(same, Subject::Text,
          fmt::format("{}: {} in its text track, as the source has them", name,
                      Counted(onDisk.times.count, "text")),
          name + ": its text track is not that of the source");
}

void ContentCheck::CompareChapters(size_t file, const std::vector<Chapter>& onDisk) {
    const FileFacts& inFile = m_inFiles.facts[file];
    const bool same =
        AreChapters(inFile.chapters, onDisk) &&
        (m_manifest.container != Container::Mp4 || AreChapters(inFile.listedChapters, ListedOf(onDisk)));
    const std::string& name = NameOfFile(file);
    Judge(same, Subject::Chapters,
          name + ": " +
              (onDisk.empty() ? "no chapters, as the source has none"
                              : Counted(onDisk.size(), "chapter") + ", as the source has them"),
          name + ": its chapters are not those of the source");
}

void ContentCheck::CompareFacts(size_t file, const ContainerFacts& onDisk) {
    const std::string wrong = WrongFact(file, onDisk);
    Judge(wrong.empty(), Subject::Facts,
          NameOfFile(file) + ": its title, vehicle and start are those of the source",
          NameOfFile(file) + ": " + wrong);
}

/// What is wrong; empty if nothing is.
std::string ContentCheck::WrongFact(size_t file, const ContainerFacts& onDisk) const {
    const FileFacts& inFile = m_inFiles.facts[file];
    if (inFile.title != onDisk.title) {
        return "its title is not that of the source";
    }
    if (inFile.comment != onDisk.comment) {
        return "its vehicle is not that of the source";
    }
    if (!IsStart(inFile.startTime, onDisk.startTime)) {
        return "its start is not that of the source";
    }
    const bool isMatroska = m_manifest.container == Container::Matroska;
    const std::vector<size_t> tracks = TracksOf(m_manifest, file);
    for (size_t i = 0; i < tracks.size(); ++i) {
        const std::string title = isMatroska ? TitleOfTracks(m_manifest.tracks[tracks[i]].channel) : "";
        if (inFile.trackTitles[i] != title) {
            return "the titles of its tracks are not those of the source";
        }
    }
    const bool hasText = isMatroska && m_inFiles.texts[file].times.unit.numerator > 0;
    if (inFile.textTitle != (hasText ? kTitleOfTexts : "")) {
        return "the title of its text track is not that of an export";
    }
    return inFile.others == 0 ? "" : "has tracks that no export makes";
}

/// MP4 has whole seconds of a time, but all of a date.
bool ContentCheck::IsStart(const std::string& inFile, const std::string& expected) const {
    const bool isTime = KeyOfStart(m_manifest.container, expected) == std::string("creation_time");
    const bool isWhole = m_manifest.container == Container::Matroska || !isTime;
    const size_t length = isWhole ? std::string::npos : kEndOfSeconds;
    return inFile.substr(0, length) == expected.substr(0, length);
}

} // namespace media
