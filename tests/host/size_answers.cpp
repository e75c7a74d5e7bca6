#include "host/size_answers.h"

#include <linux/fs.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>

namespace test_support {

int SizeAnswers::Answer(uint64_t ownSize, unsigned long request, void* answer) const {
    const uint64_t size = bytes != 0 ? bytes : ownSize;
    const auto sectors = static_cast<unsigned long>(size / 512); // these are never the device's own
    const unsigned no = refused;
    if (request == BLKSSZGET && (no & 1) == 0) {
        std::memcpy(answer, &sectorSize, sizeof sectorSize);
        return 0;
    }
    if (request == BLKGETSIZE64 && (no & 2) == 0) {
        std::memcpy(answer, &size, sizeof size);
        return 0;
    }
    if (request == BLKGETSIZE && (no & 4) == 0) {
        std::memcpy(answer, &sectors, sizeof sectors);
        return 0;
    }
    errno = ENOTTY;
    return -1;
}

int BlockDeviceGuise::Control(int fd, unsigned long request, void* answer) {
    struct stat64 status = {};
    if (fstat64(fd, &status) != 0 || !S_ISREG(status.st_mode)) {
        return HostLayer::Control(fd, request, answer);
    }
    return m_answers.Answer(static_cast<uint64_t>(status.st_size), request, answer);
}

} // namespace test_support
