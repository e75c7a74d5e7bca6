#ifndef FUZZ_PROGRAM_HOSTILE_DISK_H
#define FUZZ_PROGRAM_HOSTILE_DISK_H

#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "support/partition_input.h"

namespace fuzzing {

/// A disk that is to be put into a file: the bytes that are not zero.
struct FileDisk {
    enum class Table { None, Mbr, Gpt };

    std::string story; ///< what is wrong with it
    uint64_t size = 0;
    std::vector<Extent> extents;
    Table table = Table::None;   ///< of which the recorder's partition is one entry
    std::vector<Extent> damages; ///< bytes of the partition table that are overwritten

    /// Puts it into a file, in place of what that holds.
    void Write(const std::string& path) const;
};

/// Disks that lie, each by its number alone.
class HostileDisks {
public:
    HostileDisks();

    FileDisk Make(uint64_t number) const;
    /// A disk that nothing is wrong with.
    FileDisk Whole() const;

private:
    using Random = std::mt19937_64;

    FileDisk Noise(Random& random) const;
    FileDisk DamagedField(Random& random) const;
    FileDisk Mutant(Random& random) const;
    FileDisk Cut(Random& random) const;
    FileDisk InTable(Random& random) const;
    const PartitionInput& AnySample(Random& random) const;

    /// One value of one field.
    struct Forgery {
        size_t sample;
        std::string field;
        Extent value;
    };

    std::vector<PartitionInput> m_samples;
    std::vector<Forgery> m_forgeries;
};

} // namespace fuzzing

#endif // FUZZ_PROGRAM_HOSTILE_DISK_H
