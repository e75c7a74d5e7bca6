#ifndef TESTS_IO_KERNEL_CALLS_H
#define TESTS_IO_KERNEL_CALLS_H

/// @file kernel_calls.h
/// The system calls that really reach a file. A program linked with kernel_calls.cpp takes the C library's open64,
/// lseek64, read, fsync, close and ioctl over, those of its shared libraries included, and passes all of them on.

#include <string>
#include <vector>

namespace test_support {

/// Notes the calls on one file while it lives, each under the name by which the C library knows it: "open64(0x8000)"
/// with its flags, "lseek64(8388608, SEEK_SET)", "read(24)", "fsync()", "close()", "ioctl(0x1268)". Only one at a time.
class KernelCalls {
public:
    explicit KernelCalls(std::string path);
    ~KernelCalls();
    KernelCalls(const KernelCalls&) = delete;
    KernelCalls& operator=(const KernelCalls&) = delete;

    const std::vector<std::string>& Lines() const { return m_lines; }

    void NoteOpen(const char* path, int flags, int fd);
    void NoteClose(int fd);
    /// Any other call.
    void Note(int fd, const std::string& line);

private:
    std::string m_path;
    std::vector<int> m_descriptors; ///< that are open on the file
    std::vector<std::string> m_lines;
};

} // namespace test_support

#endif // TESTS_IO_KERNEL_CALLS_H
