#include <fmt/format.h>

#include <unistd.h>

#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <optional>

#include "cli/library_messages.h"
#include "cli/output.h"
#include "cli/partition_file.h"
#include "cli/query.h"
#include "commands/commands.h"
#include "commands/loop_device.h"
#include "render/printable.h"

namespace diskaccess {

namespace {

/// Takes the dump from the library and writes it out.
class DumpWriter {
public:
    int Dump(PartAccess_t access, int level) {
        const int result = CPrintDisk().Print(&access, level, Print, this);
        m_output.Flush();
        return result;
    }

    /// Whether the dump got as far as its first line.
    bool Begun() const { return m_begun; }

private:
    // NOLINTNEXTLINE(cert-dcl50-cpp): what the library calls
    __attribute__((format(printf, 2, 3))) static int Print(void* ctx, const char* format, ...) {
        va_list values;
        va_start(values, format);
        auto* const writer = static_cast<DumpWriter*>(ctx);
        const std::string text = Format(format, values);
        va_end(values);
        writer->Add(text);
        return 0;
    }

    __attribute__((format(printf, 1, 0))) static std::string Format(const char* format, va_list values) {
        char text[1024]; // the longest line is half as long
        std::vsnprintf(text, sizeof text, format, values);
        if (std::strstr(format, "%s") == nullptr) {
            return text;
        }
        // The end of the line does not belong to the name in it.
        std::string line = text;
        if (!line.empty() && line.back() == '\n') {
            line.pop_back();
        }
        return Printable(line) + "\n";
    }

    void Add(const std::string& text) {
        m_begun = true;
        m_output.Write(text);
    }

    Output m_output;
    LibraryMessages m_libraryMessages;
    bool m_begun = false;
};

/// What is attached is looked at by the kernel, for partitions, and by services of the system, for file systems: not every
/// file that a user can read is to get there.
void RequirePartition(const PartitionFile& file, const std::string& name) {
    uint32_t magic = 0;
    const bool whole = pread(file.Descriptor(), &magic, sizeof magic, 0) == ssize_t{sizeof magic};
    if (!whole || (magic != PART_MAGIC && magic != PART_MAGIC_ALT)) {
        throw Failure(
            fmt::format("{}: bears no partition head{}, and is not attached; give an image file of the "
                        "recorder's partition",
                        name, whole ? fmt::format(" (it begins 0x{:08x})", magic) : ""));
    }
}

std::string WhyItEnds(const DumpWriter& writer, const Options& options) {
    if (!writer.Begun()) {
        return fmt::format("{}: the kernel gives no size for it; the disk may have been taken out",
                           options.partition);
    }
    return fmt::format("{}: the dump ends here: {} cannot be read; the disk may be failing",
                       options.partition,
                       options.level == 0 ? "the partition head or a bad-block table" : "the partition head");
}

} // namespace

ExitCode Dump(const Options& options) {
    ReadZone(options); // sets the zone of the process, in which the library prints times
    const PartitionFile file(options.partition, STDOUT_FILENO);
    PartAccess_t access = file.Access();
    std::optional<LoopDevice> loop;
    if (!file.IsBlockDevice()) {
        if (!options.attach) {
            throw Failure(
                fmt::format("{0}: is an image file, and a dump takes a block device; attach it with "
                            "`losetup --find --show --read-only {0}` and dump the loop device that "
                            "this names, or give --attach (both as root)",
                            options.partition));
        }
        RequirePartition(file, options.partition);
        loop.emplace(file.Descriptor(), options.partition);
        access = PartAccess_t();
        loop->Path().copy(access.PartName, sizeof access.PartName - 1);
    }
    DumpWriter writer;
    if (writer.Dump(access, options.level) != 0) {
        throw Failure(WhyItEnds(writer, options));
    }
    return kDone;
}

} // namespace diskaccess
