#include "media/earlier.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <system_error>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "media/error.h"
#include "media/manifest.h"
#include "media/manifest_file.h"
#include "media/verify.h"

namespace media {

namespace {

using Json = nlohmann::json;

/// What makes two exports of one disk the same.
constexpr std::array<const char*, 24> kQuestion = {"command",
                                                   "case",
                                                   "operator",
                                                   "note",
                                                   "device_size_bytes",
                                                   "partition_head",
                                                   "description",
                                                   "block_count",
                                                   "block_size_bytes",
                                                   "vehicle_number",
                                                   "vehicle_id",
                                                   "locked_channels",
                                                   "skew_seconds",
                                                   "clock_check",
                                                   "zone",
                                                   "from",
                                                   "to",
                                                   "recorder_from",
                                                   "recorder_to",
                                                   "channels",
                                                   "container",
                                                   "with_audio",
                                                   "aac",
                                                   "text_track"};
constexpr std::array<const char*, 4> kBeside = {"arguments", "source", "losses", "left_out"};

template <size_t Count>
bool IsOneOf(const std::array<const char*, Count>& keys, const Json& key) {
    return std::any_of(keys.begin(), keys.end(), [&key](const char* known) { return key == known; });
}

/// The members of a manifest that matter here. Others may be large, and are not kept.
Json MembersOf(const std::string& text) {
    return Json::parse(
        text,
        [](int depth, Json::parse_event_t event, const Json& parsed) {
            return depth != 1 || event != Json::parse_event_t::key || IsOneOf(kQuestion, parsed) ||
                   IsOneOf(kBeside, parsed);
        },
        false);
}

std::string Differs(const std::string& key) {
    return "its manifest has another '" + key + "'";
}

class Comparison {
public:
    Comparison(const recordings::Disk& disk, const recordings::BlockList& blocks,
               const ExportRequest& request, const recordings::Watch& watch)
        : m_disk(disk), m_blocks(blocks), m_request(request), m_watch(watch) {}

    Earlier Run() {
        m_manifest = ReadManifest(m_request.ManifestName());
        m_made = MembersOf(m_manifest.text);
        Earlier earlier;
        earlier.isThere = true;
        earlier.difference = Difference();
        earlier.lost = NamesLosses();
        for (const Json& argument : m_made.value("arguments", Json::array())) {
            earlier.arguments.push_back(argument.is_string() ? argument.get<std::string>() : "");
        }
        return earlier;
    }

private:
    std::string Difference() {
        // What is cheap to tell comes first.
        for (const auto part :
             {&Comparison::OfFiles, &Comparison::OfQuestion, &Comparison::OfBlocks, &Comparison::OfBytes}) {
            std::string difference = (this->*part)();
            if (!difference.empty()) {
                return difference;
            }
        }
        return "";
    }

    std::string OfFiles() {
        const std::string name = std::filesystem::path(m_request.name).filename().string();
        if (m_manifest.files.empty() || m_manifest.files.front().name != name) {
            return "its manifest is that of another file";
        }
        std::error_code error;
        const bool isSigned = std::filesystem::exists(m_request.SignatureName(), error);
        return m_request.key != nullptr && !isSigned ? "its manifest is not signed" : "";
    }

    /// What the manifest would say now.
    Json Asked() const {
        ExportResult result;
        result.headDigest = HashArea(m_disk.Bytes(), 0, recordings::kPartitionHeadBytes);
        result.blocks = {m_manifest.blocks.front().number};
        std::string text;
        WriteManifest(m_disk, m_blocks, m_request, result,
                      [&text](const std::string& piece) { text += piece; });
        return MembersOf(text);
    }

    std::string OfQuestion() {
        if (m_manifest.blocks.empty() || !m_blocks.Find(m_manifest.blocks.front().number)) {
            return "its manifest names no block that this disk holds";
        }
        const Json asked = Asked();
        for (const char* const key : kQuestion) {
            if (asked.value(key, Json()) != m_made.value(key, Json())) {
                return Differs(key);
            }
        }
        const Json source = m_made.value("source", Json::object());
        for (const char* const key : {"partition_number", "partition_offset"}) {
            if (!source.is_object() || asked["source"][key] != source.value(key, Json())) {
                return Differs(key);
            }
        }
        return m_request.provenance.hashSource && !m_manifest.source
                   ? "its manifest lacks the SHA-256 of the whole source"
                   : "";
    }

    /// Whether a block still holds what it did. No more is read than a block, whatever the manifest says.
    bool Holds(const AreaDigest& area) const {
        const uint64_t blockSize = m_disk.Facts().blockSize;
        const uint64_t deviceSize = m_disk.Bytes().Size();
        const bool isBlock =
            area.size == blockSize && blockSize <= deviceSize && area.offset <= deviceSize - blockSize;
        return isBlock && HashArea(m_disk.Bytes(), area.offset, area.size, m_watch).sha256 == area.sha256;
    }

    std::string OfBlocks() {
        for (const NamedBlock* const block : {&m_manifest.blocks.front(), &m_manifest.blocks.back()}) {
            if (!Holds(block->area)) {
                return fmt::format("block {} of the source is not what it was made from", block->number);
            }
        }
        return "";
    }

    std::string OfBytes() {
        std::string difference;
        Verify(
            {m_manifest},
            [&difference](const Check& check) {
                if (check.result == Check::Result::Bad) {
                    difference = check.text;
                }
            },
            m_watch);
        return difference;
    }

    bool NamesLosses() const {
        const Json leftOut = m_made.value("left_out", Json::array());
        const bool anyLeftOut = std::any_of(leftOut.begin(), leftOut.end(), [](const Json& item) {
            const Json reason = item.is_object() ? item.value("reason", Json()) : Json();
            return reason == NameOf(LeftOutReason::TrackBegunTooLate) ||
                   reason == NameOf(LeftOutReason::FrameTooLarge);
        });
        return anyLeftOut || !m_made.value("losses", Json::array()).empty();
    }

    const recordings::Disk& m_disk;
    const recordings::BlockList& m_blocks;
    const ExportRequest& m_request;
    const recordings::Watch& m_watch;
    ManifestFile m_manifest;
    Json m_made;
};

} // namespace

Earlier LookForEarlier(const recordings::Disk& disk, const recordings::BlockList& blocks,
                       const ExportRequest& request, const recordings::Watch& watch) {
    std::error_code error;
    if (!std::filesystem::exists(std::filesystem::symlink_status(request.name, error))) {
        return {};
    }
    try {
        return Comparison(disk, blocks, request, watch).Run();
    } catch (const Error& unfit) {
        Earlier earlier;
        earlier.isThere = true;
        earlier.difference = unfit.what();
        return earlier;
    }
}

} // namespace media
