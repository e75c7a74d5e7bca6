#ifndef FUZZ_SUPPORT_MEMORY_DEVICE_H
#define FUZZ_SUPPORT_MEMORY_DEVICE_H

/// @file memory_device.h
/// Devices that lie in memory. A program linked with memory_device.cpp takes the C library's open, lseek, read,
/// write, close, fsync and ioctl over, as far as they concern these devices.

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace fuzzing {

/// The bytes of a device; zero where nothing was laid. Holds what lies below kLargest.
class MemoryDevice {
public:
    /// Block 0 begins at 8 MiB; 24 MiB of blocks are more than an input describes.
    static constexpr uint64_t kLargest = 32 << 20;

    MemoryDevice();

    /// Empties the device; it then does not exist until its size is set.
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

/// How a device fails, or how memory runs short.
enum class FaultKind : uint8_t {
    None,
    FailOnce,       ///< one call fails
    FailForever,    ///< it and all after it fail
    ShortOnce,      ///< one read delivers half
    ShortForever,   ///< all reads from there on deliver half
    NoMemoryOnce,   ///< one allocation is refused
    NoMemoryForever ///< it and all after it
};
constexpr uint8_t kFaultKinds = 7;

/// What devices answer to a request for their size.
struct SizeAnswers {
    uint64_t bytes = 0; ///< 0: the device's own size
    int sectorSize = 512;
    uint8_t refused = 0; ///< bit 0: BLKSSZGET, bit 1: BLKGETSIZE64, bit 2: BLKGETSIZE
};

/// The devices of a run, and the calls that reach them.
class Machine {
public:
    /// Names under which the devices are opened.
    static constexpr const char* kNames[] = {"/fuzz/disk0", "/fuzz/disk1"};
    static constexpr size_t kDevices = 2;

    static Machine& The();

    /// Makes everything as new. Complains of descriptors that are still open.
    void Reset();
    MemoryDevice& Device(size_t index) { return m_devices.at(index); }
    void SetFault(FaultKind kind, uint32_t call) {
        m_fault = kind;
        m_faultCall = call;
    }
    void SetSizeAnswers(const SizeAnswers& answers) { m_answers = answers; }
    /// Lets devices be made and written; they take @p calls writes until they are full. No other file can be
    /// opened by the C library's names meanwhile.
    void SetWritable(uint32_t calls) { m_writesLeft = calls; }
    bool Writable() const { return m_writesLeft > 0; }

    /// From here on at most @p most calls may be made.
    void LimitCalls(uint64_t most) { m_limit = m_calls + most; }
    uint64_t Calls() const { return m_calls; }
    size_t OpenDescriptors() const;

    /// The calls themselves. They set errno.
    int Open(size_t device, int flags);
    int64_t Seek(int fd, int64_t offset, int whence);
    int64_t Read(int fd, void* data, size_t size);
    int64_t ReadAt(int fd, void* data, size_t size, int64_t offset);
    int64_t WriteAt(int fd, const void* data, size_t size, int64_t offset);
    int Truncate(int fd, int64_t size);
    int Close(int fd);
    int Sync(int fd);
    int Control(int fd, unsigned long request, void* answer);

    /// The name of a file of the host that is read under the name @p path while devices can be written; null:
    /// none.
    void SetFiles(const char* (*resolve)(const char* path)) { m_resolve = resolve; }
    const char* Resolve(const char* path) const { return m_resolve == nullptr ? nullptr : m_resolve(path); }

    /// Whether a descriptor is one of these.
    static bool Owns(int fd) { return fd >= kFirstDescriptor; }
    /// The device with this name, or kDevices.
    static size_t Named(const char* path);

private:
    static constexpr int kFirstDescriptor = 1 << 20;
    struct Descriptor {
        bool open = false;
        size_t device = 0;
        int64_t position = 0;
    };

    Machine() = default;
    Descriptor& At(int fd);
    /// Counts a call.
    /// @return true when it is to fail
    bool Note();
    bool Shortened() const;

    std::array<MemoryDevice, kDevices> m_devices;
    std::array<Descriptor, 256> m_descriptors;
    FaultKind m_fault = FaultKind::None;
    uint32_t m_faultCall = 0;
    SizeAnswers m_answers;
    uint32_t m_writesLeft = 0;
    const char* (*m_resolve)(const char* path) = nullptr;
    uint64_t m_calls = 0;
    uint64_t m_limit = UINT64_MAX;
};

} // namespace fuzzing

#endif // FUZZ_SUPPORT_MEMORY_DEVICE_H
