#ifndef TESTS_SUPPORT_LOOP_DEVICE_H
#define TESTS_SUPPORT_LOOP_DEVICE_H

#include <cstdint>
#include <string>

namespace test_support {

/// Shows a file as a block device, read-only, for as long as it lives.
class LoopDevice {
public:
    explicit LoopDevice(const std::string& file);
    ~LoopDevice();
    LoopDevice(const LoopDevice&) = delete;
    LoopDevice& operator=(const LoopDevice&) = delete;

    /// Whether the machine let it: it takes root, and a kernel that has loop devices.
    bool Attached() const { return !m_path.empty(); }
    /// "/dev/loop0"
    const std::string& Path() const { return m_path; }

    /// Has the kernel show a part of the device as its first partition, "/dev/loop0p1".
    /// @return its path; nothing when the machine does not let it
    std::string AddPartition(uint64_t start, uint64_t bytes) const;

    /// The loop devices that a file is attached to now, a line each.
    static std::string Of(const std::string& file);

private:
    std::string m_path;
};

} // namespace test_support

#endif // TESTS_SUPPORT_LOOP_DEVICE_H
