#ifndef TESTS_HOST_MEMORY_DEVICES_H
#define TESTS_HOST_MEMORY_DEVICES_H

#include <string>

#include "host/host_layer.h"
#include "host/memory_device.h"
#include "host/size_answers.h"

namespace test_support {

/// Lets the library open devices in memory. Any other file is the table's that was in force before.
class MemoryDevices : public HostLayer {
public:
    DeviceTable& Table() { return m_table; }
    const DeviceTable& Table() const { return m_table; }
    /// Makes a device, which cannot be opened until its size is set.
    MemoryDevice& Add(const std::string& name) { return m_table.Add(name); }
    void SetSizeAnswers(const SizeAnswers& answers) { m_answers = answers; }

protected:
    int Open(const char* path, int flags) override;
    int64_t Seek(int fd, int64_t offset, int whence) override;
    int64_t Read(int fd, void* data, size_t size) override;
    int Flush(int fd) override;
    int Close(int fd) override;
    int Control(int fd, unsigned long request, void* answer) override;

private:
    DeviceTable m_table;
    SizeAnswers m_answers;
};

} // namespace test_support

#endif // TESTS_HOST_MEMORY_DEVICES_H
