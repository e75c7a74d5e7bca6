#ifndef DISK_ACCESS_FORMAT_INDEX_TABLE_H
#define DISK_ACCESS_FORMAT_INDEX_TABLE_H

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <type_traits>

namespace disk_access {

/// A heap array of index entries that knows how many it holds.
///
/// The count that a block's index head states and the entries in memory are two things: a count may be taken
/// over without its table, and a table outlives its count. Whoever walks a table is bounded by Held().
template <typename Entry>
class IndexTable {
    static_assert(std::is_trivially_copyable<Entry>::value, "entries are read from the disk as they are");

public:
    IndexTable() = default;
    IndexTable(const IndexTable&) = delete;
    IndexTable& operator=(const IndexTable&) = delete;
    ~IndexTable() { std::free(m_entries); }

    /// Makes room for exactly @p count entries, at least one; entries that are new are zero.
    /// @return false when memory is short; nothing has changed then
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

    /// Lets go of what is held, but not of the memory.
    void Forget() { m_held = 0; }

    /// Lets go of the memory too.
    void Release() {
        std::free(m_entries);
        m_entries = nullptr;
        m_held = 0;
    }

    /// Whether the table was ever given memory.
    bool Allocated() const { return m_entries != nullptr; }

    /// How many of @p count entries may be looked at.
    uint32_t Held(uint32_t count) const { return count < m_held ? count : m_held; }

    Entry* Data() { return m_entries; }
    /// A copy of an entry: entries lie as on the disk, 64-bit fields unaligned.
    Entry At(uint32_t index) const { return m_entries[index]; }
    void Put(uint32_t index, const Entry& entry) { m_entries[index] = entry; }

private:
    Entry* m_entries = nullptr;
    uint32_t m_held = 0;
};

} // namespace disk_access

#endif // DISK_ACCESS_FORMAT_INDEX_TABLE_H
