#include "support/machine.h"

#include <fcntl.h>

#include "host/messages.h"
#include "support/findings.h"

namespace fuzzing {

using test_support::Call;
using test_support::CallKind;
using test_support::Fate;
using test_support::Strike;

Machine& Machine::The() {
    static Machine machine;
    return machine;
}

void Machine::Reset() {
    Require(OpenDescriptors() == 0, "a descriptor was left open");
    for (MemoryDevice* const device : m_devices) {
        device->Clear();
    }
    SetSizeAnswers({});
    m_strike = {};
    m_calls = 0;
    m_limit = UINT64_MAX;
}

void Machine::SetFault(FaultKind kind, uint32_t call) {
    const bool fails = kind == FaultKind::FailOnce || kind == FaultKind::FailForever;
    m_comesShort = kind == FaultKind::ShortOnce || kind == FaultKind::ShortForever;
    m_strike = fails || m_comesShort
                   ? Strike{call, kind == FaultKind::FailForever || kind == FaultKind::ShortForever}
                   : Strike();
}

Fate Machine::Decide(const Call& call) {
    if (call.kind == CallKind::Open) {
        Require((call.flags & O_ACCMODE) == O_RDONLY, "a device is opened for writing");
    } else {
        Require(Table().OpenOn(call.fd) != nullptr, "a descriptor is used, but not open");
    }
    const uint64_t index = m_calls++;
    if (m_calls > m_limit) {
        Report("an operation makes too many system calls: this is call %llu",
               static_cast<unsigned long long>(index));
    }
    if (!m_strike.Hits(static_cast<size_t>(index))) {
        return {};
    }
    return m_comesShort ? Fate::Shortened(call.length / 2) : Fate::Failing();
}

void Machine::Message(const char* format, va_list values) {
    test_support::FormatIfUnbounded(format, values);
}

} // namespace fuzzing
