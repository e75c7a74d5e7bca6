// Another project's program: lists what is on a partition, and enciphers a block through the library.

#include <disk_access.h>

#include <cstdio>

#ifdef WITH_AES
#define OPENSSL_SUPPRESS_DEPRECATED
#include <openssl/aes.h>

// FIPS 197, appendix B.
static void Encipher() {
    const unsigned char secret[] = {0x2b, 0x7e, 0x15, 0x16, 0x28, 0xae, 0xd2, 0xa6,
                                    0xab, 0xf7, 0x15, 0x88, 0x09, 0xcf, 0x4f, 0x3c};
    const unsigned char plain[] = {0x32, 0x43, 0xf6, 0xa8, 0x88, 0x5a, 0x30, 0x8d,
                                   0x31, 0x31, 0x98, 0xa2, 0xe0, 0x37, 0x07, 0x34};
    unsigned char cipher[16] = {};
    AES_KEY key;
    AES_set_encrypt_key(secret, 128, &key);
    AES_encrypt(plain, cipher, &key);
    std::printf("cipher: ");
    for (const unsigned char byte : cipher) {
        std::printf("%02x", byte);
    }
    std::printf("\n");
}
#endif

int main(int argc, char** argv) {
    if (argc != 2) {
        return 2;
    }
    PartAccess_t part = {};
    std::snprintf(part.PartName, sizeof part.PartName, "%s", argv[1]);
    CSearchDisk disk;
    disk.Init(&part);
    SearchParam_t everything = {0, 0, 0x7FFFFFFF, 0xFFFFFFFF};
    CCommList<RecordItem_t> records;
    std::printf("records: %d\n", disk.SearchMedia(&everything, &records));
#ifdef WITH_AES
    Encipher();
#endif
    return 0;
}
