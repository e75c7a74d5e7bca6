#include "support/fuzzer.h"

#include <cstdio>
#include <cstdlib>

int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    if (std::freopen("/dev/null", "w", stdout) == nullptr) {
        std::abort();
    }
    return 0;
}
