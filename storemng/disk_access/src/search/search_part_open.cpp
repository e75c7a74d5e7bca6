// CSearchPart: opening and closing a partition, its bad-block tables and its access lock.

#include "search_part.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>

#include "format/part_head.h"
#include "format/state.h"
#include "io/device.h"
#include "search/search_part_state.h"

using namespace disk_access;

uint32_t disk_access::BlocksInside(const PartSearchState_t& state, uint64_t deviceSize) {
    if (!state.HasBlocks() || deviceSize <= BLOCK_BASE_OFFSET) {
        return 0;
    }
    const uint64_t inside = (deviceSize - BLOCK_BASE_OFFSET + state.BlkSize - 1) / state.BlkSize;
    return static_cast<uint32_t>(std::min<uint64_t>(inside, 0xFFFFFFFF));
}

namespace {

/// Reads and checks the partition head from the start of a device just opened.
bool ReadPartHead(dev_op_st* dev, int diskType, PartHead_t& head) {
    return dev_read(dev, &head, sizeof head) == 0 && head.FormatFlag == ExpectedMagic(diskType);
}

/// Blocks that record and event ids can name: no recorder makes a larger ring.
constexpr uint32_t kBlocksOfIds = 0x10000;

/// The blocks of the ring that are worth looking at. A head may state more than begin inside the device: a
/// copy that was cut off, whose missing blocks fail one by one as they are read; or a forgery of billions, of
/// which only as many are believed in as ids can name.
uint32_t CredibleBlocks(const PartSearchState_t& state, uint64_t deviceSize) {
    return std::min(state.BlkCount, std::max(BlocksInside(state, deviceSize), kBlocksOfIds));
}

/// Loads the first @p bytes bytes of a table of @p statedBytes bytes. A table that would reach beyond the
/// device cannot be read, so it gets no memory.
/// @return the table, to be freed by the caller, or null
uint8_t* LoadTable(dev_op_st* dev, uint32_t offset, uint32_t statedBytes, uint32_t bytes,
                   uint64_t deviceSize) {
    if (uint64_t{offset} + statedBytes > deviceSize) {
        return nullptr;
    }
    auto* const table = static_cast<uint8_t*>(std::malloc(bytes == 0 ? 1 : bytes));
    if (table == nullptr) {
        return nullptr;
    }
    if (ReadAt(dev, offset, table, bytes) != 0) {
        std::free(table);
        return nullptr;
    }
    return table;
}

} // namespace

CSearchPart::CSearchPart() = default;

CSearchPart::~CSearchPart() = default;

int CSearchPart::Init(PartAccess_t* part) {
    if (part == nullptr) {
        return -1;
    }
    Quit();
    m_pState = MakeState<PartSearchState_t>();
    if (m_pState == nullptr) {
        return -1;
    }
    m_pState->dev = dev_open(part);
    if (m_pState->dev == nullptr) {
        DropState(m_pState);
        return -1;
    }
    PartHead_t head = {};
    if (ReadPartHead(m_pState->dev, part->DiskType, head)) {
        m_pState->searchBlock =
            new (std::nothrow) CSearchBlock(m_pState->dev, head.BlkSize, BLOCK_BASE_OFFSET, head.FmtVersion);
    }
    if (m_pState->searchBlock == nullptr) {
        dev_close(m_pState->dev);
        DropState(m_pState);
        return -1;
    }
    m_pState->BlkCount = head.BlkCount;
    m_pState->RingCount = head.BlkCount;
    m_pState->BlkSize = head.BlkSize;
    m_pState->FmtVersion = head.FmtVersion;
    m_pState->BBTabOffs = head.BBTabOffs;
    m_pState->BBCounterOffs = head.BBCounterOffs;
    m_pState->Encrypt = head.Encrypt;
    m_pState->EncryptMap = head.EncryptMap;
    CopyCipherCode(m_pState->CipherCode, head);
    return 0;
}

int CSearchPart::Quit() {
    if (m_pState != nullptr) {
        std::free(m_pState->badBlockTab);
        std::free(m_pState->possibleBBTab);
        delete m_pState->searchBlock;
        dev_close(m_pState->dev);
        DropState(m_pState);
    }
    return 0;
}

int CSearchPart::PrintInitInfo() {
    return 0;
}

int CSearchPart::GetBadBlockTab() {
    if (m_pState == nullptr) {
        return -1;
    }
    if (m_pState->badBlockTab != nullptr) {
        return 0;
    }
    const uint64_t deviceSize = DeviceSize(m_pState->dev);
    const uint32_t stated = m_pState->BlkCount;
    const uint32_t blocks = CredibleBlocks(*m_pState, deviceSize);
    uint8_t* const bits = LoadTable(m_pState->dev, m_pState->BBTabOffs, BadBlockTabSize(stated),
                                    BadBlockTabSize(blocks), deviceSize);
    if (bits == nullptr) {
        return -1;
    }
    uint8_t* const counters = LoadTable(m_pState->dev, m_pState->BBCounterOffs, stated, blocks, deviceSize);
    if (counters == nullptr) {
        std::free(bits);
        return -1;
    }
    m_pState->RingCount = blocks;
    m_pState->badBlockTab = bits;
    m_pState->possibleBBTab = counters;
    return 0;
}

int CSearchPart::GetEncrypt(unsigned int* encrypt) {
    if (m_pState == nullptr || encrypt == nullptr) {
        return -1;
    }
    *encrypt = m_pState->Encrypt;
    return 0;
}

int CSearchPart::CheckEncrypt(const char* password, unsigned int* lockedMap) {
    *lockedMap = 0;
    if (m_pState == nullptr) {
        return -1;
    }
    if (!LockActive(m_pState->Encrypt)) {
        return 0;
    }
    if (password != nullptr && std::strcmp(password, m_pState->CipherCode) == 0) {
        return 0;
    }
    *lockedMap = m_pState->EncryptMap;
    return -1;
}
