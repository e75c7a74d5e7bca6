#ifndef TESTS_DUMP_DUMP_FIXTURE_H
#define TESTS_DUMP_DUMP_FIXTURE_H

#include <functional>
#include <string>
#include <vector>

#include "dump/sample_disk.h"

namespace test_support {

/// What a dump returned, and what it passed to the print function.
struct Dumped {
    int result = 0;
    std::string text;
    Lines formats;
};

/// A print function that collects in the Dumped it gets as context.
int Collect(void* ctx, const char* format, ...) __attribute__((format(printf, 2, 3)));

/// Dumps a partition. In the text, DEVICE replaces its path.
Dumped Dump(const PartAccess_t& part, int level);

/// A test with a partition of its own that passes for a block device, in UTC.
class DumpFixture : public DumpDisk {
protected:
    Dumped DumpAt(int level) { return Dump(Disk().Access(), level); }
    /// The same, with the fate of each system call decided by @p decide; everything that is opened must be
    /// closed.
    Dumped DumpWith(int level, const std::function<Fate(const Call&, size_t)>& decide);
    /// The dump of one block at level 3, from its number line on.
    std::string Block(uint32_t block);

    BlockDeviceGuise& Guise() { return m_guise; }

private:
    BlockDeviceGuise m_guise;
};

/// Cuts a dump into what comes before the blocks, each block, and the line after the last.
Lines Pieces(const std::string& text);

} // namespace test_support

#endif // TESTS_DUMP_DUMP_FIXTURE_H
