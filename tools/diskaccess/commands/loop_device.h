#ifndef DISKACCESS_LOOP_DEVICE_H
#define DISKACCESS_LOOP_DEVICE_H

#include <string>

namespace diskaccess {

/// A block device that shows a file, read-only.
///
/// The kernel detaches the file as soon as nobody holds the device open: at the end of this object's life, and
/// likewise when the program is interrupted or killed.
class LoopDevice {
public:
    /// @param file descriptor of the file
    /// @param name the file's, for messages
    /// @throws Failure when the kernel does not let us
    LoopDevice(int file, const std::string& name);
    ~LoopDevice();
    LoopDevice(const LoopDevice&) = delete;
    LoopDevice& operator=(const LoopDevice&) = delete;

    /// "/dev/loop0"
    const std::string& Path() const { return m_path; }

private:
    bool AttachToFree(int control, int file);

    std::string m_path;
    int m_fd = -1;
};

} // namespace diskaccess

#endif // DISKACCESS_LOOP_DEVICE_H
