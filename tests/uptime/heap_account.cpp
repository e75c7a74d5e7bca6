#include "uptime/heap_account.h"

#include <cstdint>
#include <cstdlib>
#include <functional>
#include <new>
#include <stdexcept>
#include <unordered_map>
#include <utility>

#include "support/wrapped_allocations.h"

namespace test_support {

namespace {

/// The account's own memory, which is not in it.
template <typename T>
struct OffTheAccount {
    using value_type = T;

    OffTheAccount() = default;
    template <typename Other>
    explicit OffTheAccount(const OffTheAccount<Other>& /*other*/) {}

    T* allocate(size_t count) {
        // NOLINTNEXTLINE(bugprone-sizeof-expression): what is allocated may be pointers
        void* const memory = __real_malloc(count * sizeof(T));
        if (memory == nullptr) {
            throw std::bad_alloc();
        }
        return static_cast<T*>(memory);
    }
    void deallocate(T* memory, size_t /*count*/) { __real_free(memory); }
    bool operator==(const OffTheAccount& /*other*/) const { return true; }
    bool operator!=(const OffTheAccount& /*other*/) const { return false; }
};

using Key = std::uintptr_t;
using Sizes = std::unordered_map<Key, size_t, std::hash<Key>, std::equal_to<>,
                                 OffTheAccount<std::pair<const Key, size_t>>>;

struct Ledger {
    Sizes sizes;
    size_t bytes = 0;
};

Ledger* g_ledger = nullptr;

/// Strikes memory out, if it is in the account.
void* Released(void* memory) {
    if (g_ledger != nullptr) {
        const auto entry = g_ledger->sizes.find(reinterpret_cast<Key>(memory));
        if (entry != g_ledger->sizes.end()) {
            g_ledger->bytes -= entry->second;
            g_ledger->sizes.erase(entry);
        }
    }
    return memory;
}

void* Entered(void* memory, size_t size) {
    if (memory != nullptr && g_ledger != nullptr) {
        g_ledger->sizes.emplace(reinterpret_cast<Key>(memory), size);
        g_ledger->bytes += size;
    }
    return memory;
}

} // namespace

HeapAccount::HeapAccount() {
    if (g_ledger != nullptr) {
        throw std::logic_error("the heap's account is being kept already");
    }
    g_ledger = new Ledger;
}

HeapAccount::~HeapAccount() {
    delete std::exchange(g_ledger, nullptr);
}

Held HeapAccount::Now() const {
    return {g_ledger->sizes.size(), g_ledger->bytes};
}

} // namespace test_support

using test_support::Entered;
using test_support::Released;

extern "C" {

void* __wrap_malloc(size_t size) {
    return Entered(__real_malloc(size), size);
}

void* __wrap_calloc(size_t count, size_t size) {
    return Entered(__real_calloc(count, size), count * size);
}

void* __wrap_realloc(void* memory, size_t size) {
    void* const resized = __real_realloc(memory, size);
    if (resized != nullptr) {
        Released(memory);
    }
    return Entered(resized, size);
}

void __wrap_free(void* memory) {
    __real_free(Released(memory));
}

void* NEW_NAME(__wrap_)(size_t size) {
    return Entered(NEW_NAME(__real_)(size), size);
}

void* NOTHROW_NEW_NAME(__wrap_)(size_t size, const std::nothrow_t& tag) {
    return Entered(NOTHROW_NEW_NAME(__real_)(size, tag), size);
}

void __wrap__ZdlPv(void* memory) {
    __real__ZdlPv(Released(memory));
}

void SIZED_DELETE_NAME(__wrap_)(void* memory, size_t size) {
    SIZED_DELETE_NAME(__real_)(Released(memory), size);
}

} // extern "C"
