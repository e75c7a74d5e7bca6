#include "support/memory_device.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "support/findings.h"

namespace fuzzing {

MemoryDevice::MemoryDevice() : m_pages(kLargest / kPageSize, nullptr) {}

void MemoryDevice::Clear() {
    for (const size_t number : m_used) {
        m_pages[number] = nullptr;
    }
    m_used.clear();
    m_size = 0;
}

uint8_t* MemoryDevice::WritablePage(size_t number) {
    if (m_pages[number] == nullptr) {
        if (m_used.size() == m_pool.size()) {
            m_pool.push_back(std::make_unique<Page>());
        }
        m_pages[number] = m_pool[m_used.size()].get();
        m_pages[number]->fill(0);
        m_used.push_back(number);
    }
    return m_pages[number]->data();
}

void MemoryDevice::Lay(uint64_t offset, const uint8_t* data, size_t size) {
    while (size > 0 && offset < kLargest) {
        const auto inPage = static_cast<size_t>(offset % kPageSize);
        const size_t part = std::min(size, kPageSize - inPage);
        std::memcpy(WritablePage(static_cast<size_t>(offset / kPageSize)) + inPage, data, part);
        offset += part;
        data += part;
        size -= part;
    }
}

void MemoryDevice::Copy(uint64_t offset, uint8_t* out, size_t size) const {
    while (size > 0) {
        const auto inPage = static_cast<size_t>(offset % kPageSize);
        const size_t part = std::min(size, kPageSize - inPage);
        const uint64_t number = offset / kPageSize;
        const Page* const page = number < m_pages.size() ? m_pages[static_cast<size_t>(number)] : nullptr;
        if (page != nullptr) {
            std::memcpy(out, page->data() + inPage, part);
        } else {
            std::memset(out, 0, part);
        }
        offset += part;
        out += part;
        size -= part;
    }
}

Machine& Machine::The() {
    static Machine machine;
    return machine;
}

void Machine::Reset() {
    Require(OpenDescriptors() == 0, "a descriptor was left open");
    for (MemoryDevice& device : m_devices) {
        device.Clear();
    }
    m_fault = FaultKind::None;
    m_answers = SizeAnswers();
    m_writesLeft = 0;
    m_calls = 0;
    m_limit = UINT64_MAX;
}

size_t Machine::OpenDescriptors() const {
    return static_cast<size_t>(std::count_if(m_descriptors.begin(), m_descriptors.end(),
                                             [](const Descriptor& each) { return each.open; }));
}

size_t Machine::Named(const char* path) {
    size_t device = 0;
    while (device < kDevices && std::strcmp(path, kNames[device]) != 0) {
        ++device;
    }
    return device;
}

Machine::Descriptor& Machine::At(int fd) {
    const auto index = static_cast<size_t>(fd - kFirstDescriptor);
    if (index >= m_descriptors.size() || !m_descriptors[index].open) {
        Report("descriptor %d is used, but not open", fd);
    }
    return m_descriptors[index];
}

bool Machine::Note() {
    const uint64_t call = m_calls++;
    if (m_calls > m_limit) {
        Report("an operation makes too many system calls: this is call %llu",
               static_cast<unsigned long long>(call));
    }
    const bool fail = (m_fault == FaultKind::FailOnce && call == m_faultCall) ||
                      (m_fault == FaultKind::FailForever && call >= m_faultCall);
    if (fail) {
        errno = EIO;
    }
    return fail;
}

bool Machine::Shortened() const {
    const uint64_t call = m_calls - 1;
    return (m_fault == FaultKind::ShortOnce && call == m_faultCall) ||
           (m_fault == FaultKind::ShortForever && call >= m_faultCall);
}

int Machine::Open(size_t device, int flags) {
    const bool writing = (flags & O_ACCMODE) != O_RDONLY;
    if (writing && m_writesLeft == 0) {
        Report("a device is opened for writing: flags %#x", static_cast<unsigned int>(flags));
    }
    const bool exists = m_devices.at(device).Size() != 0;
    if (Note()) {
        return -1;
    }
    if (exists && (flags & O_EXCL) != 0) {
        errno = EEXIST;
        return -1;
    }
    if (!exists && (flags & O_CREAT) == 0) {
        errno = ENOENT;
        return -1;
    }
    for (size_t i = 0; i < m_descriptors.size(); ++i) {
        if (!m_descriptors[i].open) {
            m_descriptors[i] = {true, device, 0};
            return kFirstDescriptor + static_cast<int>(i);
        }
    }
    errno = EMFILE;
    return -1;
}

int64_t Machine::Seek(int fd, int64_t offset, int whence) {
    Descriptor& descriptor = At(fd);
    if (Note()) {
        return -1;
    }
    const auto size = static_cast<int64_t>(m_devices.at(descriptor.device).Size());
    const int64_t base = whence == SEEK_SET ? 0 : whence == SEEK_CUR ? descriptor.position : size;
    int64_t target = 0;
    if (__builtin_add_overflow(base, offset, &target) || target < 0) {
        errno = EINVAL;
        return -1;
    }
    descriptor.position = target;
    return target;
}

int64_t Machine::Read(int fd, void* data, size_t size) {
    Descriptor& descriptor = At(fd);
    const int64_t got = ReadAt(fd, data, size, descriptor.position);
    descriptor.position += std::max<int64_t>(got, 0);
    return got;
}

int64_t Machine::ReadAt(int fd, void* data, size_t size, int64_t offset) {
    const MemoryDevice& device = m_devices.at(At(fd).device);
    if (Note()) {
        return -1;
    }
    const auto from = static_cast<uint64_t>(offset);
    const uint64_t left = from < device.Size() ? device.Size() - from : 0;
    const size_t wanted = Shortened() ? size / 2 : size;
    const auto part = static_cast<size_t>(std::min<uint64_t>(wanted, left));
    device.Copy(from, static_cast<uint8_t*>(data), part);
    return static_cast<int64_t>(part);
}

int64_t Machine::WriteAt(int fd, const void* data, size_t size, int64_t offset) {
    MemoryDevice& device = m_devices.at(At(fd).device);
    const uint64_t end = static_cast<uint64_t>(offset) + size;
    if (Note()) {
        return -1;
    }
    if (m_writesLeft <= 1 || end > MemoryDevice::kLargest) {
        errno = ENOSPC;
        return -1;
    }
    --m_writesLeft;
    device.Lay(static_cast<uint64_t>(offset), static_cast<const uint8_t*>(data), size);
    device.SetSize(std::max(device.Size(), end));
    return static_cast<int64_t>(size);
}

int Machine::Truncate(int fd, int64_t size) {
    MemoryDevice& device = m_devices.at(At(fd).device);
    if (Note()) {
        return -1;
    }
    if (size < 0) {
        errno = EINVAL;
        return -1;
    }
    device.SetSize(static_cast<uint64_t>(size));
    return 0;
}

int Machine::Close(int fd) {
    // A descriptor is gone even when close reports a failure.
    At(fd).open = false;
    return Note() ? -1 : 0;
}

int Machine::Sync(int fd) {
    At(fd);
    return Note() ? -1 : 0;
}

int Machine::Control(int fd, unsigned long request, void* answer) {
    const MemoryDevice& device = m_devices.at(At(fd).device);
    if (Note()) {
        return -1;
    }
    const uint64_t bytes = m_answers.bytes != 0 ? m_answers.bytes : device.Size();
    const auto sectors = static_cast<unsigned long>(bytes / 512); // these are never the device's own
    const unsigned refused = m_answers.refused;
    if (request == BLKSSZGET && (refused & 1) == 0) {
        std::memcpy(answer, &m_answers.sectorSize, sizeof m_answers.sectorSize);
        return 0;
    }
    if (request == BLKGETSIZE64 && (refused & 2) == 0) {
        std::memcpy(answer, &bytes, sizeof bytes);
        return 0;
    }
    if (request == BLKGETSIZE && (refused & 4) == 0) {
        std::memcpy(answer, &sectors, sizeof sectors);
        return 0;
    }
    errno = ENOTTY;
    return -1;
}

namespace {

template <typename Function>
Function Real(const char* name) {
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

} // namespace

} // namespace fuzzing

using fuzzing::Machine;
using fuzzing::Real;

extern "C" {

__attribute__((visibility("default"))) int open64(const char* path, int flags, ...) {
    mode_t mode = 0;
    if ((flags & O_CREAT) != 0) {
        va_list arguments;
        va_start(arguments, flags);
        mode = va_arg(arguments, mode_t);
        va_end(arguments);
    }
    const size_t device = Machine::Named(path);
    if (device < Machine::kDevices) {
        return Machine::The().Open(device, flags);
    }
    const char* const resolved = Machine::The().Writable() ? Machine::The().Resolve(path) : path;
    if (resolved == nullptr || (resolved != path && (flags & O_ACCMODE) != O_RDONLY)) {
        errno = ENOENT;
        return -1;
    }
    static const auto real = Real<int (*)(const char*, int, ...)>("open64");
    return real(resolved, flags, mode);
}

__attribute__((visibility("default"))) int open(const char* path, int flags, ...)
    __attribute__((alias("open64")));

__attribute__((visibility("default"))) FILE* fopen64(const char* path, const char* mode) {
    // libFuzzer writes what it found while a run is still under way.
    const bool bounded = Machine::The().Writable() && mode[0] == 'r';
    const char* const resolved = bounded ? Machine::The().Resolve(path) : path;
    if (resolved == nullptr) {
        errno = ENOENT;
        return nullptr;
    }
    static const auto real = Real<FILE* (*)(const char*, const char*)>("fopen64");
    return real(resolved, mode);
}

__attribute__((visibility("default"))) FILE* fopen(const char* path, const char* mode)
    __attribute__((alias("fopen64")));

__attribute__((visibility("default"))) off64_t lseek64(int fd, off64_t offset, int whence) noexcept {
    static const auto real = Real<off64_t (*)(int, off64_t, int)>("lseek64");
    return Machine::Owns(fd) ? Machine::The().Seek(fd, offset, whence) : real(fd, offset, whence);
}

__attribute__((visibility("default"))) ssize_t read(int fd, void* data, size_t size) {
    static const auto real = Real<ssize_t (*)(int, void*, size_t)>("read");
    return Machine::Owns(fd) ? Machine::The().Read(fd, data, size) : real(fd, data, size);
}

__attribute__((visibility("default"))) ssize_t pread64(int fd, void* data, size_t size, off64_t offset) {
    static const auto real = Real<ssize_t (*)(int, void*, size_t, off64_t)>("pread64");
    return Machine::Owns(fd) ? Machine::The().ReadAt(fd, data, size, offset) : real(fd, data, size, offset);
}

__attribute__((visibility("default"))) ssize_t pwrite64(int fd, const void* data, size_t size,
                                                        off64_t offset) {
    static const auto real = Real<ssize_t (*)(int, const void*, size_t, off64_t)>("pwrite64");
    return Machine::Owns(fd) ? Machine::The().WriteAt(fd, data, size, offset) : real(fd, data, size, offset);
}

__attribute__((visibility("default"))) int ftruncate64(int fd, off64_t size) noexcept {
    static const auto real = Real<int (*)(int, off64_t)>("ftruncate64");
    return Machine::Owns(fd) ? Machine::The().Truncate(fd, size) : real(fd, size);
}

__attribute__((visibility("default"))) int close(int fd) {
    static const auto real = Real<int (*)(int)>("close");
    return Machine::Owns(fd) ? Machine::The().Close(fd) : real(fd);
}

__attribute__((visibility("default"))) int fsync(int fd) {
    static const auto real = Real<int (*)(int)>("fsync");
    return Machine::Owns(fd) ? Machine::The().Sync(fd) : real(fd);
}

__attribute__((visibility("default"))) int ioctl(int fd, unsigned long request, ...) noexcept {
    va_list arguments;
    va_start(arguments, request);
    void* const argument = va_arg(arguments, void*);
    va_end(arguments);
    static const auto real = Real<int (*)(int, unsigned long, ...)>("ioctl");
    return Machine::Owns(fd) ? Machine::The().Control(fd, request, argument) : real(fd, request, argument);
}

} // extern "C"
