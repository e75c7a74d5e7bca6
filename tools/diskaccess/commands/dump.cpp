#include <fmt/format.h>

#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <memory>

#include "cli/output.h"
#include "cli/query.h"
#include "cli/source.h"
#include "commands/commands.h"
#include "recordings/dump.h"
#include "render/printable.h"

namespace diskaccess {

namespace {

/// Takes the dump from the library and writes it out.
class DumpWriter {
public:
    int Dump(const recordings::Source& source, int level) {
        const int result = recordings::Dump(source, level, Print, this);
        m_output.Flush();
        return result;
    }

private:
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

    void Add(const std::string& text) { m_output.Write(text); }

    Output m_output;
};

std::string WhyItEnds(const Options& options) {
    return fmt::format("{}: the dump ends here: {} cannot be read; the disk may be failing",
                       options.partition,
                       options.level == 0 ? "the partition head or a bad-block table" : "the partition head");
}

} // namespace

ExitCode Dump(const Options& options) {
    ReadZone(options); // sets the zone of the process, in which the library prints times
    OpenedSource opened(options.partition, options.partitionNumber, STDOUT_FILENO);
    const std::unique_ptr<recordings::Source> source = opened.Take();
    if (source->Size() == 0) {
        throw Failure(options.partition + ": is empty, or the disk was taken out");
    }
    DumpWriter writer;
    if (writer.Dump(*source, options.level) != 0) {
        throw Failure(WhyItEnds(options));
    }
    if (!recordings::BearsPartitionHead(*source)) {
        throw Failure(options.partition +
                      ": has no partition head: what was dumped is no partition, or a damaged "
                      "one; `diskaccess find` says where recordings are");
    }
    return kDone;
}

} // namespace diskaccess
