#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>

namespace {

using namespace test_support;

/// The environment's TMPDIR, replaced for as long as it lives.
class TemporaryFilesIn {
public:
    explicit TemporaryFilesIn(const std::string& path) {
        const char* const before = std::getenv("TMPDIR");
        m_set = before != nullptr;
        m_before = m_set ? before : "";
        setenv("TMPDIR", path.c_str(), 1);
    }
    ~TemporaryFilesIn() {
        if (m_set) {
            setenv("TMPDIR", m_before.c_str(), 1);
        } else {
            unsetenv("TMPDIR");
        }
    }
    TemporaryFilesIn(const TemporaryFilesIn&) = delete;
    TemporaryFilesIn& operator=(const TemporaryFilesIn&) = delete;

private:
    bool m_set = false;
    std::string m_before;
};

std::string DirectoryIn(const std::string& parent) {
    std::filesystem::create_directories(parent);
    const TemporaryFilesIn setting(parent);
    return std::filesystem::path(TempDir().File("disk")).parent_path().parent_path().string();
}

TEST(TempDirs, LieWhereTemporaryFilesBelong) {
    const TempDir scratch;
    EXPECT_EQ(DirectoryIn(scratch.File("place")), scratch.File("place"));
}

TEST(TempDirs, AreShortEnoughForAPartition) {
    const TempDir scratch;
    EXPECT_EQ(DirectoryIn(scratch.File(std::string(64, 'x'))), "/tmp");
}

} // namespace
