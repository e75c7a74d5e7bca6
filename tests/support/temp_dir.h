#ifndef TESTS_SUPPORT_TEMP_DIR_H
#define TESTS_SUPPORT_TEMP_DIR_H

#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>

namespace test_support {

/// A directory of its own for one test, removed with all in it.
class TempDir {
public:
    TempDir() {
        std::string name = (Parent() / "diskaccess-test-XXXXXX").string();
        if (mkdtemp(name.data()) == nullptr) {
            throw std::runtime_error("cannot make " + name);
        }
        m_path = name;
    }
    ~TempDir() {
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored);
    }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    std::string File(const std::string& name) const { return (m_path / name).string(); }

private:
    /// The directory for temporary files, unless its name is so long that those of partitions in it would not fit
    /// the 128 bytes that the library takes.
    static std::filesystem::path Parent() {
        constexpr size_t kLongest = 64;
        const std::filesystem::path parent = std::filesystem::temp_directory_path();
        return parent.native().size() <= kLongest ? parent : "/tmp";
    }

    std::filesystem::path m_path;
};

} // namespace test_support

#endif // TESTS_SUPPORT_TEMP_DIR_H
