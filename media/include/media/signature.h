#ifndef MEDIA_SIGNATURE_H
#define MEDIA_SIGNATURE_H

/// @file signature.h
/// Ed25519 signatures, by libcrypto. A signature is 64 bytes and stands in a file of its own:
///
///     openssl pkeyutl -verify -rawin -pubin -inkey public.pem -in FILE -sigfile FILE.sig
///
/// says whether it fits, without any of this.

#include <cstdint>
#include <memory>
#include <string>

namespace media {

/// Bytes of a signature.
constexpr size_t kSignatureBytes = 64;

/// A key that signs. It is never shown.
class SigningKey {
public:
    /// Reads a PEM file without a passphrase.
    /// @throws Error (BadKey) when it holds no such key
    explicit SigningKey(const std::string& path);
    ~SigningKey();
    SigningKey(SigningKey&&) noexcept;
    SigningKey& operator=(SigningKey&&) noexcept;

    /// The same message and key make the same signature.
    /// @throws Error (CannotSign)
    std::string Sign(const std::string& message) const;
    /// The key that verifies what this one signs, as PEM.
    std::string PublicKey() const;

private:
    struct Key;
    std::unique_ptr<Key> m_key;
};

/// A key that tells whether a signature fits.
class PublicKey {
public:
    /// Reads a PEM file.
    /// @throws Error (BadKey) when it holds no such key
    explicit PublicKey(const std::string& path);
    ~PublicKey();
    PublicKey(PublicKey&&) noexcept;
    PublicKey& operator=(PublicKey&&) noexcept;

    bool Fits(const std::string& message, const std::string& signature) const;

private:
    struct Key;
    std::unique_ptr<Key> m_key;
};

} // namespace media

#endif // MEDIA_SIGNATURE_H
