#include "disk_state.h"

#include <openssl/sha.h>

#include <algorithm>
#include <array>
#include <cstring>

#include "recordings/error.h"

namespace catalog {

namespace {

using recordings::Block;
using recordings::Disk;

/// Places of the ring whose blocks a disk is known by: the first ones, and as many all over it.
constexpr size_t kFirstMarks = 16;
constexpr size_t kSpreadMarks = 64;

/// Digests of values, written one after the other.
class Digest {
public:
    template <typename Number>
    Digest& operator<<(Number number) {
        char bytes[sizeof number];
        std::memcpy(bytes, &number, sizeof number);
        m_bytes.append(bytes, sizeof number);
        return *this;
    }
    Digest& operator<<(const std::string& text) {
        *this << uint64_t{text.size()};
        m_bytes += text;
        return *this;
    }

    std::array<uint8_t, SHA256_DIGEST_LENGTH> Value() const {
        std::array<uint8_t, SHA256_DIGEST_LENGTH> digest = {};
        SHA256(reinterpret_cast<const uint8_t*>(m_bytes.data()), m_bytes.size(), digest.data());
        return digest;
    }
    /// Its first eight bytes, other than 0.
    uint64_t Number() const {
        uint64_t number = 0;
        std::memcpy(&number, Value().data(), sizeof number);
        return std::max<uint64_t>(number, 1);
    }
    std::string Hexadecimal() const {
        constexpr char kDigits[] = "0123456789abcdef";
        std::string text;
        for (const uint8_t byte : Value()) {
            text += kDigits[byte >> 4];
            text += kDigits[byte & 0xF];
        }
        return text;
    }

private:
    std::string m_bytes;
};

std::string HeadOf(const Disk& disk) {
    const recordings::DiskFacts& facts = disk.Facts();
    Digest digest;
    digest << facts.magic << uint8_t{facts.extendedLayout} << facts.blockCount << facts.blockSize
           << facts.badBlockTable << facts.badBlockTableBackup << facts.suspectTable
           << facts.suspectTableBackup << facts.description;
    return digest.Hexadecimal();
}

uint64_t DigestOf(const Block& block, const VehicleName& vehicle) {
    Digest digest;
    digest << block.number << block.sequence << block.start << block.end << block.channels.bits
           << static_cast<uint8_t>(block.mark) << uint8_t{block.closed} << uint8_t{block.headSound}
           << uint8_t{block.unreadable} << uint8_t{block.wiped} << vehicle.number << vehicle.identity;
    return digest.Number();
}

/// Whether a block tells its disk from others, and stays as it is until it is overwritten.
bool Tells(const Block& block) {
    return block.closed && block.headSound && !block.unreadable && !block.wiped;
}

} // namespace

Blob DiskState::Packed() const {
    Blob packed(blocks.size() * sizeof(uint64_t));
    if (!blocks.empty()) {
        std::memcpy(packed.data(), blocks.data(), packed.size());
    }
    return packed;
}

uint64_t DigestAt(const Blob& packed, size_t place) {
    uint64_t digest = 0;
    if (place < packed.size() / sizeof digest) {
        std::memcpy(&digest, packed.data() + place * sizeof digest, sizeof digest);
    }
    return digest;
}

DiskState ReadState(const Disk& disk, const recordings::BlockList& blocks, const Reading& reading,
                    const recordings::Watch& watch) {
    DiskState state;
    state.head = HeadOf(disk);
    state.blocks.resize(disk.BlockCount());
    const size_t distance = std::max<size_t>(1, state.blocks.size() / kSpreadMarks);
    VehicleName last;
    for (const Block& block : blocks.All()) {
        if (watch && !watch({state.vehicles.size(), blocks.All().size(), 0})) {
            throw recordings::Error(recordings::ErrorKind::Cancelled, disk.Bytes().Name() + ": interrupted");
        }
        const auto identity =
            block.unreadable || block.wiped ? std::nullopt : ReadIdentity(disk, block.number);
        if (identity) {
            last = {reading.printable(identity->vehicleNumber), reading.printable(identity->vehicleId)};
            state.preRecordSeconds = identity->preRecordSeconds;
            state.alarmDelaySeconds = identity->alarmDelaySeconds;
        }
        state.vehicles.push_back(last); // where a head is lost, the vehicle is that of the block before
        const uint64_t digest = DigestOf(block, last);
        state.blocks.at(block.number) = digest;
        if (Tells(block) && (block.number < kFirstMarks || block.number % distance == 0)) {
            state.marks.push_back(digest);
        }
    }
    return state;
}

} // namespace catalog
