#include "media/signature.h"

#include <openssl/bio.h>
#include <openssl/crypto.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/pem.h>

#include <new>
#include <utility>

#include "media/error.h"
#include "small_file.h"

namespace media {

namespace {

/// A PEM file of such a key has some hundred bytes; a comment may stand before it.
constexpr size_t kLargestKeyFile = 0x10000;

struct Free {
    void operator()(EVP_PKEY* key) const { EVP_PKEY_free(key); }
    void operator()(EVP_MD_CTX* context) const { EVP_MD_CTX_free(context); }
    void operator()(BIO* bytes) const { BIO_free(bytes); }
};
using KeyPointer = std::unique_ptr<EVP_PKEY, Free>;
using Context = std::unique_ptr<EVP_MD_CTX, Free>;
using Bio = std::unique_ptr<BIO, Free>;

/// A passphrase is not asked for: libcrypto would wait for one at the terminal.
int NoPassphrase(char* /*text*/, int /*size*/, int /*writing*/, void* /*unused*/) {
    return -1;
}

Bio BytesOf(const std::string& text) {
    Bio bytes(BIO_new_mem_buf(text.data(), static_cast<int>(text.size())));
    if (!bytes) {
        throw std::bad_alloc();
    }
    return bytes;
}

Context NewContext() {
    Context context(EVP_MD_CTX_new());
    if (!context) {
        throw std::bad_alloc();
    }
    return context;
}

const unsigned char* Bytes(const std::string& text) {
    return reinterpret_cast<const unsigned char*>(text.data());
}

void RequireEd25519(const KeyPointer& key, const std::string& path, const char* kind) {
    ERR_clear_error();
    if (!key || EVP_PKEY_base_id(key.get()) != EVP_PKEY_ED25519) {
        throw Error(ErrorKind::BadKey, path + ": holds no " + kind + " Ed25519 key that can be used, as PEM");
    }
}

} // namespace

struct SigningKey::Key {
    KeyPointer pointer;
};

struct PublicKey::Key {
    KeyPointer pointer;
};

SigningKey::SigningKey(const std::string& path) : m_key(std::make_unique<Key>()) {
    std::string text = ReadSmallFile(path, kLargestKeyFile, ErrorKind::BadKey);
    {
        const Bio bytes = BytesOf(text);
        m_key->pointer.reset(PEM_read_bio_PrivateKey(bytes.get(), nullptr, NoPassphrase, nullptr));
    }
    OPENSSL_cleanse(text.data(), text.size());
    RequireEd25519(m_key->pointer, path, "private");
}

SigningKey::~SigningKey() = default;
SigningKey::SigningKey(SigningKey&&) noexcept = default;
SigningKey& SigningKey::operator=(SigningKey&&) noexcept = default;

std::string SigningKey::Sign(const std::string& message) const {
    const Context context = NewContext();
    std::string signature(kSignatureBytes, '\0');
    size_t size = signature.size();
    const bool done =
        EVP_DigestSignInit(context.get(), nullptr, nullptr, nullptr, m_key->pointer.get()) == 1 &&
        EVP_DigestSign(context.get(), reinterpret_cast<unsigned char*>(signature.data()), &size,
                       Bytes(message), message.size()) == 1;
    if (!done || size != kSignatureBytes) {
        ERR_clear_error();
        throw Error(ErrorKind::CannotSign, "libcrypto makes no signature with this key");
    }
    return signature;
}

std::string SigningKey::PublicKey() const {
    const Bio bytes(BIO_new(BIO_s_mem()));
    if (!bytes || PEM_write_bio_PUBKEY(bytes.get(), m_key->pointer.get()) != 1) {
        throw std::bad_alloc();
    }
    char* text = nullptr;
    const long size = BIO_get_mem_data(bytes.get(), &text);
    return {text, static_cast<size_t>(size)};
}

PublicKey::PublicKey(const std::string& path) : m_key(std::make_unique<Key>()) {
    const std::string text = ReadSmallFile(path, kLargestKeyFile, ErrorKind::BadKey);
    const Bio bytes = BytesOf(text);
    m_key->pointer.reset(PEM_read_bio_PUBKEY(bytes.get(), nullptr, NoPassphrase, nullptr));
    RequireEd25519(m_key->pointer, path, "public");
}

PublicKey::~PublicKey() = default;
PublicKey::PublicKey(PublicKey&&) noexcept = default;
PublicKey& PublicKey::operator=(PublicKey&&) noexcept = default;

bool PublicKey::Fits(const std::string& message, const std::string& signature) const {
    const Context context = NewContext();
    const bool fits =
        EVP_DigestVerifyInit(context.get(), nullptr, nullptr, nullptr, m_key->pointer.get()) == 1 &&
        EVP_DigestVerify(context.get(), Bytes(signature), signature.size(), Bytes(message), message.size()) ==
            1;
    ERR_clear_error();
    return fits;
}

} // namespace media
