#include "media/manifest_file.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <functional>
#include <limits>
#include <utility>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "media/error.h"
#include "small_file.h"
#include "sound_clock.h"

namespace media {

namespace {

using Json = nlohmann::json;

/// A ring of 65,536 blocks with many records in each has less.
constexpr size_t kLargestManifest = size_t{256} << 20;
/// Manifests have objects in lists in objects in a list.
constexpr size_t kDeepest = 8;
constexpr size_t kLongestName = 255;
/// No manifest has more: each track of 32 channels may begin again with every journey.
constexpr size_t kMostFiles = 4096;
constexpr size_t kMostTracks = 65536;
constexpr size_t kMostBlocks = 65536;
/// Of all that is kept.
constexpr size_t kMostValues = 2000000;
constexpr size_t kDigestDigits = 64;

/// Members that may be long, and say nothing that can be verified by itself.
constexpr std::array<const char*, 3> kPassedBy = {"losses", "notes", "records"};
/// Lists that may be long: each row is taken as it is met, and not kept.
constexpr std::array<const char*, 2> kListsOfRows = {"events", "gaps"};

template <typename List>
bool Has(const List& list, const std::string& key) {
    return std::find(list.begin(), list.end(), key) != list.end();
}

/// Thrown to end the parsing: what is wrong.
struct Unfit {
    const char* why;
};

/// Makes values of what is parsed. What need not be looked at is not kept.
// NOLINTNEXTLINE(bugprone-exception-escape): the check takes the JSON library's own assertions for exceptions
class Builder : public nlohmann::json_sax<Json> {
public:
    /// Takes a row of the list of a name.
    using TakeRow = std::function<void(const std::string& list, const Json& row)>;

    explicit Builder(TakeRow takeRow) : m_takeRow(std::move(takeRow)) {}

    Json Take() { return std::move(m_root); }

    bool null() override { return Put(nullptr); }
    bool boolean(bool value) override { return Put(value); }
    bool number_integer(number_integer_t value) override { return Put(value); }
    bool number_unsigned(number_unsigned_t value) override { return Put(value); }
    bool number_float(number_float_t value, const string_t& /*text*/) override { return Put(value); }
    bool string(string_t& value) override { return Put(std::move(value)); }
    bool binary(binary_t& /*value*/) override { return false; }
    bool start_object(size_t /*elements*/) override { return Open(Json::object()); }
    bool end_object() override { return Close(); }
    bool start_array(size_t /*elements*/) override { return Open(Json::array()); }
    bool end_array() override { return Close(); }
    bool key(string_t& key) override {
        if (m_passed == 0) {
            if (m_open.back()->contains(key)) {
                throw Unfit{"it says one thing twice"}; // other programs may read the other one
            }
            m_passNext = Has(kPassedBy, key);
            m_list = m_open.size() == 1 && Has(kListsOfRows, key) ? key : m_open.size() == 1 ? "" : m_list;
            m_key = std::move(key);
        }
        return true;
    }
    bool parse_error(size_t /*place*/, const std::string& /*token*/,
                     const nlohmann::detail::exception& /*error*/) override {
        return false;
    }

private:
    bool Put(Json value) {
        Add(std::move(value));
        return true;
    }

    /// @return where the value is kept; null when it is not
    Json* Add(Json value) {
        if (std::exchange(m_passNext, false) || m_passed != 0) {
            return nullptr;
        }
        if (++m_values > kMostValues) {
            throw Unfit{"it says more than any manifest"};
        }
        if (m_open.empty()) {
            m_root = std::move(value);
            return &m_root;
        }
        Json& parent = *m_open.back();
        if (parent.is_array()) {
            parent.push_back(std::move(value));
            return &parent.back();
        }
        return &(parent[m_key] = std::move(value));
    }

    /// Whether the open value in which the next one goes is a list of rows.
    bool IsInRows() const { return !m_list.empty() && m_open.size() == 2 && m_open.back()->is_array(); }

    bool Open(Json value) {
        m_valuesBeforeRow = IsInRows() ? m_values : m_valuesBeforeRow;
        if (m_open.size() + m_passed >= kDeepest) {
            throw Unfit{"its lists and objects lie too deep"};
        }
        Json* const kept = Add(std::move(value));
        if (kept == nullptr) {
            ++m_passed;
        } else {
            m_open.push_back(kept);
        }
        return true;
    }

    bool Close() {
        if (m_passed != 0) {
            --m_passed;
        } else {
            m_open.pop_back();
            EndRow();
        }
        return true;
    }

    void EndRow() {
        if (IsInRows()) {
            m_takeRow(m_list, m_open.back()->back());
            m_open.back()->erase(m_open.back()->size() - 1);
            m_values = m_valuesBeforeRow;
        }
    }

    Json m_root;
    std::vector<Json*> m_open; ///< lists and objects that go on
    size_t m_passed = 0;       ///< those inside one that is not kept
    bool m_passNext = false;
    std::string m_key;
    size_t m_values = 0;
    TakeRow m_takeRow;
    std::string m_list; ///< of rows, that goes on; empty: none
    size_t m_valuesBeforeRow = 0;
};

constexpr const char* kAdvice = "; give the .json file beside what was made";

class Reader {
public:
    explicit Reader(std::string path) : m_path(std::move(path)) {}

    ManifestFile Run() {
        const size_t slash = m_path.rfind('/');
        m_file.folder = slash == std::string::npos ? "." : m_path.substr(0, slash + 1);
        m_file.name = m_path.substr(slash + 1); // of none: 0
        m_file.text = ReadText();
        Parse();
        ReadKind();
        ReadSource();
        ReadQuestion();
        if (m_file.isExtract) {
            ReadImage();
        } else {
            ReadOutputs();
            ReadTracks();
            ReadTimes();
            RequireRows();
            ReadLeftOut();
        }
        ReadBlocks();
        RequireBlocks();
        return std::move(m_file);
    }

private:
    std::string ReadText() const {
        try {
            return ReadSmallFile(m_path, kLargestManifest, ErrorKind::BadManifest);
        } catch (const Error& error) {
            throw Error(ErrorKind::BadManifest, std::string(error.what()) + kAdvice);
        }
    }

    [[noreturn]] void Refuse(const std::string& why) const {
        throw Error(ErrorKind::BadManifest,
                    fmt::format("{}: is no manifest that can be verified: {}", m_path, why));
    }

    void Parse() {
        try {
            Builder builder([this](const std::string& list, const Json& row) { TakeRow(list, row); });
            // For the parser, a zero byte is the end.
            const bool ends = m_file.text.find('\0') != std::string::npos;
            if (ends || !Json::sax_parse(m_file.text, &builder)) {
                Refuse(std::string("it is no JSON document") + kAdvice);
            }
            m_json = builder.Take();
        } catch (const Unfit& unfit) {
            Refuse(unfit.why);
        }
        if (!m_json.is_object()) {
            Refuse("it is no JSON object");
        }
    }

    void TakeRow(const std::string& list, const Json& row) {
        if (!row.is_object()) {
            Refuse(fmt::format("'{}' is no list that it can be", list));
        } else if (list == "gaps") {
            TakeGap(row);
        } else {
            TakeEvent(row);
        }
    }

    // ---- members by their type

    const Json& MemberOf(const Json& object, const char* key) const {
        const auto found = object.find(key);
        if (found == object.end()) {
            Refuse(fmt::format("'{}' is missing", key));
        }
        return *found;
    }

    /// A large one is text: many programs would not read it exactly.
    static std::optional<uint64_t> NumberOf(const Json& value) {
        if (value.is_number_unsigned()) {
            return value.get<uint64_t>();
        }
        const std::string text = value.is_string() ? value.get<std::string>() : "";
        uint64_t number = 0;
        const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
        const bool whole = !text.empty() && error == std::errc() && end == text.data() + text.size();
        return whole ? std::optional(number) : std::nullopt;
    }

    uint64_t NumberIn(const Json& object, const char* key,
                      uint64_t most = std::numeric_limits<uint64_t>::max()) const {
        const std::optional<uint64_t> number = NumberOf(MemberOf(object, key));
        if (!number || *number > most) {
            Refuse(fmt::format("'{}' is no number that it can be", key));
        }
        return *number;
    }

    uint32_t Number32In(const Json& object, const char* key, uint32_t most = 0xFFFFFFFF) const {
        return static_cast<uint32_t>(NumberIn(object, key, most));
    }

    /// Clocks of recorders show 32 bits of seconds.
    int64_t SkewIn(const char* key) const {
        constexpr uint64_t kMost = 0xFFFFFFFF;
        const Json& skew = MemberOf(m_json, key);
        const bool fits = skew.is_number_unsigned() ? skew.get<uint64_t>() <= kMost
                                                    : skew.is_number_integer() &&
                                                          skew.get<int64_t>() >= -static_cast<int64_t>(kMost);
        if (!fits) {
            Refuse(fmt::format("'{}' is no number that it can be", key));
        }
        return skew.get<int64_t>();
    }

    std::string TextIn(const Json& object, const char* key) const {
        const Json& value = MemberOf(object, key);
        if (!value.is_string()) {
            Refuse(fmt::format("'{}' is no text", key));
        }
        return value.get<std::string>();
    }

    std::optional<std::string> TextIfIn(const char* key) const {
        return m_json.contains(key) ? std::optional<std::string>(TextIn(m_json, key)) : std::nullopt;
    }

    /// Empty for null.
    std::string TimeIn(const Json& object, const char* key) const {
        return MemberOf(object, key).is_null() ? std::string() : TextIn(object, key);
    }

    /// Nothing when it is not there.
    std::optional<bool> FlagIn(const char* key) const {
        const auto found = m_json.find(key);
        if (found == m_json.end()) {
            return std::nullopt;
        }
        if (!found->is_boolean()) {
            Refuse(fmt::format("'{}' is neither true nor false", key));
        }
        return found->get<bool>();
    }

    const Json& ObjectIn(const Json& object, const char* key) const {
        const Json& value = MemberOf(object, key);
        if (!value.is_object()) {
            Refuse(fmt::format("'{}' is no object", key));
        }
        return value;
    }

    /// A list of objects.
    const Json& ListIn(const char* key, size_t most) const {
        const Json& value = MemberOf(m_json, key);
        const bool isList =
            value.is_array() &&
            std::all_of(value.begin(), value.end(), [](const Json& entry) { return entry.is_object(); });
        if (!isList || value.size() > most) {
            Refuse(fmt::format("'{}' is no list that it can be", key));
        }
        return value;
    }

    std::string DigestIn(const Json& object) const {
        std::string text = TextIn(object, "sha256");
        if (text.size() != kDigestDigits || text.find_first_not_of("0123456789abcdef") != std::string::npos) {
            Refuse("'sha256' is no digest");
        }
        return text;
    }

    AreaDigest AreaIn(const Json& object) const {
        AreaDigest area;
        area.offset = NumberIn(object, "device_offset", std::numeric_limits<int64_t>::max());
        area.size = NumberIn(object, "size_bytes", std::numeric_limits<int64_t>::max());
        area.sha256 = DigestIn(object);
        area.unreadable = NumberIn(object, "unreadable_bytes", area.size);
        return area;
    }

    recordings::ChannelSet ChannelsIn(const char* key) const {
        const Json& list = MemberOf(m_json, key);
        recordings::ChannelSet set;
        if (!list.is_array()) {
            Refuse(fmt::format("'{}' is no list", key));
        }
        for (const Json& channel : list) {
            if (!channel.is_number_unsigned() || channel.get<uint64_t>() >= recordings::kChannels) {
                Refuse(fmt::format("'{}' has what is no channel", key));
            }
            set.Add(channel.get<uint32_t>());
        }
        return set;
    }

    bool IsVideoIn(const Json& object) const {
        const std::string media = TextIn(object, "media");
        if (media != "video" && media != "audio") {
            Refuse("'media' is neither video nor audio");
        }
        return media == "video";
    }

    // ---- parts of the manifest

    void ReadKind() {
        if (NumberIn(m_json, "schema_version") != 1) {
            Refuse("it is of another version");
        }
        const std::string command = TextIn(m_json, "command");
        if (command != "export" && command != "extract") {
            Refuse("'command' is neither export nor extract");
        }
        m_file.isExtract = command == "extract";
    }

    void ReadSource() {
        m_file.partition = TextIn(m_json, "partition");
        m_file.deviceSize = NumberIn(m_json, "device_size_bytes", std::numeric_limits<int64_t>::max());
        m_file.description = TextIn(m_json, "description");
        m_file.blockCount = Number32In(m_json, "block_count");
        m_file.blockSize = Number32In(m_json, "block_size_bytes");
        m_file.vehicleNumber = TextIfIn("vehicle_number");
        m_file.vehicleId = TextIfIn("vehicle_id");
        m_file.head = AreaIn(ObjectIn(m_json, "partition_head"));
        const Json& digest = MemberOf(ObjectIn(m_json, "source"), "digest");
        if (!digest.is_null()) {
            m_file.source = AreaIn(ObjectIn(m_json["source"], "digest"));
        }
    }

    void ReadQuestion() {
        m_file.range.first = Number32In(m_json, "recorder_from");
        m_file.range.last = Number32In(m_json, "recorder_to");
        m_file.channels = ChannelsIn("channels");
        m_file.locked = ChannelsIn("locked_channels");
    }

    /// Only the name of a file beside the manifest: a path could lead anywhere.
    void AddFile(const Json& entry, bool hashedWhole) {
        NamedFile file;
        file.streamed = hashedWhole && entry.is_object() && entry.contains("file") && entry["file"].is_null();
        file.name = file.streamed ? "standard output" : TextIn(entry, "file");
        const bool plain = !file.name.empty() && file.name.size() <= kLongestName && file.name != "." &&
                           file.name != ".." && file.name.find('/') == std::string::npos &&
                           file.name.find('\0') == std::string::npos;
        if (!plain) {
            Refuse("'file' is no name of a file beside it");
        }
        for (const NamedFile& other : m_file.files) {
            if (other.name == file.name) {
                Refuse("it names a file twice");
            }
        }
        file.size = NumberIn(entry, "size_bytes", std::numeric_limits<int64_t>::max());
        file.sha256 = hashedWhole ? DigestIn(entry) : "";
        m_file.files.push_back(std::move(file));
    }

    void ReadOutputs() {
        for (const Json& entry : ListIn("outputs", kMostFiles)) {
            AddFile(entry, true);
        }
        const std::string container = TextIn(m_json, "container");
        for (const Container known : {Container::Raw, Container::Matroska, Container::Mp4}) {
            if (container == NameOf(known)) {
                m_file.container = known;
                return;
            }
        }
        Refuse("'container' is none that is known");
    }

    void ReadTracks() {
        for (const Json& entry : ListIn("tracks", kMostTracks)) {
            NamedTrack track;
            track.channel = Number32In(entry, "channel", recordings::kChannels - 1);
            track.isVideo = IsVideoIn(entry);
            track.output = static_cast<size_t>(NumberIn(entry, "output", kMostFiles));
            track.codec = TextIn(entry, "codec");
            track.frames = NumberIn(entry, "frame_count");
            track.keyFrames = track.isVideo ? NumberIn(entry, "key_frame_count") : 0;
            track.bytes = NumberIn(entry, "payload_bytes");
            track.start = TimeIn(entry, "start");
            track.end = TimeIn(entry, "end");
            if (track.output >= m_file.files.size()) {
                Refuse("a track lies in none of its outputs");
            }
            if (entry.contains("encoded")) {
                ReadEncoding(entry, track);
            }
            m_file.tracks.push_back(track);
        }
    }

    void ReadEncoding(const Json& entry, NamedTrack& track) const {
        const Json& encoded = ObjectIn(entry, "encoded");
        track.recorded = {TextIn(entry, "codec"), Number32In(entry, "sample_rate")};
        track.encodedRate = Number32In(encoded, "sample_rate");
        const std::optional<uint32_t> rate = AacRateOf(track.recorded->sampleRate);
        if (track.isVideo || m_file.container != Container::Mp4 || TextIn(encoded, "codec") != "aac" ||
            rate != track.encodedRate) {
            Refuse("a track is encoded as no export does it");
        }
    }

    void ReadTimes() {
        m_file.withAudio = FlagIn("with_audio").value_or(true);
        m_file.textTrack = FlagIn("text_track");
        const Json& zone = MemberOf(m_json, "zone");
        m_file.zone = zone.is_null() ? std::nullopt : std::optional(TextIn(m_json, "zone"));
        m_file.skewSeconds = SkewIn("skew_seconds");
        m_file.start = TimeIn(m_json, "start");
        m_file.end = TimeIn(m_json, "end");
        for (const Json& entry : ListIn("segments", kMostValues)) {
            NamedSegment segment;
            segment.output = static_cast<size_t>(NumberIn(entry, "output", kMostFiles));
            const Json& position = MemberOf(entry, "position_seconds");
            if (!position.is_number()) {
                Refuse("'position_seconds' is no number");
            }
            segment.seconds = position.get<double>();
            segment.time = TextIn(entry, "time");
            m_file.segments.push_back(std::move(segment));
        }
    }

    /// Rows were taken while the document was read: what is left was none.
    void RequireRows() const {
        for (const char* const key : kListsOfRows) {
            ListIn(key, 0);
        }
    }

    void TakeGap(const Json& row) {
        NamedGap gap;
        gap.channel = Number32In(row, "channel", recordings::kChannels - 1);
        gap.isVideo = IsVideoIn(row);
        gap.block = Number32In(row, "block");
        gap.start = TextIn(row, "start");
        gap.end = TextIn(row, "end");
        m_file.gaps.push_back(std::move(gap));
    }

    void TakeEvent(const Json& row) {
        NamedEvent event;
        event.time = TextIn(row, "time");
        event.types = NumberIn(row, "event_types");
        event.block = Number32In(row, "block");
        event.entry = Number32In(row, "entry");
        m_file.events.push_back(std::move(event));
    }

    void ReadLeftOut() {
        for (const Json& entry : ListIn("left_out", kMostTracks)) {
            NamedLeftOut item;
            item.channel = Number32In(entry, "channel", recordings::kChannels - 1);
            item.isVideo = IsVideoIn(entry);
            item.frames = NumberIn(entry, "frame_count");
            if (!MemberOf(entry, "tracks_before").is_null()) {
                item.tracksBefore = NumberIn(entry, "tracks_before", kMostTracks);
            }
            m_file.leftOut.push_back(item);
        }
    }

    void ReadImage() {
        AddFile(ObjectIn(m_json, "image"), false);
        for (const Json& entry : ListIn("areas", kMostFiles)) {
            m_file.areas.push_back(AreaIn(entry));
        }
    }

    void ReadBlocks() {
        for (const Json& entry : ListIn("blocks", kMostBlocks)) {
            m_file.blocks.push_back({Number32In(entry, "block"), AreaIn(entry)});
        }
    }

    void RequireBlocks() const {
        const bool anyFrame = std::any_of(m_file.tracks.begin(), m_file.tracks.end(),
                                          [](const NamedTrack& track) { return track.frames != 0; });
        if (anyFrame && m_file.blocks.empty()) {
            Refuse("its frames come from no block");
        }
    }

    std::string m_path;
    Json m_json;
    ManifestFile m_file;
};

} // namespace

ManifestFile ReadManifest(const std::string& path) {
    return Reader(path).Run();
}

} // namespace media
