#include "digest.h"

#include <openssl/evp.h>

#include <array>
#include <new>

#include <fmt/format.h>

namespace media {

struct Digest::Context {
    Context() {
        if (state == nullptr) {
            throw std::bad_alloc();
        }
    }
    ~Context() { EVP_MD_CTX_free(state); }
    Context(const Context&) = delete;
    Context& operator=(const Context&) = delete;

    EVP_MD_CTX* const state = EVP_MD_CTX_new();
};

Digest::Digest() : m_context(std::make_unique<Context>()) {
    Restart();
}

Digest::~Digest() = default;

void Digest::Restart() {
    EVP_DigestInit_ex(m_context->state, EVP_sha256(), nullptr);
}

void Digest::Add(const void* data, size_t size) {
    EVP_DigestUpdate(m_context->state, data, size);
}

std::string Digest::Text() {
    std::array<unsigned char, EVP_MAX_MD_SIZE> digest = {};
    unsigned int size = 0;
    EVP_DigestFinal_ex(m_context->state, digest.data(), &size);
    return fmt::format("{:02x}", fmt::join(digest.begin(), digest.begin() + size, ""));
}

} // namespace media
