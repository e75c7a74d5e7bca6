#ifndef FUZZ_SUPPORT_MACHINE_H
#define FUZZ_SUPPORT_MACHINE_H

/// @file machine.h
/// The devices that the library finds while it is fuzzed. They lie in memory, and may fail.

#include <array>
#include <cstdint>

#include "host/call_watch.h"
#include "host/memory_devices.h"

namespace fuzzing {

using test_support::MemoryDevice;
using test_support::SizeAnswers;

/// How a device fails, or how memory runs short.
enum class FaultKind : uint8_t {
    None,
    FailOnce,       ///< one call fails
    FailForever,    ///< it and all after it fail
    ShortOnce,      ///< one read delivers half
    ShortForever,   ///< all reads from there on deliver half
    NoMemoryOnce,   ///< one allocation is refused
    NoMemoryForever ///< it and all after it
};
constexpr uint8_t kFaultKinds = 7;

/// The devices of a run. Counts the library's calls on them, complains of those that no reader may make, and makes some
/// fail. What the library says goes nowhere.
class Machine : public test_support::CallWatch<test_support::MemoryDevices> {
public:
    /// Names under which the devices are opened.
    static constexpr const char* kNames[] = {"/fuzz/disk0", "/fuzz/disk1"};
    static constexpr size_t kDevices = 2;

    /// In force from the first call on, on the thread that makes it.
    static Machine& The();

    /// Makes everything as new. Complains of descriptors that are still open.
    void Reset();
    MemoryDevice& Device(size_t index) { return *m_devices.at(index); }
    void SetFault(FaultKind kind, uint32_t call);

    /// From here on at most @p most calls may be made.
    void LimitCalls(uint64_t most) { m_limit = m_calls + most; }
    uint64_t Calls() const { return m_calls; }
    size_t OpenDescriptors() const { return Table().OpenDescriptors(); }

protected:
    test_support::Fate Decide(const test_support::Call& call) override;
    void Message(const char* format, va_list values) override __attribute__((format(printf, 2, 0)));

private:
    Machine() : m_devices{&Add(kNames[0]), &Add(kNames[1])} {}

    std::array<MemoryDevice*, kDevices> m_devices;
    test_support::Strike m_strike;
    bool m_comesShort = false; ///< what is struck is a read that delivers half; else it fails
    uint64_t m_calls = 0;
    uint64_t m_limit = UINT64_MAX;
};

} // namespace fuzzing

#endif // FUZZ_SUPPORT_MACHINE_H
