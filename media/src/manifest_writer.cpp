#include "manifest_writer.h"

#include "manifest_end.h"
#include "recordings/blocks.h"
#include "recordings/query.h"

namespace media {

namespace {

using Json = ManifestWriter::Json;
using recordings::Severity;

using recordings::kMicros;
constexpr int kSchemaVersion = 1;
/// The largest number up to which a double, which is what many programs read numbers into, holds every whole one.
constexpr uint64_t kLargestExact = uint64_t{1} << 53;

/// Names of files may hold any byte: those that are no text are replaced.
std::string Text(const Json& value) {
    return value.dump(-1, ' ', false, nlohmann::detail::error_handler_t::replace);
}

Json ChannelsOf(recordings::ChannelSet set) {
    Json numbers = Json::array();
    for (uint32_t channel = 0; channel < recordings::kChannels; ++channel) {
        if (set.Has(channel)) {
            numbers.push_back(channel);
        }
    }
    return numbers;
}

} // namespace

ManifestWriter::ManifestWriter(const recordings::Disk& disk, const Request& request, const Write& write)
    : m_disk(disk), m_request(request), m_write(write) {
    Put("{");
}

void ManifestWriter::Begin(const char* command, std::optional<uint32_t> firstBlock, const AreaDigest& head,
                           const std::optional<AreaDigest>& source) {
    Member("schema_version", kSchemaVersion);
    Member("command", command);
    WriteMaker();
    WriteSource(source);
    WritePartition(firstBlock, head);
    WriteClock();
}

void ManifestWriter::WriteMaker() {
    const Provenance& provenance = m_request.provenance;
    const auto textOrNull = [this](const std::optional<std::string>& text) {
        return text ? Printable(*text) : Json(nullptr);
    };
    Member("made", m_request.made);
    Member("program", provenance.program);
    List("arguments", provenance.arguments, [this](const std::string& text) { return Printable(text); });
    Member("case", textOrNull(provenance.caseName));
    Member("operator", textOrNull(provenance.operatorName));
    Member("note", textOrNull(provenance.note));
}

void ManifestWriter::WriteSource(const std::optional<AreaDigest>& digest) {
    const Provenance& provenance = m_request.provenance;
    const auto known = [this](const std::string& text) {
        return text.empty() ? Json(nullptr) : Printable(text);
    };
    const std::optional<recordings::Partition> part = m_disk.Bytes().PartOfDisk();
    Member("source", {{"path", Printable(provenance.sourcePath)},
                      {"block_device", provenance.isBlockDevice},
                      {"model", known(provenance.device.model)},
                      {"serial", known(provenance.device.serial)},
                      {"partition_number", part ? Json(part->number) : Json(nullptr)},
                      {"partition_offset", part ? NumberOf(part->start) : Json(nullptr)},
                      {"digest", digest ? AreaOf(*digest) : Json(nullptr)}});
}

void ManifestWriter::WritePartition(std::optional<uint32_t> firstBlock, const AreaDigest& head) {
    const recordings::DiskFacts& facts = m_disk.Facts();
    Member("partition", Printable(m_disk.Bytes().Name()));
    Member("device_size_bytes", NumberOf(m_disk.Bytes().Size()));
    Member("partition_head", AreaOf(head));
    Member("description", Printable(facts.description));
    Member("block_count", facts.blockCount);
    Member("block_size_bytes", facts.blockSize);
    const auto identity = firstBlock ? recordings::ReadIdentity(m_disk, *firstBlock) : std::nullopt;
    if (identity) {
        Member("vehicle_number", Printable(identity->vehicleNumber));
        Member("vehicle_id", Printable(identity->vehicleId));
    }
    Member("locked_channels", ChannelsOf(m_disk.Hidden()));
}

void ManifestWriter::WriteClock() {
    const std::optional<ClockCheck>& check = m_request.provenance.clockCheck;
    Member("skew_seconds", m_request.skewSeconds);
    Member("clock_check", check
                              ? Json({{"recorder_time", check->recorderTime}, {"true_time", check->trueTime}})
                              : Json(nullptr));
    Member("zone", m_request.zone ? Json(*m_request.zone) : Json(nullptr));
}

void ManifestWriter::AskedFor() {
    const recordings::TimeRange& range = m_request.range;
    Member("from", m_request.fromGiven ? TimeOfSeconds(range.first) : Json(nullptr));
    Member("to", m_request.toGiven ? TimeOfSeconds(range.last) : Json(nullptr));
    Member("recorder_from", range.first);
    Member("recorder_to", range.last);
    Member("channels", ChannelsOf(m_request.channels));
}

void ManifestWriter::Problems(const std::vector<recordings::Problem>& problems) {
    ProblemsOf("losses", Severity::Loss, problems);
    ProblemsOf("notes", Severity::Note, problems);
}

void ManifestWriter::ProblemsOf(const char* key, Severity severity,
                                const std::vector<recordings::Problem>& problems) {
    BeginList(key);
    for (const recordings::Problem& problem : problems) {
        if (problem.severity == severity) {
            Entry(ProblemOf(problem));
        }
    }
    EndList();
}

/// As in the answers of commands: null for what a kind of problem does not have.
Json ManifestWriter::ProblemOf(const recordings::Problem& problem) const {
    const auto number = [](const std::optional<uint32_t>& value) {
        return value ? Json(*value) : Json(nullptr);
    };
    return {{"problem", recordings::NameOf(problem.kind)},
            {"text", recordings::Describe(problem, m_request.wording.readableTime)},
            {"block", number(problem.block)},
            {"block_after", number(problem.blockAfter)},
            {"channel", number(problem.channel)},
            {"channels", ChannelsOf({problem.channels})},
            {"offset", number(problem.offset)},
            {"bytes", NumberOf(problem.bytes)},
            {"count", NumberOf(problem.count)},
            {"before", TimeOf(problem.before)},
            {"after", TimeOf(problem.after)}};
}

void ManifestWriter::End() {
    Put(",\n");
    m_write(EndOfManifest(m_digest.Text()));
}

void ManifestWriter::Put(const std::string& text) {
    m_digest.Add(text.data(), text.size());
    m_write(text);
}

void ManifestWriter::Key(const char* key) {
    Put(std::string(m_members++ == 0 ? "\n  \"" : ",\n  \"") + key + "\": ");
}

void ManifestWriter::Member(const char* key, const Json& value) {
    Key(key);
    Put(Text(value));
}

void ManifestWriter::BeginList(const char* key) {
    Key(key);
    Put("[");
    m_entries = 0;
}

void ManifestWriter::Entry(const Json& value) {
    Put((m_entries++ == 0 ? "\n    " : ",\n    ") + Text(value));
}

void ManifestWriter::EndList() {
    Put(m_entries == 0 ? "]" : "\n  ]");
}

Json ManifestWriter::TimeOfSeconds(uint32_t seconds) const {
    return TimeOf(int64_t{seconds} * kMicros);
}

Json ManifestWriter::NumberOf(uint64_t number) {
    return number <= kLargestExact ? Json(number) : Json(std::to_string(number));
}

Json ManifestWriter::AreaOf(const AreaDigest& area) {
    return {{"device_offset", NumberOf(area.offset)},
            {"size_bytes", NumberOf(area.size)},
            {"sha256", area.sha256},
            {"unreadable_bytes", NumberOf(area.unreadable)}};
}

} // namespace media
