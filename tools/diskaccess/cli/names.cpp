#include "cli/names.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "cli/failure.h"
#include "render/amounts.h"
#include "render/printable.h"

namespace diskaccess {

namespace {

namespace fs = std::filesystem;
using Json = nlohmann::json;

/// A file of names is larger only by mistake.
constexpr uintmax_t kLargestFile = 1 << 20;

Json ReadDocument(const std::string& file) {
    std::error_code error;
    if (fs::file_size(file, error) > kLargestFile && !error) {
        throw Failure(file + ": is no file of names: it is larger than 1 MiB");
    }
    std::ifstream input(file, std::ios::binary);
    if (error || !input) {
        throw Failure(file + ": cannot be read; give a file of names with --names, or leave it out");
    }
    Json document = Json::parse(input, nullptr, false);
    if (!document.is_object()) {
        throw Failure(file + ": is no JSON document of names; names.schema.json says what it looks like");
    }
    return document;
}

/// A number as keys have it: "3", "0x4".
std::optional<uint64_t> ReadKey(const std::string& key) {
    const bool hexadecimal = key.compare(0, 2, "0x") == 0;
    const std::string digits = hexadecimal ? key.substr(2) : key;
    const char* const allowed = hexadecimal ? "0123456789abcdefABCDEF" : "0123456789";
    if (digits.empty() || digits.size() > 16 || digits.find_first_not_of(allowed) != std::string::npos) {
        return std::nullopt;
    }
    return std::strtoull(digits.c_str(), nullptr, hexadecimal ? 16 : 10);
}

bool IsOneBit(uint64_t bits) {
    return bits != 0 && (bits & (bits - 1)) == 0;
}

/// Hands over each number and name of a part of the document.
template <typename Take>
void ForEachName(const std::string& file, const Json& document, const char* part, const Take& take) {
    const auto found = document.find(part);
    if (found == document.end()) {
        return;
    }
    if (!found->is_object()) {
        throw Failure(
            fmt::format("{}: {} is no object; names.schema.json says what it looks like", file, part));
    }
    for (auto entry = found->begin(); entry != found->end(); ++entry) {
        const std::optional<uint64_t> number = ReadKey(entry.key());
        const std::string name = entry->is_string() ? entry->get_ref<const std::string&>() : "";
        if (!number || name.empty() || !take(*number, Printable(name))) {
            throw Failure(
                fmt::format("{}: {}: '{}' is no entry of it; names.schema.json says what it looks like", file,
                            part, entry.key()));
        }
    }
}

} // namespace

std::string UsualNamesFile() {
    const char* const configuration = std::getenv("XDG_CONFIG_HOME");
    const char* const home = std::getenv("HOME");
    std::filesystem::path folder;
    if (configuration != nullptr && std::filesystem::path(configuration).is_absolute()) {
        folder = configuration;
    } else if (home != nullptr && *home != '\0') {
        folder = std::filesystem::path(home) / ".config";
    }
    const std::filesystem::path file = folder / "diskaccess" / "names.json";
    std::error_code none;
    return !folder.empty() && std::filesystem::exists(file, none) ? file.string() : "";
}

Names::Names(const std::string& given) {
    const std::string file = given.empty() ? UsualNamesFile() : given;
    if (file.empty()) {
        return;
    }
    const Json document = ReadDocument(file);
    ForEachName(file, document, "channels", [this](uint64_t number, const std::string& name) {
        return number < recordings::kChannels && m_channels.emplace(number, name).second;
    });
    ForEachName(file, document, "event_types", [this](uint64_t bit, const std::string& name) {
        return IsOneBit(bit) && m_eventTypes.emplace(bit, name).second;
    });
}

std::string Names::ChannelText(uint32_t channel) const {
    const auto found = m_channels.find(channel);
    return found == m_channels.end() ? std::to_string(channel) : found->second;
}

std::string Names::EventText(uint64_t types) const {
    std::string text;
    for (const auto& [bit, name] : m_eventTypes) {
        if ((types & bit) != 0) {
            text += (text.empty() ? "" : ", ") + name;
            types &= ~bit;
        }
    }
    return types == 0 ? text : text + (text.empty() ? "" : ", ") + fmt::format("0x{:x}", types);
}

recordings::ChannelSet Names::ChannelsNamed(const std::string& name) const {
    recordings::ChannelSet set;
    for (const auto& [channel, each] : m_channels) {
        if (each == name) {
            set.Add(channel);
        }
    }
    return set;
}

uint64_t Names::EventTypesNamed(const std::string& name) const {
    uint64_t types = 0;
    for (const auto& [bit, each] : m_eventTypes) {
        types |= each == name ? bit : 0;
    }
    return types;
}

Value Names::Channel(uint32_t channel) const {
    const bool named = m_channels.count(channel) != 0;
    return named ? Value(Labelled{uint64_t{channel}, ChannelText(channel)}) : Value(uint64_t{channel});
}

Value Names::Channels(ChannelSet channels) const {
    if (m_channels.empty() || channels.Empty()) {
        return channels;
    }
    std::string text;
    for (uint32_t channel = 0; channel < recordings::kChannels; ++channel) {
        if (channels.Has(channel)) {
            text += (text.empty() ? "" : ", ") + ChannelText(channel);
        }
    }
    return Labelled{channels, text};
}

Value Names::EventTypes(uint64_t types) const {
    return m_eventTypes.empty() || types == 0 ? Value(Mask{types})
                                              : Value(Labelled{Mask{types}, EventText(types)});
}

} // namespace diskaccess
