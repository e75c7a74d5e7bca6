#include "view/clean_pages.h"

#include <sys/auxv.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <vector>

namespace diskaccess::view {

namespace {

uintptr_t AddressOf(const dl_phdr_info& object, const ElfW(Phdr) & segment) {
    return static_cast<uintptr_t>(object.dlpi_addr + segment.p_vaddr);
}

void* MemoryAt(uintptr_t address) {
    // NOLINTNEXTLINE(performance-no-int-to-ptr): the loader tells addresses as numbers
    return reinterpret_cast<void*>(address);
}

/// The kernel puts its own code into each program, which no file holds.
bool IsOfKernel(const dl_phdr_info& object) {
    return object.dlpi_addr != 0 && object.dlpi_addr == getauxval(AT_SYSINFO_EHDR);
}

bool TellsOfChangedCode(const ElfW(Dyn) & entry) {
    return entry.d_tag == DT_TEXTREL || (entry.d_tag == DT_FLAGS && (entry.d_un.d_val & DF_TEXTREL) != 0);
}

/// Whether addresses were written into the code of an object when it was loaded, as into a library's of i386 that was not
/// made to lie anywhere.
bool HasChangedCode(const dl_phdr_info& object, const ElfW(Phdr) & dynamic) {
    const auto* entry = static_cast<const ElfW(Dyn)*>(MemoryAt(AddressOf(object, dynamic)));
    for (size_t left = dynamic.p_memsz / sizeof *entry; left > 0 && entry->d_tag != DT_NULL;
         --left, ++entry) {
        if (TellsOfChangedCode(*entry)) {
            return true;
        }
    }
    return false;
}

bool HasChangedCode(const dl_phdr_info& object) {
    for (size_t at = 0; at < object.dlpi_phnum; ++at) {
        const ElfW(Phdr)& segment = object.dlpi_phdr[at];
        if (segment.p_type == PT_DYNAMIC && HasChangedCode(object, segment)) {
            return true;
        }
    }
    return false;
}

struct Pages {
    uintptr_t begin = 0;
    uintptr_t end = 0;
};

/// Whole pages alone: whatever shares the first or the last one stays.
Pages WholePages(uintptr_t begin, uintptr_t end) {
    const auto page = static_cast<uintptr_t>(sysconf(_SC_PAGESIZE));
    return {(begin + page - 1) / page * page, end / page * page};
}

std::vector<Pages> CleanPagesOf(const dl_phdr_info& object) {
    std::vector<Pages> clean;
    for (size_t at = 0; at < object.dlpi_phnum; ++at) {
        const ElfW(Phdr)& segment = object.dlpi_phdr[at];
        if (segment.p_type == PT_LOAD && (segment.p_flags & PF_W) == 0) {
            const uintptr_t begin = AddressOf(object, segment);
            clean.push_back(WholePages(begin, begin + segment.p_filesz));
        }
    }
    return clean;
}

int TakeObject(dl_phdr_info* object, size_t /*size*/, void* /*context*/) {
    GiveCleanPagesBack(*object);
    return 0;
}

} // namespace

void GiveCleanPagesBack() {
    dl_iterate_phdr(TakeObject, nullptr);
}

void GiveCleanPagesBack(const dl_phdr_info& object) {
    if (IsOfKernel(object) || HasChangedCode(object)) {
        return;
    }
    // The table of segments lies in such pages itself: it would come back while it is read on.
    for (const Pages& pages : CleanPagesOf(object)) {
        if (pages.begin < pages.end) {
            // Refused for memory that is locked: then it stays.
            madvise(MemoryAt(pages.begin), pages.end - pages.begin, MADV_DONTNEED);
        }
    }
}

} // namespace diskaccess::view
