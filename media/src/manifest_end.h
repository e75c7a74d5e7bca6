#ifndef MEDIA_SRC_MANIFEST_END_H
#define MEDIA_SRC_MANIFEST_END_H

#include <string>

namespace media {

/// The last two lines of a manifest, which name the digest of all lines before them: what changes by accident shows without a
/// signature, too.
inline std::string EndOfManifest(const std::string& digest) {
    return R"(  "manifest_sha256": ")" + digest + "\"\n}\n";
}

} // namespace media

#endif // MEDIA_SRC_MANIFEST_END_H
