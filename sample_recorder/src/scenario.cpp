#include "sample_recorder/scenario.h"

#include <algorithm>
#include <ctime>
#include <fstream>
#include <limits>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <type_traits>
#include <utility>
#include <vector>

#include "sample_recorder/field_override.h"
#include "sample_recorder/media_source.h"
#include "sample_recorder/partition_image.h"
#include "sample_recorder/recorder.h"

namespace sample_recorder {

namespace {

using Json = nlohmann::json;

/// The last second that the format has room for.
constexpr uint32_t kLastSecond = 0xFFFFFFFF;

/// Several seconds of sound: real recorders write much smaller ones.
constexpr uint32_t kLargestAudioFrame = 65536;

/// An object of a scenario, read key by key; keys that nobody asked for are mistakes.
class Section {
public:
    Section(const Json& json, std::string name) : m_json(json), m_name(std::move(name)) {
        if (!json.is_object()) {
            throw Error(m_name + ": must be an object");
        }
    }

    /// Complains of keys that were not read.
    void Done() const {
        for (const auto& item : m_json.items()) {
            if (m_read.count(item.key()) == 0) {
                throw Error(m_name + ": does not know '" + item.key() + "'");
            }
        }
    }

    bool Has(const std::string& key) const { return m_json.contains(key); }

    template <typename Value>
    Value Get(const std::string& key) {
        return ValueOf<Value>(key, At(key));
    }

    template <typename Value>
    Value Get(const std::string& key, const Value& otherwise) {
        m_read[key] = true;
        return Has(key) ? Get<Value>(key) : otherwise;
    }

    Section Child(const std::string& key) {
        static const Json empty = Json::object();
        m_read[key] = true;
        return {Has(key) ? m_json.at(key) : empty, key};
    }

    std::vector<Section> Children(const std::string& key) {
        m_read[key] = true;
        std::vector<Section> children;
        if (Has(key)) {
            for (const Json& element : ListAt(key)) {
                children.emplace_back(element, key);
            }
        }
        return children;
    }

    std::vector<uint32_t> GetNumbers(const std::string& key) {
        m_read[key] = true;
        std::vector<uint32_t> numbers;
        if (Has(key)) {
            for (const Json& element : ListAt(key)) {
                numbers.push_back(ValueOf<uint32_t>(key, element));
            }
        }
        return numbers;
    }

    /// A text that the disk has @p room bytes for.
    std::string GetText(const std::string& key, const std::string& otherwise, size_t room) {
        std::string text = Get(key, otherwise);
        if (text.size() > room) {
            throw Error(m_name + ": '" + key + "' must be at most " + std::to_string(room) + " bytes");
        }
        return text;
    }

    /// A time like "2026-11-18T07:58:00Z".
    uint32_t GetTime(const std::string& key) {
        const auto text = Get<std::string>(key);
        std::tm parts = {};
        const char* const end = strptime(text.c_str(), "%Y-%m-%dT%H:%M:%SZ", &parts);
        const std::tm asked = parts;
        const time_t time = timegm(&parts); // makes 3 March of 31 February
        if (end == nullptr || end != text.c_str() + text.size() || parts.tm_mday != asked.tm_mday ||
            parts.tm_sec != asked.tm_sec || time < 0 || time > int64_t{kLastSecond}) {
            throw Error(m_name + ": '" + key + "' must be a time like 2026-11-18T07:58:00Z");
        }
        return static_cast<uint32_t>(time);
    }

    /// A number, or text like "0x800" for one.
    uint64_t GetNumber(const std::string& key) {
        m_read[key] = true;
        if (Has(key) && m_json.at(key).is_string()) {
            const auto text = Get<std::string>(key);
            size_t used = 0;
            try {
                const uint64_t number = std::stoull(text, &used, 0);
                if (used == text.size() && text.front() >= '0' && text.front() <= '9') { // stoull takes signs
                    return number;
                }
            } catch (const std::logic_error&) {
                // said below
            }
            throw Error(m_name + ": '" + key + "' must be a number like 12 or \"0x800\"");
        }
        return Get<uint64_t>(key);
    }

private:
    const Json& At(const std::string& key) {
        m_read[key] = true;
        if (!m_json.contains(key)) {
            throw Error(m_name + ": needs '" + key + "'");
        }
        return m_json.at(key);
    }

    const Json& ListAt(const std::string& key) {
        if (!At(key).is_array()) {
            throw Error(m_name + ": '" + key + "' must be a list");
        }
        return At(key);
    }

    /// Whether a JSON number is one that @p Whole can hold. (The JSON library would cut any other to fit.)
    template <typename Whole>
    static bool Fits(const Json& json) {
        using Limits = std::numeric_limits<Whole>;
        if (json.is_number_unsigned()) {
            return json.get<uint64_t>() <= static_cast<uint64_t>(Limits::max());
        }
        // Negative: the library keeps all others as unsigned numbers.
        return json.is_number_integer() && std::is_signed_v<Whole> &&
               json.get<int64_t>() >= static_cast<int64_t>(Limits::min());
    }

    template <typename Value>
    Value ValueOf(const std::string& key, const Json& json) const {
        constexpr bool kWhole = std::is_integral_v<Value> && !std::is_same_v<Value, bool>;
        if constexpr (kWhole) {
            if (json.is_number() && !Fits<Value>(json)) {
                throw Error(m_name + ": '" + key + "' must be a whole number from " +
                            std::to_string(std::numeric_limits<Value>::min()) + " to " +
                            std::to_string(std::numeric_limits<Value>::max()));
            }
        }
        try {
            if (!kWhole || json.is_number()) { // the library would make numbers of true and false
                return json.get<Value>();
            }
        } catch (const Json::exception&) {
            // said below
        }
        throw Error(m_name + ": '" + key + "' has a value of the wrong kind");
    }

    const Json& m_json;
    std::string m_name;
    std::map<std::string, bool> m_read;
};

Json ReadJson(const std::string& path) {
    std::ifstream file(path);
    if (!file) {
        throw Error(path + ": cannot be read");
    }
    try {
        return Json::parse(file, nullptr, true, true);
    } catch (const Json::parse_error& error) {
        throw Error(path + ": is not JSON at byte " + std::to_string(error.byte));
    } catch (const Json::out_of_range&) {
        throw Error(path + ": holds a number that no field can hold");
    }
}

Format ReadFormat(Section section) {
    Format format;
    format.diskType = section.Get("disk_type", format.diskType);
    format.blockCount = section.Get("block_count", format.blockCount);
    format.blockSize = section.Get("block_size", format.blockSize);
    const auto layout = section.Get<std::string>("layout", "normal");
    if (layout != "normal" && layout != "extended") {
        throw Error("partition: 'layout' must be normal or extended");
    }
    format.fmtVersion = layout == "extended" ? 1 : 0;
    format.description = section.GetText("description", format.description, sizeof PartHead_t::Description);
    Section lock = section.Child("lock");
    format.encrypt = lock.Get("mode", 0u);
    format.encryptMap = lock.Get("channels", 0u);
    format.password = lock.GetText("password", "", sizeof PartHead_t::CipherCode - 1); // readers end it
    lock.Done();
    section.Done();
    return format;
}

struct Camera {
    uint32_t channel = 0;
    uint32_t framesPerSecond = 0;
    uint32_t audioFrame = 0;
};

struct EventPlan {
    uint32_t time = 0;
    uint64_t type = 0;
    uint32_t channel = 0;
    bool indexed = true;
};

struct ClipPlan {
    uint32_t channel = 0;
    std::string video;
    std::string audio;
};

struct Journey {
    RecordingSpan span;
    std::string end; ///< power_off, power_cut or power_cut_after_index
    std::vector<ClipPlan> clips;
    std::vector<EventPlan> events; ///< in order of time
};

struct FieldOverride {
    uint32_t block = 0;
    std::string structure;
    std::string field;
    uint32_t value = 0;
};

struct Plan {
    Format format;
    RecorderSettings settings;
    std::vector<uint32_t> badBlocks;
    std::vector<std::pair<uint32_t, uint8_t>> suspectBlocks;
    std::map<uint32_t, Camera> cameras;
    std::vector<Journey> journeys;
    std::vector<FieldOverride> overrides;
};

void CheckBlock(const Plan& plan, uint32_t block) {
    if (block >= plan.format.blockCount) {
        throw Error("there is no block " + std::to_string(block) + " in a ring of " +
                    std::to_string(plan.format.blockCount));
    }
}

void ReadBlocks(Section& root, Plan& plan) {
    plan.badBlocks = root.GetNumbers("bad_blocks");
    for (const uint32_t block : plan.badBlocks) {
        CheckBlock(plan, block);
    }
    for (Section& section : root.Children("suspect_blocks")) {
        plan.suspectBlocks.emplace_back(section.Get<uint32_t>("block"), section.Get<uint8_t>("count"));
        section.Done();
        CheckBlock(plan, plan.suspectBlocks.back().first);
    }
}

void ReadCameras(Section& root, Plan& plan) {
    for (Section& section : root.Children("cameras")) {
        Camera camera;
        camera.channel = section.Get<uint32_t>("channel");
        camera.framesPerSecond = section.Get<uint32_t>("frame_rate");
        camera.audioFrame = section.Get("audio_frame", 320u);
        if (camera.channel > 31 || camera.framesPerSecond == 0 || camera.framesPerSecond > 255 ||
            camera.audioFrame == 0 || camera.audioFrame > kLargestAudioFrame) {
            throw Error(
                "cameras: a channel is 0 to 31, a frame rate 1 to 255, an audio frame 1 to 65536 bytes");
        }
        if (!plan.cameras.emplace(camera.channel, camera).second) {
            throw Error("cameras: channel " + std::to_string(camera.channel) + " is there twice");
        }
        ChnProp_t& properties = plan.settings.properties.at(camera.channel);
        properties.Bitrate = section.Get("bitrate", 0u);
        properties.gop = section.Get<uint8_t>("gop", 0);
        section.Done();
        plan.settings.channels |= 1u << camera.channel;
    }
}

/// Looks up a channel that a part of a scenario names.
void CheckCamera(const Plan& plan, const std::string& section, uint32_t channel) {
    if (plan.cameras.count(channel) == 0) {
        throw Error(section + ": channel " + std::to_string(channel) + " is not among the cameras");
    }
}

void ReadJourneys(Section& root, Plan& plan) {
    for (Section& section : root.Children("recordings")) {
        Journey journey;
        journey.span.start = section.GetTime("start");
        journey.span.seconds = section.Get<uint32_t>("seconds");
        if (journey.span.seconds > kLastSecond - journey.span.start) {
            throw Error("recordings: a recording must end by 2106-02-07T06:28:15Z");
        }
        journey.end = section.Get<std::string>("end", "power_off");
        if (journey.end != "power_off" && journey.end != "power_cut" &&
            journey.end != "power_cut_after_index") {
            throw Error("recordings: 'end' must be power_off, power_cut or power_cut_after_index");
        }
        for (Section& clip : section.Children("clips")) {
            const auto channel = clip.Get<uint32_t>("channel");
            CheckCamera(plan, "clips", channel);
            journey.clips.push_back(
                {channel, clip.Get<std::string>("video"), clip.Get<std::string>("audio", "")});
            clip.Done();
        }
        section.Done();
        plan.journeys.push_back(journey);
    }
}

/// The first recording that goes on at a time.
Journey& JourneyAt(Plan& plan, uint32_t time) {
    for (Journey& journey : plan.journeys) {
        if (time >= journey.span.start && time - journey.span.start < journey.span.seconds) {
            return journey;
        }
    }
    throw Error("events: 'time' must lie in a recording");
}

void ReadEvents(Section& root, Plan& plan) {
    for (Section& section : root.Children("events")) {
        const EventPlan event = {section.GetTime("time"), section.GetNumber("type"),
                                 section.Get("channel", 0u), section.Get("indexed", true)};
        section.Done();
        CheckCamera(plan, "events", event.channel);
        JourneyAt(plan, event.time).events.push_back(event);
    }
    for (Journey& journey : plan.journeys) {
        std::stable_sort(journey.events.begin(), journey.events.end(),
                         [](const EventPlan& a, const EventPlan& b) { return a.time < b.time; });
    }
}

FieldOverride ReadOverride(Section section) {
    FieldOverride change;
    change.block = section.Get("block", 0u);
    change.structure = section.Get<std::string>("structure");
    change.field = section.Get<std::string>("field");
    const uint64_t value = section.GetNumber("value");
    section.Done();
    if (value > 0xFFFFFFFF) {
        throw Error("overrides: 'value' must fit 32 bits");
    }
    change.value = static_cast<uint32_t>(value);
    return change;
}

Plan ReadPlan(const Json& json) {
    Plan plan;
    Section root(json, "scenario");
    plan.format = ReadFormat(root.Child("partition"));
    Section vehicle = root.Child("vehicle");
    plan.settings.vehicleNum =
        vehicle.GetText("number", plan.settings.vehicleNum, sizeof BlockHead_t::VehicleNum);
    plan.settings.vehicleId = vehicle.GetText("id", plan.settings.vehicleId, sizeof BlockHead_t::VehicleID);
    vehicle.Done();
    Section alarms = root.Child("alarms");
    plan.settings.preRecordSeconds = alarms.Get("pre_record", plan.settings.preRecordSeconds);
    plan.settings.alarmDelaySeconds = alarms.Get("delay", plan.settings.alarmDelaySeconds);
    alarms.Done();
    ReadBlocks(root, plan);
    ReadCameras(root, plan);
    ReadJourneys(root, plan);
    ReadEvents(root, plan);
    for (const Section& section : root.Children("overrides")) {
        plan.overrides.push_back(ReadOverride(section));
    }
    root.Done();
    return plan;
}

/// The frames of one journey, all cameras together.
MergedSource OpenClips(const Journey& journey, const std::string& mediaDirectory, Plan& plan) {
    MergedSource frames;
    for (const ClipPlan& clip : journey.clips) {
        const Camera& camera = plan.cameras.at(clip.channel);
        ChnProp_t& properties = plan.settings.properties.at(clip.channel);
        frames.Add(OpenVideo(mediaDirectory + "/" + clip.video, clip.channel, camera.framesPerSecond,
                             journey.span, properties));
        if (!clip.audio.empty()) {
            frames.Add(OpenAudio(mediaDirectory + "/" + clip.audio, clip.channel, camera.audioFrame,
                                 journey.span, properties));
        }
    }
    return frames;
}

void RecordJourney(Recorder& recorder, MergedSource& frames, const Journey& journey) {
    auto event = journey.events.begin();
    const auto recordEventsTo = [&](uint32_t second) {
        for (; event != journey.events.end() && event->time <= second; ++event) {
            recorder.WriteEvent(int64_t{event->time} * 1000000, event->type, event->channel, event->indexed);
        }
    };
    Frame frame;
    while (frames.Next(frame)) {
        recordEventsTo(frame.Seconds());
        recorder.Write(frame);
    }
    recordEventsTo(kLastSecond);
}

void EndJourney(Recorder& recorder, const std::string& end) {
    if (end == "power_cut") {
        recorder.CutPower();
    } else if (end == "power_cut_after_index") {
        recorder.CutPowerAfterIndex();
    } else {
        recorder.PowerOff();
    }
}

/// Reads or does what a scenario says, so that a mistake in it is told with its name.
template <typename Step>
auto OfScenario(const std::string& path, const Step& step) {
    try {
        return step();
    } catch (const Error& error) {
        throw Error(path + ": " + error.what());
    }
}

} // namespace

void RecordScenario(const std::string& scenarioPath, const std::string& mediaDirectory,
                    const std::string& outputPath) {
    const Json json = ReadJson(scenarioPath);
    Plan plan = OfScenario(scenarioPath, [&] { return ReadPlan(json); });

    // The files tell the channels' properties, which every block head has: open them all before recording.
    std::vector<MergedSource> sources;
    for (const Journey& journey : plan.journeys) {
        sources.push_back(OpenClips(journey, mediaDirectory, plan));
    }
    PartitionImage image = PartitionImage::Create(outputPath, plan.format);
    for (const uint32_t block : plan.badBlocks) {
        image.SetBad(block);
    }
    Recorder recorder(image, plan.settings);
    for (size_t i = 0; i < plan.journeys.size(); ++i) {
        RecordJourney(recorder, sources[i], plan.journeys[i]);
        EndJourney(recorder, plan.journeys[i].end);
    }
    for (const auto& [block, count] : plan.suspectBlocks) {
        image.SetSuspect(block, count);
    }
    for (const FieldOverride& each : plan.overrides) {
        OfScenario(scenarioPath,
                   [&] { OverrideField(image, each.block, each.structure, each.field, each.value); });
    }
}

} // namespace sample_recorder
