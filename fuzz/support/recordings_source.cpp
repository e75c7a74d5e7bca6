#include "support/recordings_source.h"

namespace fuzzing {

RecordingsSource::RecordingsSource(const PartitionInput& input, const MemoryDevice& device, ReadCost& cost)
    : m_device(device), m_cost(cost) {
    const FaultKind kind = input.Fault();
    const bool fails = kind == FaultKind::FailOnce || kind == FaultKind::FailForever;
    m_comesShort = kind == FaultKind::ShortOnce || kind == FaultKind::ShortForever;
    if (fails || m_comesShort) {
        m_strike = {input.head.faultCall, kind == FaultKind::FailForever || kind == FaultKind::ShortForever};
    }
}

size_t RecordingsSource::Read(uint64_t offset, void* data, size_t size) const {
    if (size > 0) {
        RequireAddressable(data, size);
    }
    ++m_cost.reads;
    m_cost.bytes += size;
    const size_t index = std::this_thread::get_id() == m_owner ? m_own++ : m_others++;
    if (m_strike.Hits(index)) {
        size = m_comesShort ? size / 2 : 0;
    }
    const uint64_t left = offset < Size() ? Size() - offset : 0;
    const auto delivered = static_cast<size_t>(std::min<uint64_t>(size, left));
    m_device.Copy(offset, static_cast<uint8_t*>(data), delivered);
    return delivered;
}

} // namespace fuzzing
