#ifndef TESTS_DUMP_SAMPLE_DISK_H
#define TESTS_DUMP_SAMPLE_DISK_H

#include <string>

#include "search/search_fixture.h"

namespace test_support {

/// The local time zone, for as long as it lives.
class ZoneSetting {
public:
    explicit ZoneSetting(const char* zone);
    ~ZoneSetting();
    ZoneSetting(const ZoneSetting&) = delete;
    ZoneSetting& operator=(const ZoneSetting&) = delete;
};

/// A level's whole dump of the sample disk, as checked in.
/// @param name "normal_head"
std::string Expected(const std::string& name);

/// What the checked-in dumps show: a closed block, one never written, one cut off by a power failure, one with
/// times after 2038 and texts that are not terminated, and one whose index is a forgery. Block 1 is bad, blocks 3
/// and 4 are suspect.
void WriteSampleBlocks(PartitionImage& disk);
Format SampleFormat(uint32_t fmtVersion);

/// A test with a partition of its own, in UTC.
class DumpDisk : public SearchFixture {
protected:
    PartitionImage& MakeSample(uint32_t fmtVersion);
    PartitionImage& MakeSample() { return MakeSample(0); }

private:
    ZoneSetting m_utc{"UTC"};
};

} // namespace test_support

#endif // TESTS_DUMP_SAMPLE_DISK_H
