#include "commands/loop_device.h"

#include <fcntl.h>
#include <linux/loop.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include <fmt/format.h>

#include "cli/failure.h"

namespace diskaccess {

namespace {

/// Times to try: another program may take the device that was free a moment ago.
constexpr int kTries = 16;

} // namespace

LoopDevice::LoopDevice(int file, const std::string& name) {
    const int control = open("/dev/loop-control", O_RDONLY | O_CLOEXEC);
    bool attached = false;
    int error = errno;
    for (int i = 0; control >= 0 && !attached && i < kTries; ++i) {
        attached = AttachToFree(control, file);
        error = errno;
        if (!attached && error != EBUSY) {
            break;
        }
    }
    if (control >= 0) {
        close(control);
    }
    if (!attached) {
        throw Failure(fmt::format("{}: cannot be attached to a loop device: {}; --attach takes root and a "
                                  "kernel of version 5.8 or later with loop devices",
                                  name, std::strerror(error)));
    }
}

bool LoopDevice::AttachToFree(int control, int file) {
    const int number = ioctl(control, LOOP_CTL_GET_FREE);
    if (number < 0) {
        return false;
    }
    m_path = fmt::format("/dev/loop{}", number);
    m_fd = open(m_path.c_str(), O_RDONLY | O_CLOEXEC);
    if (m_fd < 0) {
        return false;
    }
    loop_config config = {};
    config.fd = static_cast<unsigned int>(file);
    config.info.lo_flags = LO_FLAGS_READ_ONLY | LO_FLAGS_AUTOCLEAR;
    if (ioctl(m_fd, LOOP_CONFIGURE, &config) == 0) {
        return true;
    }
    const int error = errno;
    close(m_fd);
    errno = error;
    return false;
}

LoopDevice::~LoopDevice() {
    close(m_fd);
}

} // namespace diskaccess
