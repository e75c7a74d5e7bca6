#include "support/memory_use.h"

#include <malloc.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>

#if defined(__SANITIZE_ADDRESS__)
#define UNDER_ADDRESS_SANITIZER 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define UNDER_ADDRESS_SANITIZER 1
#endif
#endif

#ifdef UNDER_ADDRESS_SANITIZER
/// Of the sanitizer's run-time library, whose headers are not installed for every target.
extern "C" size_t __sanitizer_get_current_allocated_bytes();
#endif

namespace test_support {

size_t HeapInUse() {
#ifdef UNDER_ADDRESS_SANITIZER
    return __sanitizer_get_current_allocated_bytes();
#else
    const struct mallinfo2 account = mallinfo2();
    return account.uordblks + account.hblkhd;
#endif
}

size_t ResidentBytes() {
    std::ifstream account("/proc/self/statm");
    size_t total = 0;
    size_t resident = 0;
    account >> total >> resident;
    return resident * static_cast<size_t>(sysconf(_SC_PAGESIZE));
}

size_t OpenDescriptors() {
    const std::filesystem::directory_iterator entries("/proc/self/fd");
    return static_cast<size_t>(std::distance(begin(entries), end(entries)));
}

} // namespace test_support
