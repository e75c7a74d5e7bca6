// The AES functions, as an application finds them that links the library, or that looks them up in it. The
// vectors are those of FIPS 197, appendix C.

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <filesystem>
#include <numeric>
#include <string>
#include <vector>

#define OPENSSL_SUPPRESS_DEPRECATED
#include <openssl/aes.h>

#include "support/temp_dir.h"

namespace {

bool g_libcryptoIsGone = false;

} // namespace

/// A sanitizer takes a second copy of the library for a mistake.
extern "C" __attribute__((visibility("default"))) const char* __asan_default_options() {
    return "detect_odr_violation=0";
}

/// Stands in for the C library's function, for the library under test too.
extern "C" __attribute__((visibility("default"))) void* dlopen(const char* file, int mode) noexcept {
    using Function = void* (*)(const char*, int);
    static const auto function = reinterpret_cast<Function>(dlsym(RTLD_NEXT, "dlopen"));
    const bool gone =
        g_libcryptoIsGone && file != nullptr && std::string(file).find("libcrypto") != std::string::npos;
    return gone ? nullptr : function(file, mode);
}

namespace {

using Block = std::array<unsigned char, 16>;

struct Vector {
    int bits;
    Block cipher;
};

const Vector kVectors[] = {
    {128, {0x69, 0xc4, 0xe0, 0xd8, 0x6a, 0x7b, 0x04, 0x30, 0xd8, 0xcd, 0xb7, 0x80, 0x70, 0xb4, 0xc5, 0x5a}},
    {192, {0xdd, 0xa9, 0x7c, 0xa4, 0x86, 0x4c, 0xdf, 0xe0, 0x6e, 0xaf, 0x70, 0xa0, 0xec, 0x0d, 0x71, 0x91}},
    {256, {0x8e, 0xa2, 0xb7, 0xca, 0x51, 0x67, 0x45, 0xbf, 0xea, 0xfc, 0x49, 0x90, 0x4b, 0x49, 0x60, 0x89}},
};

/// The functions under test.
struct Functions {
    decltype(&AES_set_encrypt_key) setEncryptKey;
    decltype(&AES_set_decrypt_key) setDecryptKey;
    decltype(&AES_encrypt) encrypt;
    decltype(&AES_decrypt) decrypt;
    decltype(&AES_ecb_encrypt) ecb;
};

/// 00 01 02 ...
std::vector<unsigned char> Key(int bits) {
    std::vector<unsigned char> key(static_cast<size_t>(bits) / 8);
    std::iota(key.begin(), key.end(), static_cast<unsigned char>(0));
    return key;
}

void CheckVectors(const Functions& aes) {
    const Block plain = {0x00, 0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77,
                         0x88, 0x99, 0xaa, 0xbb, 0xcc, 0xdd, 0xee, 0xff};
    for (const Vector& vector : kVectors) {
        const std::vector<unsigned char> userKey = Key(vector.bits);
        AES_KEY key = {};
        Block out = {};
        EXPECT_EQ(aes.setEncryptKey(userKey.data(), vector.bits, &key), 0);
        aes.encrypt(plain.data(), out.data(), &key);
        EXPECT_EQ(out, vector.cipher) << vector.bits;
        out = {};
        aes.ecb(plain.data(), out.data(), &key, AES_ENCRYPT);
        EXPECT_EQ(out, vector.cipher) << vector.bits;
        EXPECT_EQ(aes.setDecryptKey(userKey.data(), vector.bits, &key), 0);
        aes.decrypt(vector.cipher.data(), out.data(), &key);
        EXPECT_EQ(out, plain) << vector.bits;
        out = {};
        aes.ecb(vector.cipher.data(), out.data(), &key, AES_DECRYPT);
        EXPECT_EQ(out, plain) << vector.bits;
    }
    AES_KEY key = {};
    EXPECT_EQ(aes.setEncryptKey(nullptr, 128, &key), -1);
    // libcrypto's code for ARM says -1 here, that for other processors -2.
    EXPECT_LT(aes.setEncryptKey(Key(128).data(), 100, &key), 0);
    EXPECT_LT(aes.setDecryptKey(Key(128).data(), 100, &key), 0);
}

TEST(Aes, IsReachedByLinkingTheLibrary) {
    CheckVectors({AES_set_encrypt_key, AES_set_decrypt_key, AES_encrypt, AES_decrypt, AES_ecb_encrypt});
    Dl_info info = {};
    ASSERT_NE(dladdr(reinterpret_cast<void*>(AES_encrypt), &info), 0);
    EXPECT_NE(std::string(info.dli_fname).find("libDiskAccess"), std::string::npos) << info.dli_fname;
}

TEST(Aes, IsFoundInTheLibraryByName) {
    void* const library = dlopen(DISK_ACCESS_LIBRARY, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(library, nullptr) << dlerror();
    const auto find = [library](const char* name) {
        void* const function = dlsym(library, name);
        EXPECT_NE(function, nullptr) << name;
        return function;
    };
    const Functions functions = {
        reinterpret_cast<decltype(&AES_set_encrypt_key)>(find("AES_set_encrypt_key")),
        reinterpret_cast<decltype(&AES_set_decrypt_key)>(find("AES_set_decrypt_key")),
        reinterpret_cast<decltype(&AES_encrypt)>(find("AES_encrypt")),
        reinterpret_cast<decltype(&AES_decrypt)>(find("AES_decrypt")),
        reinterpret_cast<decltype(&AES_ecb_encrypt)>(find("AES_ecb_encrypt"))};
    CheckVectors(functions);
    dlclose(library);
}

TEST(Aes, KeysAreRefusedWithoutLibcrypto) {
    // A copy of the library, because the one in use has found libcrypto already.
    Dl_info info = {};
    ASSERT_NE(dladdr(reinterpret_cast<void*>(AES_encrypt), &info), 0);
    const test_support::TempDir directory;
    const std::string copy = directory.File("copy.so");
    std::filesystem::copy_file(info.dli_fname, copy);
    void* const library = dlopen(copy.c_str(), RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(library, nullptr) << dlerror();
    g_libcryptoIsGone = true;
    for (const char* const name : {"AES_set_encrypt_key", "AES_set_decrypt_key"}) {
        const auto function = reinterpret_cast<decltype(&AES_set_encrypt_key)>(dlsym(library, name));
        ASSERT_NE(function, nullptr) << name;
        AES_KEY key = {};
        EXPECT_EQ(function(Key(128).data(), 128, &key), -1) << name;
    }
    g_libcryptoIsGone = false;
    dlclose(library);
}

} // namespace
