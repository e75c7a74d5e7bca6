// What the viewer gives back of the memory that its program and libraries take.

#include "view/clean_pages.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "support/temp_dir.h"

namespace {

using diskaccess::view::GiveCleanPagesBack;

constexpr char kOfFile = 'f';
constexpr char kWritten = 'w';

/// An object of six pages as the loader leaves it, but for one thing: every page has been written to. What is given back
/// shows what its file holds again. The memory after them cannot be read.
class Object {
public:
    static constexpr size_t kPages = 6;

    Object() {
        const std::string path = m_folder.File("object");
        std::ofstream(path) << std::string(kPages * m_page, kOfFile);
        const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
        m_memory = static_cast<char*>(
            mmap(nullptr, (kPages + 1) * m_page, PROT_READ | PROT_WRITE, MAP_PRIVATE, file, 0));
        close(file);
        memset(m_memory, kWritten, kPages * m_page);
    }
    ~Object() { munmap(m_memory, (kPages + 1) * m_page); }
    Object(const Object&) = delete;
    Object& operator=(const Object&) = delete;

    size_t Page() const { return m_page; }
    void AddSegment(ElfW(Word) flags, size_t offset, size_t size) {
        ElfW(Phdr) segment{};
        segment.p_type = PT_LOAD;
        segment.p_flags = flags;
        segment.p_vaddr = offset;
        segment.p_filesz = size;
        segment.p_memsz = size;
        m_segments.push_back(segment);
    }
    /// The table of the dynamic loader, at the end of the last page.
    void AddDynamic(const std::vector<ElfW(Dyn)>& entries) {
        ElfW(Phdr) table{};
        table.p_type = PT_DYNAMIC;
        table.p_memsz = entries.size() * sizeof entries[0];
        table.p_vaddr = kPages * m_page - table.p_memsz;
        memcpy(m_memory + table.p_vaddr, entries.data(), table.p_memsz);
        m_segments.push_back(table);
    }
    /// @return a letter for each page: what it holds afterwards
    std::string GiveBack() const {
        dl_phdr_info info{};
        info.dlpi_addr = reinterpret_cast<ElfW(Addr)>(m_memory);
        info.dlpi_name = "object";
        info.dlpi_phdr = m_segments.data();
        info.dlpi_phnum = static_cast<ElfW(Half)>(m_segments.size());
        GiveCleanPagesBack(info);
        std::string held;
        for (size_t page = 0; page < kPages; ++page) {
            held += m_memory[page * m_page];
        }
        return held;
    }

private:
    test_support::TempDir m_folder;
    size_t m_page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    char* m_memory = nullptr;
    std::vector<ElfW(Phdr)> m_segments;
};

ElfW(Dyn) Entry(decltype(ElfW(Dyn)::d_tag) tag, ElfW(Word) value = 0) {
    ElfW(Dyn) entry{};
    entry.d_tag = tag;
    entry.d_un.d_val = value;
    return entry;
}

TEST(CleanPages, GivesBackCodeAndConstants) {
    Object object;
    object.AddSegment(PF_R, 0, 2 * object.Page());
    object.AddSegment(PF_R | PF_X, 2 * object.Page(), object.Page());
    EXPECT_EQ(object.GiveBack(), "fffwww");
}

TEST(CleanPages, LeavesWhatMayBeWrittenTo) {
    Object object;
    object.AddSegment(PF_R, 0, object.Page());
    object.AddSegment(PF_R | PF_W, object.Page(), 3 * object.Page());
    EXPECT_EQ(object.GiveBack(), "fwwwww");
}

TEST(CleanPages, LeavesPagesThatASegmentDoesNotFill) {
    Object object;
    object.AddSegment(PF_R, 1, 2 * object.Page() - 1);
    object.AddSegment(PF_R, 2 * object.Page(), 2 * object.Page() - 1);
    object.AddSegment(PF_R, 4 * object.Page() + 1, object.Page() - 2);
    EXPECT_EQ(object.GiveBack(), "wffwww");
}

TEST(CleanPages, LeavesAnObjectWhoseCodeWasChanged) {
    for (const ElfW(Dyn) & mark : {Entry(DT_TEXTREL), Entry(DT_FLAGS, DF_TEXTREL | DF_BIND_NOW)}) {
        Object object;
        object.AddSegment(PF_R | PF_X, 0, 2 * object.Page());
        object.AddDynamic({Entry(DT_NEEDED, 1), mark, Entry(DT_NULL)});
        EXPECT_EQ(object.GiveBack(), "wwwwww");
    }
}

TEST(CleanPages, ReadsTheLoadersTableToItsEnd) {
    Object ended;
    ended.AddSegment(PF_R | PF_X, 0, 2 * ended.Page());
    ended.AddDynamic({Entry(DT_FLAGS, DF_BIND_NOW), Entry(DT_NULL), Entry(DT_TEXTREL)});
    EXPECT_EQ(ended.GiveBack(), "ffwwww");
    Object endless; // nothing after it can be read
    endless.AddSegment(PF_R | PF_X, 0, 2 * endless.Page());
    endless.AddDynamic({Entry(DT_NEEDED, 1), Entry(DT_NEEDED, 2)});
    EXPECT_EQ(endless.GiveBack(), "ffwwww");
}

/// Kibibytes of this process's memory.
struct Memory {
    long resident = 0;
    long ofItsOwn = 0; ///< held by no file

    long OfFiles() const { return resident - ofItsOwn; }
};

Memory Now() {
    Memory memory;
    std::ifstream file("/proc/self/smaps_rollup");
    for (std::string word; file >> word;) {
        if (word == "Rss:") {
            file >> memory.resident;
        } else if (word == "Anonymous:") {
            file >> memory.ofItsOwn;
        }
    }
    return memory;
}

/// Reads all code and constants of a program or library, as the loader reads most of them; also what the address sanitizer
/// puts between constants, and would complain of.
__attribute__((no_sanitize_address)) int ReadObject(dl_phdr_info* object, size_t /*size*/, void* kibibytes) {
    constexpr size_t kStep = 1024;
    for (size_t at = 0; at < object->dlpi_phnum; ++at) {
        const ElfW(Phdr)& segment = object->dlpi_phdr[at];
        if (segment.p_type != PT_LOAD || (segment.p_flags & (PF_R | PF_W)) != PF_R) {
            continue;
        }
        // NOLINTNEXTLINE(performance-no-int-to-ptr): the loader tells addresses as numbers
        const auto* const bytes = reinterpret_cast<volatile char*>(object->dlpi_addr + segment.p_vaddr);
        for (size_t place = 0; place < segment.p_filesz; place += kStep) {
            static_cast<void>(bytes[place]);
            ++*static_cast<long*>(kibibytes);
        }
    }
    return 0;
}

TEST(CleanPages, GivesBackMostOfTheRunningProgram) {
    long read = 0;
    dl_iterate_phdr(ReadObject, &read);
    const Memory before = Now();
    GiveCleanPagesBack();
    const Memory after = Now();
    EXPECT_GT(before.OfFiles() - after.OfFiles(), read / 2);
    EXPECT_GE(after.ofItsOwn, before.ofItsOwn) << "what was written to is kept";
}

} // namespace
