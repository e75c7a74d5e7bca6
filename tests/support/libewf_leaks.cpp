// For programs that read damaged E01 images under the leak sanitizer: libewf forgets the memory of a chunk that it cannot
// read. Where there is no such sanitizer, nobody asks.

extern "C" {

// NOLINTBEGIN(bugprone-reserved-identifier): the sanitizer's own names
const char* __lsan_default_suppressions();
const char* __lsan_default_options();

const char* __lsan_default_suppressions() {
    return "leak:libewf.so";
}

const char* __lsan_default_options() {
    return "print_suppressions=0";
}
// NOLINTEND(bugprone-reserved-identifier)
}
