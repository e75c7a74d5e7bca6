#ifndef TESTS_SUPPORT_FILES_H
#define TESTS_SUPPORT_FILES_H

#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>

namespace test_support {

inline std::string ReadFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    EXPECT_TRUE(file) << path;
    std::string contents(static_cast<size_t>(std::filesystem::file_size(path)), '\0');
    file.read(contents.data(), static_cast<std::streamsize>(contents.size()));
    return contents;
}

/// A value that lies in the bytes of a file.
template <typename T>
T At(const std::string& bytes, size_t offset) {
    T value;
    std::memcpy(&value, bytes.data() + offset, sizeof value);
    return value;
}

} // namespace test_support

#endif // TESTS_SUPPORT_FILES_H
