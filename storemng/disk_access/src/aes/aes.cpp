// The low-level AES functions that applications expect in the library. They are libcrypto's.
//
// The library exports them under their own names, so that programs find them that link only the library or
// look them up in it. It must not refer to libcrypto's functions by these names: the names would refer to its
// own. Instead it looks them up in libcrypto, which is loaded because the library is linked with it.

#include <dlfcn.h>

#define OPENSSL_SUPPRESS_DEPRECATED
#include <openssl/aes.h>

namespace {

/// A function of libcrypto, or null.
template <typename Function>
Function* FromLibcrypto(const char* name) {
    void* const libcrypto = dlopen(DISK_ACCESS_LIBCRYPTO, RTLD_LAZY | RTLD_LOCAL);
    return libcrypto == nullptr ? nullptr : reinterpret_cast<Function*>(dlsym(libcrypto, name));
}

} // namespace

#define DISK_ACCESS_EXPORT extern "C" __attribute__((visibility("default")))

DISK_ACCESS_EXPORT int AES_set_encrypt_key(const unsigned char* userKey, const int bits, AES_KEY* key) {
    static auto* const function = FromLibcrypto<decltype(AES_set_encrypt_key)>("AES_set_encrypt_key");
    return function == nullptr ? -1 : function(userKey, bits, key);
}

DISK_ACCESS_EXPORT int AES_set_decrypt_key(const unsigned char* userKey, const int bits, AES_KEY* key) {
    static auto* const function = FromLibcrypto<decltype(AES_set_decrypt_key)>("AES_set_decrypt_key");
    return function == nullptr ? -1 : function(userKey, bits, key);
}

DISK_ACCESS_EXPORT void AES_encrypt(const unsigned char* in, unsigned char* out, const AES_KEY* key) {
    static auto* const function = FromLibcrypto<decltype(AES_encrypt)>("AES_encrypt");
    if (function != nullptr) {
        function(in, out, key);
    }
}

DISK_ACCESS_EXPORT void AES_decrypt(const unsigned char* in, unsigned char* out, const AES_KEY* key) {
    static auto* const function = FromLibcrypto<decltype(AES_decrypt)>("AES_decrypt");
    if (function != nullptr) {
        function(in, out, key);
    }
}

DISK_ACCESS_EXPORT void AES_ecb_encrypt(const unsigned char* in, unsigned char* out, const AES_KEY* key,
                                        const int enc) {
    static auto* const function = FromLibcrypto<decltype(AES_ecb_encrypt)>("AES_ecb_encrypt");
    if (function != nullptr) {
        function(in, out, key, enc);
    }
}
