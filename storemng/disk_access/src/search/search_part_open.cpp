// CSearchPart: opening and closing a partition, its bad-block tables and its access lock.

#include "search_part.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>

#include "format/part_head.h"
#include "format/state.h"
#include "io/device.h"
#include "search/search_part_state.h"

using namespace disk_access;

namespace {

/// Reads the partition head from a device that was just opened, and checks its magic.
bool ReadPartHead(dev_op_st* dev, int diskType, PartHead_t& head) {
    return dev_read(dev, &head, sizeof head) == 0 && head.FormatFlag == ExpectedMagic(diskType);
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
    const uint32_t blocks = CredibleBlocks(stated, m_pState->Geometry(), deviceSize);
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
