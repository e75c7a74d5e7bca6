#include "time_check.h"

#include <cstdlib>

#include "recordings/query.h"

namespace media {

namespace {

using recordings::kMicros;

/// MP4 counts in milliseconds where a track begins, whatever the track's own unit is.
constexpr int kUnitsOfStart = 1000;

enum class Unit { Exact, Coarse, Other };

/// Whether a file's clock is one that it is made with.
Unit Judge(Container container, bool isVideo, ClockUnit unit) {
    if (unit.numerator <= 0 || unit.denominator <= 0) {
        return Unit::Other;
    }
    if (container == Container::Mp4 && !isVideo) { // by the audio's samples
        return unit.denominator / unit.numerator >= kUnitsOfStart ? Unit::Exact : Unit::Coarse;
    }
    return unit.numerator == 1 && unit.denominator == kUnitsOfStart ? Unit::Exact : Unit::Other;
}

/// How far the start of a track may be off, in units: one, and as far as it is rounded.
int64_t ToleranceOf(ClockUnit unit) {
    const int unitsOfARoundedStart = unit.denominator / unit.numerator / kUnitsOfStart;
    return unitsOfARoundedStart <= 1 ? 1 : unitsOfARoundedStart + 2;
}

} // namespace

std::optional<int64_t> TimeStampOf(const ManifestFile& manifest,
                                   const std::function<std::optional<int64_t>(const std::string&)>& timeOf,
                                   const std::string& text) {
    const std::optional<int64_t> time = timeOf(text);
    if (!time) {
        return std::nullopt;
    }
    // Anybody may have written it: too large a number must not overflow.
    const uint64_t skew = static_cast<uint64_t>(manifest.skewSeconds) * kMicros;
    return static_cast<int64_t>(static_cast<uint64_t>(*time) + skew);
}

double SecondsOf(int64_t place) {
    return static_cast<double>(place) / kMicros;
}

Check::Result Compare(Container container, bool isVideo, const TimeDigest& inFile, const TimeDigest& onDisk) {
    if (inFile.count == 0 && onDisk.count == 0) {
        return Check::Result::Good;
    }
    const Unit unit = Judge(container, isVideo, inFile.unit);
    // A reader of MP4 may join or split packets of audio.
    const bool mayDiffer = container == Container::Mp4 && !isVideo && inFile.count != onDisk.count;
    if (unit == Unit::Coarse || mayDiffer) {
        return Check::Result::Unchecked;
    }
    const bool same = unit == Unit::Exact && inFile.count == onDisk.count && inFile.sha256 == onDisk.sha256 &&
                      inFile.first >= 0 && std::abs(inFile.first - onDisk.first) <= ToleranceOf(inFile.unit);
    return same ? Check::Result::Good : Check::Result::Bad;
}

Check::Result CompareEncoded(uint32_t rate, const TimeDigest& inFile, const TimeDigest& onDisk) {
    const bool same = inFile.unit.numerator == 1 && static_cast<uint32_t>(inFile.unit.denominator) == rate &&
                      inFile.count == onDisk.count && inFile.sha256 == onDisk.sha256 &&
                      std::abs(inFile.first - onDisk.first) <= ToleranceOf(inFile.unit);
    return same ? Check::Result::Good : Check::Result::Bad;
}

} // namespace media
