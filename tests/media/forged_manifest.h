#ifndef TESTS_MEDIA_FORGED_MANIFEST_H
#define TESTS_MEDIA_FORGED_MANIFEST_H

#include <fstream>
#include <nlohmann/json.hpp>
#include <string>

#include "digest.h"
#include "manifest_end.h"

namespace media_test {

/// Writes a manifest as somebody does who has changed it, and makes its own digest right again.
inline void WriteForgedManifest(const std::string& path, nlohmann::json manifest) {
    manifest.erase("manifest_sha256");
    std::string text = manifest.dump();
    text.replace(text.size() - 1, 1, ",\n");
    media::Digest digest;
    digest.Add(text.data(), text.size());
    std::ofstream(path) << text << media::EndOfManifest(digest.Text());
}

} // namespace media_test

#endif // TESTS_MEDIA_FORGED_MANIFEST_H
