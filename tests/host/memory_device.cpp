#include "host/memory_device.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace test_support {

namespace {

int FailWith(int error) {
    errno = error;
    return -1;
}

} // namespace

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

MemoryDevice& DeviceTable::Add(const std::string& name) {
    return m_devices.emplace_back(NamedDevice{name, {}}).device;
}

MemoryDevice* DeviceTable::Named(const char* path) {
    const auto found = std::find_if(m_devices.begin(), m_devices.end(),
                                    [path](const NamedDevice& each) { return each.name == path; });
    return found == m_devices.end() ? nullptr : &found->device;
}

MemoryDevice* DeviceTable::OpenOn(int fd) const {
    const auto index = static_cast<size_t>(fd - kFirstDescriptor);
    return Owns(fd) && index < m_descriptors.size() ? m_descriptors[index].device : nullptr;
}

size_t DeviceTable::OpenDescriptors() const {
    return static_cast<size_t>(std::count_if(m_descriptors.begin(), m_descriptors.end(),
                                             [](const Descriptor& each) { return each.device != nullptr; }));
}

int DeviceTable::Open(MemoryDevice& device) {
    for (size_t i = 0; i < m_descriptors.size(); ++i) {
        if (m_descriptors[i].device == nullptr) {
            m_descriptors[i] = {&device, 0};
            return kFirstDescriptor + static_cast<int>(i);
        }
    }
    return FailWith(EMFILE);
}

int64_t DeviceTable::Seek(int fd, int64_t offset, int whence) {
    const MemoryDevice* const device = OpenOn(fd);
    if (device == nullptr) {
        return FailWith(EBADF);
    }
    int64_t& position = m_descriptors[static_cast<size_t>(fd - kFirstDescriptor)].position;
    const int64_t base = whence == SEEK_SET   ? 0
                         : whence == SEEK_CUR ? position
                                              : static_cast<int64_t>(device->Size());
    int64_t target = 0;
    if (__builtin_add_overflow(base, offset, &target) || target < 0) {
        return FailWith(EINVAL);
    }
    position = target;
    return target;
}

int64_t DeviceTable::Read(int fd, void* data, size_t size) {
    if (OpenOn(fd) == nullptr) {
        return FailWith(EBADF);
    }
    int64_t& position = m_descriptors[static_cast<size_t>(fd - kFirstDescriptor)].position;
    const int64_t got = ReadAt(fd, data, size, position);
    position += got;
    return got;
}

int64_t DeviceTable::ReadAt(int fd, void* data, size_t size, int64_t offset) const {
    const MemoryDevice* const device = OpenOn(fd);
    if (device == nullptr) {
        return FailWith(EBADF);
    }
    const auto from = static_cast<uint64_t>(offset);
    const uint64_t left = from < device->Size() ? device->Size() - from : 0;
    const auto part = static_cast<size_t>(std::min<uint64_t>(size, left));
    device->Copy(from, static_cast<uint8_t*>(data), part);
    return static_cast<int64_t>(part);
}

int DeviceTable::Flush(int fd) const {
    return OpenOn(fd) != nullptr ? 0 : FailWith(EBADF);
}

int DeviceTable::Close(int fd) {
    if (OpenOn(fd) == nullptr) {
        return FailWith(EBADF);
    }
    m_descriptors[static_cast<size_t>(fd - kFirstDescriptor)].device = nullptr;
    return 0;
}

} // namespace test_support
