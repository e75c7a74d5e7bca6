#include "support/scratch_folder.h"

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "support/findings.h"

namespace fuzzing {

namespace {

namespace fs = std::filesystem;

std::string Parent() {
    constexpr const char* kInMemory = "/dev/shm";
    return access(kInMemory, W_OK) == 0 ? kInMemory : fs::temp_directory_path().string();
}

} // namespace

ScratchFolder::ScratchFolder() : m_path(Parent() + "/diskaccess-fuzz-XXXXXX") {
    Require(mkdtemp(m_path.data()) != nullptr, "there is no room for a folder");
}

ScratchFolder::~ScratchFolder() {
    std::error_code ignored;
    fs::remove_all(m_path, ignored);
}

std::set<std::string> ScratchFolder::Names() const {
    std::set<std::string> names;
    for (const auto& entry : fs::directory_iterator(m_path)) {
        names.insert(entry.path().filename().string());
    }
    return names;
}

std::string Contents(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

void MakeFile(const std::string& path, const std::string& contents) {
    std::ofstream(path, std::ios::binary) << contents;
}

} // namespace fuzzing
