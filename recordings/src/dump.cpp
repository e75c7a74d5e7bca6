#include "recordings/dump.h"

#include <linux/fs.h>
#include <unistd.h>

#include <cstdarg>
#include <cstring>

#include "io/host.h"
#include "print_disk.h"

namespace recordings {

namespace {

constexpr int kDescriptor = 3;
constexpr int kSectorSize = 512;

/// Stands in for the kernel: whatever the recorder's library opens is the source, and answers like a block device.
class SourceHost {
public:
    explicit SourceHost(const Source& source) : m_source(source) {}

    disk_access::HostCalls Calls() { return {this, Open, Seek, Read, Nothing, Nothing, Control, Ignore}; }

private:
    static SourceHost& Of(void* context) { return *static_cast<SourceHost*>(context); }

    static int Open(void* context, const char* /*path*/, int /*flags*/) {
        Of(context).m_position = 0;
        return kDescriptor;
    }
    static int64_t Seek(void* context, int /*fd*/, int64_t offset, int whence) {
        SourceHost& host = Of(context);
        if (offset < 0 || (whence != SEEK_SET && whence != SEEK_END)) {
            return -1;
        }
        host.m_position = static_cast<uint64_t>(offset) + (whence == SEEK_END ? host.m_source.Size() : 0);
        return static_cast<int64_t>(host.m_position);
    }
    static int64_t Read(void* context, int /*fd*/, void* data, size_t size) {
        SourceHost& host = Of(context);
        const size_t got = host.m_source.Read(host.m_position, data, size);
        host.m_position += got;
        return static_cast<int64_t>(got);
    }
    static int Nothing(void* /*context*/, int /*fd*/) { return 0; }
    static int Control(void* context, int /*fd*/, unsigned long request, void* answer) {
        const uint64_t size = Of(context).m_source.Size();
        if (request == BLKSSZGET) {
            std::memcpy(answer, &kSectorSize, sizeof kSectorSize);
            return 0;
        }
        if (request == BLKGETSIZE64) {
            std::memcpy(answer, &size, sizeof size);
            return 0;
        }
        return -1;
    }
    static void Ignore(void* /*context*/, const char* /*format*/, va_list /*values*/) {}

    const Source& m_source;
    uint64_t m_position = 0;
};

} // namespace

int Dump(const Source& source, int level, DumpPrint print, void* context) {
    SourceHost host(source);
    const disk_access::HostCalls calls = host.Calls();
    const disk_access::HostScope scope(calls);
    PartAccess_t access = {};
    source.Name().copy(access.PartName, sizeof access.PartName - 1);
    return CPrintDisk().Print(&access, level, print, context);
}

} // namespace recordings
