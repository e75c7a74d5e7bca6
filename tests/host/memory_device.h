#ifndef TESTS_HOST_MEMORY_DEVICE_H
#define TESTS_HOST_MEMORY_DEVICE_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <vector>

namespace test_support {

/// The bytes of a device; zero where nothing was laid. Holds what lies below kLargest.
class MemoryDevice {
public:
    /// Block 0 begins at 8 MiB; 24 MiB of blocks are more than a small partition needs.
    static constexpr uint64_t kLargest = 32 << 20;

    MemoryDevice();

    /// Empties the device; it then has no size.
    void Clear();
    void SetSize(uint64_t size) { m_size = size; }
    uint64_t Size() const { return m_size; }
    /// Lays bytes on the device, over what lies there; what would lie beyond kLargest is left out.
    void Lay(uint64_t offset, const uint8_t* data, size_t size);
    /// Copies @p size bytes, all inside the device.
    void Copy(uint64_t offset, uint8_t* out, size_t size) const;

private:
    static constexpr size_t kPageSize = 4096;
    using Page = std::array<uint8_t, kPageSize>;

    uint8_t* WritablePage(size_t number);

    uint64_t m_size = 0;
    std::vector<Page*> m_pages;
    std::vector<size_t> m_used;                ///< numbers of the pages that are not null
    std::vector<std::unique_ptr<Page>> m_pool; ///< all pages ever made; the first m_used.size() are in use
};

/// Devices in memory by their names, and descriptors on them, which are none of the kernel's. The calls do what those
/// of the same names do on a device, errno included.
class DeviceTable {
public:
    MemoryDevice& Add(const std::string& name);
    /// @return the device of that name, or null
    MemoryDevice* Named(const char* path);

    /// Whether a descriptor is one of these, open or not.
    static bool Owns(int fd) { return fd >= kFirstDescriptor; }
    /// @return the device that a descriptor is open on, or null
    MemoryDevice* OpenOn(int fd) const;
    size_t OpenDescriptors() const;

    int Open(MemoryDevice& device);
    int64_t Seek(int fd, int64_t offset, int whence);
    int64_t Read(int fd, void* data, size_t size);
    int64_t ReadAt(int fd, void* data, size_t size, int64_t offset) const;
    int Flush(int fd) const;
    int Close(int fd);

private:
    static constexpr int kFirstDescriptor = 1 << 20;
    struct NamedDevice {
        std::string name;
        MemoryDevice device;
    };
    struct Descriptor {
        MemoryDevice* device = nullptr; ///< null: not open
        int64_t position = 0;
    };

    std::deque<NamedDevice> m_devices;
    std::array<Descriptor, 256> m_descriptors;
};

} // namespace test_support

#endif // TESTS_HOST_MEMORY_DEVICE_H
