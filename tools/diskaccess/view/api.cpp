#include "view/api.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <set>
#include <utility>

#include "media/output_file.h"
#include "media/stills.h"
#include "recordings/problem.h"
#include "render/printable.h"
#include "view/frame_stream.h"
#include "view/page_files.h"

namespace diskaccess::view {

namespace {

using nlohmann::json;
using recordings::ChannelSet;
using recordings::Problem;
using recordings::Span;
using recordings::TimeRange;

constexpr int64_t kSecond = recordings::kMicros;  ///< microseconds
constexpr int64_t kMostFrames = 20 * kSecond;     ///< of one answer
constexpr int64_t kMostKeyFrames = 600 * kSecond; ///< the same, of key frames alone
constexpr int64_t kLastSecond = 0xFFFFFFFF;
constexpr int64_t kMostColumns = 8192;
constexpr int64_t kMostHeight = 2160; ///< of pictures, in pixels
constexpr size_t kMostListed = 10000;

Response JsonResponse(const json& document, unsigned status = 200) {
    Response response;
    response.status = status;
    response.body = document.dump(-1, ' ', false, json::error_handler_t::replace);
    return response;
}

int64_t ToNumber(const std::string& name, const std::string& text, int64_t least, int64_t most) {
    int64_t number = 0;
    const char* const end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, number);
    if (error != std::errc() || rest != end || number < least || number > most) {
        throw HttpError(400, name + ": not a number from " + std::to_string(least) + " to " +
                                 std::to_string(most));
    }
    return number;
}

std::string WordOf(const Request& request, const std::string& name, const std::string& otherwise) {
    const auto found = request.query.find(name);
    return found == request.query.end() ? otherwise : found->second;
}

/// @throws HttpError for a number that is missing, or out of bounds
int64_t NumberOf(const Request& request, const std::string& name, int64_t least, int64_t most) {
    return ToNumber(name, WordOf(request, name, ""), least, most);
}

/// Microseconds on the recorder's clock.
std::pair<int64_t, int64_t> StretchOf(const Request& request) {
    const int64_t from = NumberOf(request, "from", 0, kLastSecond * kSecond);
    return {from, NumberOf(request, "to", from, kLastSecond * kSecond + kSecond - 1)};
}

TimeRange RangeOf(std::pair<int64_t, int64_t> stretch) {
    return {static_cast<uint32_t>(stretch.first / kSecond), static_cast<uint32_t>(stretch.second / kSecond)};
}

/// Channel numbers with commas between them.
ChannelSet ToChannels(const std::string& text) {
    ChannelSet channels;
    for (size_t begin = 0; begin <= text.size();) {
        const size_t end = std::min(text.find(',', begin), text.size());
        channels.Add(static_cast<uint32_t>(
            ToNumber("channels", text.substr(begin, end - begin), 0, recordings::kChannels - 1)));
        begin = end + 1;
    }
    return channels;
}

/// One of several words, as what it stands for.
template <typename T>
T ChoiceOf(const Request& request, const std::string& name,
           const std::vector<std::pair<std::string, T>>& choices) {
    const std::string text = WordOf(request, name, choices.front().first);
    for (const auto& [word, meaning] : choices) {
        if (word == text) {
            return meaning;
        }
    }
    throw HttpError(400, name + ": none of the words it may be");
}

void WantMethod(const Request& request, const std::string& method) {
    if (request.method != method) {
        throw HttpError(405, request.path + " takes " + method);
    }
}

json ToJson(const std::vector<Span>& spans) {
    json list = json::array();
    for (const Span& span : spans) {
        list.push_back({span.start, span.end});
    }
    return list;
}

/// From when on the zone is how many seconds east of UTC, true time: the page shows times without knowing any zone.
json OffsetsOf(const TimeZone& zone, int64_t first, int64_t last) {
    constexpr int64_t kDay = 86400;
    json offsets = json::array({{first, zone.OffsetAt(first)}});
    for (int64_t day = first; day < last; day += kDay) {
        int64_t before = day;
        int64_t after = std::min(day + kDay, last);
        if (zone.OffsetAt(before) == zone.OffsetAt(after)) {
            continue;
        }
        while (after - before > 1) {
            const int64_t middle = before + (after - before) / 2;
            (zone.OffsetAt(middle) == zone.OffsetAt(before) ? before : after) = middle;
        }
        offsets.push_back({after, zone.OffsetAt(after)});
    }
    return offsets;
}

/// From the first second recorded to the last. Heads and tails tell it before all has been read.
Span WholeOf(const recordings::BlockList& blocks, const Survey& survey) {
    const std::optional<Span> known = survey.Whole();
    if (blocks.All().empty()) {
        return known.value_or(Span());
    }
    const Span told = {blocks.Oldest()->start, std::max(blocks.Newest()->start, blocks.Newest()->end)};
    if (survey.Complete() && known) {
        return *known;
    }
    return known ? Span{std::min(told.start, known->start), std::max(told.end, known->end)} : told;
}

const char* NameOf(ExportState::Phase phase) {
    switch (phase) {
    case ExportState::Phase::Running:
        return "running";
    case ExportState::Phase::Done:
        return "done";
    case ExportState::Phase::Cancelled:
        return "cancelled";
    default:
        return "failed";
    }
}

json ToJson(const ExportState& state) {
    json document = {{"state", NameOf(state.phase)}, {"progress", state.progress}, {"error", state.error}};
    if (state.phase != ExportState::Phase::Done) {
        return document;
    }
    document["manifest"] = Printable(state.result->manifest);
    document["files"] = json::array();
    for (const media::Exported& file : state.result->outputs) {
        document["files"].push_back(
            {{"file", Printable(file.path)}, {"size_bytes", file.size}, {"sha256", file.sha256}});
    }
    document["losses"] =
        std::count_if(state.result->problems.begin(), state.result->problems.end(),
                      [](const Problem& problem) { return problem.severity == recordings::Severity::Loss; });
    return document;
}

bool IsTaken(const std::string& name) {
    std::error_code ignored;
    return std::filesystem::exists(name, ignored) || std::filesystem::exists(name + ".json", ignored);
}

/// A name that no file and no manifest has yet: other cameras of the same seconds may have been exported before.
std::string FreeName(const std::string& path, const std::string& ending) {
    constexpr int kMostTries = 1000;
    std::string name = path + ending;
    for (int number = 2; number < kMostTries && IsTaken(name); ++number) {
        name = fmt::format("{}_{}{}", path, number, ending);
    }
    return name;
}

} // namespace

Api::Api(Setting setting, std::string token)
    : m_setting(std::move(setting)), m_gate(std::move(token)), m_disks(m_setting.open), m_survey(m_disks),
      m_exports(m_disks, m_survey, m_setting.source) {}

Response Api::Answer(const Request& request) {
    const bool isApi = request.path.compare(0, 5, "/api/") == 0;
    const Admission admission = isApi ? m_gate.ForApi(request.caller) : m_gate.ForPage(request.caller);
    if (admission != Admission::Granted) {
        return JsonResponse({{"error", "not for you"}}, static_cast<unsigned>(admission));
    }
    return isApi ? AnswerApi(request) : AnswerPage(request);
}

Response Api::AnswerPage(const Request& request) const {
    const PageFile* const file = FindPageFile(request.path);
    if (file == nullptr) {
        throw HttpError(404, "there is no such page");
    }
    if (request.method != "GET" && request.method != "HEAD") {
        throw HttpError(405, "pages are only read");
    }
    Response response;
    response.type = file->type;
    response.body = file->bytes;
    return response;
}

Response Api::AnswerApi(const Request& request) {
    static const std::map<std::string, Response (Api::*)(const Request&)> kAnswers = {
        {"/api/coverage", &Api::Coverage},
        {"/api/events", &Api::Events},
        {"/api/damage", &Api::Damages},
        {"/api/frames", &Api::Frames},
    };
    if (request.path == "/api/exports") {
        return BeginExport(request);
    }
    if (request.path.compare(0, 13, "/api/exports/") == 0) {
        return ExportOf(request);
    }
    if (request.path == "/api/info") {
        WantMethod(request, "GET");
        return Info();
    }
    const auto answer = kAnswers.find(request.path);
    if (answer == kAnswers.end()) {
        throw HttpError(404, "there is no such question");
    }
    WantMethod(request, "GET");
    return (this->*answer->second)(request);
}

Response Api::Info() {
    const auto disk = m_disks.Borrow();
    const auto blocks = m_survey.Blocks();
    json document = {{"source", Printable(m_setting.name)},
                     {"description", Printable(disk->Facts().description)},
                     {"block_count", disk->Facts().blockCount},
                     {"skew_seconds", m_setting.skewSeconds},
                     {"zone", m_setting.zoneName},
                     {"server_pictures", media::StillsSupported()},
                     {"export_folder", Printable(m_setting.exportFolder)},
                     {"complete", m_survey.Complete()}};
    for (uint32_t channel = 0; channel < recordings::kChannels; ++channel) {
        if (disk->Hidden().Has(channel)) {
            document["locked_channels"].push_back(channel);
        }
    }
    const auto identity = blocks->Newest() == nullptr
                              ? std::nullopt
                              : recordings::ReadIdentity(*disk, blocks->Newest()->number);
    document["vehicle_number"] = identity ? Printable(identity->vehicleNumber) : "";
    document["vehicle_id"] = identity ? Printable(identity->vehicleId) : "";
    document["channels"] = json::array();
    document["channel_names"] = json::array(); // as many: the number where a channel has no name
    recordings::ChannelSet channels;
    for (const recordings::Block& block : blocks->All()) {
        channels.bits |= block.channels.bits;
    }
    for (uint32_t channel = 0; channel < recordings::kChannels; ++channel) {
        if (channels.Without(disk->Hidden()).Has(channel)) {
            document["channels"].push_back(channel);
            document["channel_names"].push_back(m_setting.names.ChannelText(channel));
        }
    }
    const Span whole = WholeOf(*blocks, m_survey);
    document["first"] = whole.start;
    document["last"] = whole.end;
    constexpr int64_t kWeek = 604800;
    const auto trueSecond = [this](uint32_t second) {
        return m_setting.clock.TrueInstant(second * kSecond).micros / kSecond;
    };
    document["zone_offsets"] =
        OffsetsOf(m_setting.zone, trueSecond(whole.start) - kWeek, trueSecond(whole.end) + kWeek);
    return JsonResponse(document);
}

Response Api::Coverage(const Request& request) {
    const auto stretch = StretchOf(request);
    const int64_t width = NumberOf(request, "width", 1, kMostColumns);
    // What is apart by less than a column cannot be told apart.
    const int64_t column = (stretch.second - stretch.first) / kSecond / width;
    const auto silence = static_cast<uint32_t>(std::max<int64_t>(column, 1) - 1);
    const Survey::Picture picture = m_survey.Recorded(RangeOf(stretch), silence);
    json channels = json::object();
    for (uint32_t channel = 0; channel < recordings::kChannels; ++channel) {
        if (!picture.channels.at(channel).empty()) {
            channels[std::to_string(channel)] = ToJson(picture.channels.at(channel));
        }
    }
    return JsonResponse({{"complete", picture.complete},
                         {"progress", picture.progress},
                         {"error", picture.failure},
                         {"channels", channels},
                         {"journeys", ToJson(picture.journeys)}});
}

Response Api::Events(const Request& request) {
    json list = json::array();
    for (const recordings::Event& event : m_survey.Events(RangeOf(StretchOf(request)), kMostListed)) {
        list.push_back({{"time", event.micros},
                        {"event_types", std::to_string(event.type)},
                        {"event_names", m_setting.names.EventText(event.type)},
                        {"block", event.block},
                        {"entry", event.entry},
                        {"channel", event.channel ? json(*event.channel) : json(nullptr)}});
    }
    return JsonResponse({{"complete", m_survey.Complete()}, {"events", list}});
}

Response Api::Damages(const Request& request) {
    json list = json::array();
    for (const recordings::Damage& damage : m_survey.Damages(RangeOf(StretchOf(request)), kMostListed)) {
        const Problem& problem = damage.problem;
        list.push_back({{"first", damage.time.start},
                        {"last", damage.time.end},
                        {"kind", NameOf(problem.kind)},
                        {"loss", problem.severity == recordings::Severity::Loss},
                        {"channel", problem.channel ? json(*problem.channel) : json(nullptr)},
                        {"text", TextOf(problem)}});
    }
    return JsonResponse({{"complete", m_survey.Complete()}, {"problems", list}});
}

std::string Api::TextOf(const Problem& problem) const {
    return Printable(recordings::Describe(problem, m_setting.wording.readableTime));
}

Response Api::Frames(const Request& request) {
    FramesQuery query;
    std::tie(query.from, query.to) = StretchOf(request);
    query.channels = ToChannels(WordOf(request, "channels", ""));
    query.fromKeyFrame = ChoiceOf<bool>(request, "start", {{"key", true}, {"exact", false}});
    query.kind = ChoiceOf<FramesQuery::Kind>(request, "kind",
                                             {{"all", FramesQuery::Kind::All},
                                              {"key", FramesQuery::Kind::KeyFrames},
                                              {"audio", FramesQuery::Kind::Audio}});
    const int64_t most = query.kind == FramesQuery::Kind::KeyFrames ? kMostKeyFrames : kMostFrames;
    if (query.to - query.from > most) {
        throw HttpError(400, "to: at most " + std::to_string(most / kSecond) + " seconds after from");
    }
    if (ChoiceOf<bool>(request, "video", {{"raw", false}, {"jpeg", true}})) {
        if (!media::StillsSupported()) {
            throw HttpError(501, "this program was built without what decodes pictures");
        }
        query.pictureHeight = static_cast<uint32_t>(NumberOf(request, "height", 1, kMostHeight));
    }
    Response response;
    response.type = "application/octet-stream";
    response.stream =
        std::make_unique<FrameStream>(m_disks.Borrow(), m_survey.Blocks(), m_survey, query, m_decoding,
                                      [this](const Problem& problem) { return TextOf(problem); });
    return response;
}

std::string Api::FileNameOf(const TimeRange& range, const std::string& ending) const {
    std::string name = "recording " + m_setting.wording.readableSecond(range.first * kSecond);
    std::replace(name.begin(), name.end(), ' ', '_');
    std::replace(name.begin(), name.end(), ':', '-');
    const std::string path =
        m_setting.exportFolder + "/" + name + "_" + std::to_string(range.last - range.first + 1) + "s";
    return FreeName(path, ending);
}

Response Api::BeginExport(const Request& request) {
    WantMethod(request, "POST");
    const json asked = json::parse(request.body, nullptr, false);
    if (!asked.is_object() || !asked.value("from", json()).is_number_unsigned() ||
        !asked.value("to", json()).is_number_unsigned() || !asked.value("channels", json()).is_string()) {
        throw HttpError(400, "give from and to, seconds on the recorder's clock, and channels");
    }
    media::ExportRequest wanted;
    const auto from = static_cast<int64_t>(std::min<uint64_t>(asked["from"].get<uint64_t>(), kLastSecond));
    const auto to = static_cast<int64_t>(std::min<uint64_t>(asked["to"].get<uint64_t>(), kLastSecond));
    if (to < from) {
        throw HttpError(400, "to: before from");
    }
    const bool mp4 = asked.value("container", json("matroska")) == "mp4";
    wanted.container = mp4 ? media::Container::Mp4 : media::Container::Matroska;
    wanted.range = {static_cast<uint32_t>(from), static_cast<uint32_t>(to)};
    wanted.fromGiven = true;
    wanted.toGiven = true;
    wanted.channels = ToChannels(asked["channels"].get<std::string>());
    wanted.name = FileNameOf(wanted.range, mp4 ? ".mp4" : ".mkv");
    wanted.made = m_setting.zone.Rfc3339(std::time(nullptr));
    wanted.skewSeconds = m_setting.skewSeconds;
    wanted.zone = m_setting.zone.Name();
    wanted.wording = m_setting.wording;
    wanted.provenance = m_setting.provenance;
    const auto number = m_exports.Begin(wanted);
    if (!number) {
        throw HttpError(409, "another export still runs");
    }
    return JsonResponse({{"id", *number}, {"file", Printable(wanted.name)}}, 202);
}

Response Api::ExportOf(const Request& request) {
    const std::string text = request.path.substr(std::string("/api/exports/").size());
    const auto number = static_cast<uint32_t>(ToNumber("export", text, 1, 0xFFFFFFFF));
    if (request.method == "DELETE") {
        m_exports.Cancel(number);
    } else {
        WantMethod(request, "GET");
    }
    const auto state = m_exports.StateOf(number);
    if (!state) {
        throw HttpError(404, "there is no such export");
    }
    return JsonResponse(ToJson(*state));
}

} // namespace diskaccess::view
