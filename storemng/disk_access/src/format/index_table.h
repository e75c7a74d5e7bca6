#ifndef DISK_ACCESS_FORMAT_INDEX_TABLE_H
#define DISK_ACCESS_FORMAT_INDEX_TABLE_H

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <type_traits>

namespace disk_access {

/// A heap array of index entries that knows how many entries it has.
///
/// The count in a block's index head and the number of entries in memory may differ: a count may be set
/// without its table, and a table may be kept after its count changed. Walk a table up to Held() only.
template <typename Entry>
class IndexTable {
    static_assert(std::is_trivially_copyable<Entry>::value, "entries are read from the disk as they are");

public:
    IndexTable() = default;
    IndexTable(const IndexTable&) = delete;
    IndexTable& operator=(const IndexTable&) = delete;
    ~IndexTable() {
        if (m_entries != nullptr) { // most tables of a block that is opened stay empty
            std::free(m_entries);
        }
    }

    /// Resizes the table to exactly @p count entries, at least one; new entries are zero.
    /// @return false if there is no memory; the table is then unchanged
    bool Resize(uint32_t count) {
        void* const grown = std::realloc(m_entries, std::size_t{count} * sizeof(Entry));
        if (grown == nullptr) {
            return false;
        }
        m_entries = static_cast<Entry*>(grown);
        if (count > m_held) {
            std::memset(static_cast<void*>(m_entries + m_held), 0, (count - m_held) * sizeof(Entry));
        }
        m_held = count;
        return true;
    }

    /// Removes all entries, but keeps the memory.
    void Forget() { m_held = 0; }

    /// Removes all entries and frees the memory.
    void Release() {
        std::free(m_entries);
        m_entries = nullptr;
        m_held = 0;
    }

    /// Whether the table has memory, with or without entries.
    bool Allocated() const { return m_entries != nullptr; }

    /// How many of @p count entries may be read.
    uint32_t Held(uint32_t count) const { return count < m_held ? count : m_held; }

    Entry* Data() { return m_entries; }
    /// A copy of an entry: entries are packed as on the disk, and 64-bit fields may be unaligned.
    Entry At(uint32_t index) const { return m_entries[index]; }
    void Put(uint32_t index, const Entry& entry) { m_entries[index] = entry; }

private:
    Entry* m_entries = nullptr;
    uint32_t m_held = 0;
};

} // namespace disk_access

#endif // DISK_ACCESS_FORMAT_INDEX_TABLE_H
