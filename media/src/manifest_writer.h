#ifndef MEDIA_SRC_MANIFEST_WRITER_H
#define MEDIA_SRC_MANIFEST_WRITER_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "digest.h"
#include "media/request.h"
#include "recordings/disk.h"
#include "recordings/problem.h"

namespace media {

/// Writes what all manifests have, and in the form that all have: a JSON object, member by member, and lists entry by
/// entry. None is held in memory as a whole.
class ManifestWriter {
public:
    using Json = nlohmann::ordered_json;
    using Write = std::function<void(const std::string&)>;

    /// All must outlive the object.
    ManifestWriter(const recordings::Disk& disk, const Request& request, const Write& write);

    /// Begins with what was done, by whom, and of what.
    /// @param firstBlock whose head names the vehicle, if there is one
    void Begin(const char* command, std::optional<uint32_t> firstBlock, const AreaDigest& head,
               const std::optional<AreaDigest>& source);
    /// What was asked for.
    void AskedFor();
    void Problems(const std::vector<recordings::Problem>& problems);
    /// Ends with the digest of all that stands before it.
    void End();

    void Member(const char* key, const Json& value);
    void BeginList(const char* key);
    void Entry(const Json& value);
    void EndList();
    template <typename Items, typename ToJson>
    void List(const char* key, const Items& items, const ToJson& toJson) {
        BeginList(key);
        for (const auto& item : items) {
            Entry(toJson(item));
        }
        EndList();
    }

    /// Time stamps, microseconds on the recorder's clock.
    Json TimeOf(int64_t micros) const { return m_request.wording.timestamp(micros); }
    Json TimeOf(const std::optional<int64_t>& micros) const {
        return micros ? TimeOf(*micros) : Json(nullptr);
    }
    Json TimeOfSeconds(uint32_t seconds) const;
    /// Numbers that many programs cannot hold exactly are text.
    static Json NumberOf(uint64_t number);
    static Json AreaOf(const AreaDigest& area);

private:
    void Put(const std::string& text);
    void Key(const char* key);
    void WriteMaker();
    void WriteSource(const std::optional<AreaDigest>& digest);
    void WritePartition(std::optional<uint32_t> firstBlock, const AreaDigest& head);
    void WriteClock();
    void ProblemsOf(const char* key, recordings::Severity severity,
                    const std::vector<recordings::Problem>& problems);
    Json ProblemOf(const recordings::Problem& problem) const;
    Json Printable(const std::string& text) const { return m_request.wording.printable(text); }

    const recordings::Disk& m_disk;
    const Request& m_request;
    const Write& m_write;
    Digest m_digest; ///< of what was written
    size_t m_members = 0;
    size_t m_entries = 0;
};

} // namespace media

#endif // MEDIA_SRC_MANIFEST_WRITER_H
