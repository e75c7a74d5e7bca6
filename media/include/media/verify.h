#ifndef MEDIA_VERIFY_H
#define MEDIA_VERIFY_H

/// @file verify.h
/// Whether files are still what was made from a disk, and whether the disk still holds what they were made from.

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "media/manifest_file.h"
#include "media/request.h"
#include "media/signature.h"
#include "recordings/blocks.h"
#include "recordings/disk.h"

namespace media {

/// What was looked at, and what came of it.
struct Check {
    enum class Result : uint8_t {
        Good,
        Bad,      ///< it is not what the manifest says
        Unchecked ///< there is nothing to hold it against
    };
    /// What is looked at.
    enum class Subject : uint8_t {
        Signature,
        File,
        Source,
        Block,
        Frames,
        Gaps,
        Events,
        Text,     ///< the text track of a file
        Chapters, ///< of a file
        Facts     ///< what a file says of itself: its title and the like
    };

    Result result = Result::Good;
    Subject subject = Subject::File;
    std::string text; ///< one line
};

/// "good", "bad", "unchecked"
const char* NameOf(Check::Result result);
/// "signature", "file", "source", "block", "frames", "gaps", "events", "text", "chapters", "facts"
const char* NameOf(Check::Subject subject);

/// What a manifest is held against.
struct VerifyRequest {
    const ManifestFile& manifest;
    const PublicKey* key = nullptr; ///< that its signature must fit; null: the signature is not looked at
    const recordings::Disk* disk = nullptr;        ///< the source; null: only the files are looked at
    const recordings::BlockList* blocks = nullptr; ///< of the disk; not null when that is not
    /// How text of the disk was written into the manifest.
    std::function<std::string(const std::string&)> printable = [](const std::string& text) { return text; };
    /// How times and texts of the disk were written into the files. Null: it is not known, and they are not compared.
    const Wording* wording = nullptr;
    /// Reads a time of the manifest, in microseconds since 1970; nothing when it is none. Null: times are not compared.
    std::function<std::optional<int64_t>(const std::string&)> timeOf = {};
};

/// Holds a manifest against its signature, its files and the disk. Each check is reported as it is done; sound blocks make
/// one together.
/// @return whether nothing is bad
/// @throws recordings::Error (Cancelled)
bool Verify(const VerifyRequest& request, const std::function<void(const Check&)>& report,
            const recordings::Watch& watch = {});

} // namespace media

#endif // MEDIA_VERIFY_H
