#ifndef FUZZ_SUPPORT_FUZZER_H
#define FUZZ_SUPPORT_FUZZER_H

/// @file fuzzer.h
/// What libFuzzer calls in a fuzzer, and what it offers to one.

#include <cstddef>
#include <cstdint>

extern "C" {
/// Sends standard output nowhere. The same for all fuzzers.
__attribute__((visibility("default"))) int LLVMFuzzerInitialize(int* argc, char*** argv);
/// Runs one input.
__attribute__((visibility("default"))) int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);
/// Makes another input of one, in place.
/// @return its size
__attribute__((visibility("default"))) size_t LLVMFuzzerCustomMutator(uint8_t* data, size_t size,
                                                                      size_t maxSize, unsigned int seed);
/// Makes an input of two.
/// @return its size
__attribute__((visibility("default"))) size_t LLVMFuzzerCustomCrossOver(const uint8_t* data1, size_t size1,
                                                                        const uint8_t* data2, size_t size2,
                                                                        uint8_t* out, size_t maxOutSize,
                                                                        unsigned int seed);
/// libFuzzer's own changes, to plain bytes.
size_t LLVMFuzzerMutate(uint8_t* data, size_t size, size_t maxSize);
}

#endif // FUZZ_SUPPORT_FUZZER_H
