// footprint: prints what the library's objects hold on the heap of this machine, a line "NAME BYTES" each.

#include <unistd.h>

#include <cstdio>
#include <exception>

#include "footprint/footprint.h"

int main() {
    // The library prints on standard output.
    std::FILE* const out = fdopen(dup(STDOUT_FILENO), "w");
    if (out == nullptr || std::freopen("/dev/null", "w", stdout) == nullptr) {
        return 1;
    }
    try {
        const test_support::Footprint footprint = test_support::MeasureFootprint();
        std::fprintf(out, "search_init %zu\n", footprint.searchInit);
        std::fprintf(out, "search_kept %zu\n", footprint.searchKept);
        std::fprintf(out, "search_peak %zu\n", footprint.searchPeak);
        std::fprintf(out, "read_init %zu\n", footprint.readInit);
        std::fprintf(out, "reader_tables %zu\n", footprint.readerTables);
        std::fprintf(out, "reader_state %zu\n", footprint.reader - footprint.readerTables);
        std::fprintf(out, "next_reader_state %zu\n", footprint.nextReader - footprint.readerTables);
        return std::fclose(out) == 0 ? 0 : 1;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "footprint: %s\n", error.what());
        return 1;
    }
}
