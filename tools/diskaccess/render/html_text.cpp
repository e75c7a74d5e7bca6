#include "render/html_text.h"

#include <array>
#include <vector>

#include <openssl/evp.h>

namespace diskaccess {

std::string HtmlText(const std::string& text) {
    std::string escaped;
    for (const char c : text) {
        switch (c) {
        case '&':
            escaped += "&amp;";
            break;
        case '<':
            escaped += "&lt;";
            break;
        case '>':
            escaped += "&gt;";
            break;
        case '"':
            escaped += "&quot;";
            break;
        case '\'':
            escaped += "&#39;";
            break;
        default:
            escaped += c;
        }
    }
    return escaped;
}

std::string Base64(const std::string& bytes) {
    constexpr size_t kPiece = 3 * size_t{0x100000}; // whole groups of three; its size is an int
    std::string encoded;
    std::vector<unsigned char> out(kPiece / 3 * 4 + 1);
    for (size_t at = 0; at < bytes.size(); at += kPiece) {
        const std::string piece = bytes.substr(at, kPiece);
        const std::vector<unsigned char> in(piece.begin(), piece.end());
        const int length = EVP_EncodeBlock(out.data(), in.data(), static_cast<int>(in.size()));
        encoded.append(out.begin(), out.begin() + length);
    }
    return encoded;
}

std::string PolicyHash(const std::string& text) {
    std::array<unsigned char, EVP_MAX_MD_SIZE> digest = {};
    unsigned int size = 0;
    EVP_Digest(text.data(), text.size(), digest.data(), &size, EVP_sha256(), nullptr);
    return "sha256-" + Base64(std::string(digest.begin(), digest.begin() + size));
}

} // namespace diskaccess
