// CReadPart: opening and closing a partition, its summary and its access lock.

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "format/part_head.h"
#include "format/state.h"
#include "io/host.h"
#include "playback/read_part_state.h"
#include "read_part.h"

using namespace disk_access;

namespace {

/// Copies what playback needs from a partition head; nothing if the magic is wrong.
void TakeHead(ReadPartState_st& state, const PartHead_t& head) {
    if (head.FormatFlag != ExpectedMagic(state.partition.DiskType)) {
        state.PartStatus = kWrongMagic;
        return;
    }
    state.PartStatus = kHeadAccepted;
    state.BlkCount = head.BlkCount;
    state.BlkSize = head.BlkSize;
    state.FmtVersion = head.FmtVersion;
    state.BBTabOffs = head.BBTabOffs;
    state.Encrypt = head.Encrypt;
    state.EncryptMap = head.EncryptMap;
    CopyCipherCode(state.CipherCode, head);
}

} // namespace

CReadPart::CReadPart() = default;

CReadPart::~CReadPart() = default;

int CReadPart::Init(PartAccess_t* part) {
    if (part == nullptr) {
        return -1;
    }
    Quit();
    m_pState = MakeState<ReadPartState_st>();
    if (m_pState == nullptr) {
        return -1;
    }
    m_pState->partition = *part;
    dev_op_st* const dev = dev_open(&m_pState->partition);
    if (dev == nullptr) {
        DropState(m_pState);
        return -1;
    }
    PartHead_t head = {};
    if (dev_read(dev, &head, sizeof head) != 0) {
        dev_close(dev);
        DropState(m_pState);
        return -1;
    }
    TakeHead(*m_pState, head);
    dev_close(dev);
    return 0;
}

int CReadPart::Quit() {
    if (m_pState != nullptr) {
        std::free(m_pState->pBadBlockTab);
        DropState(m_pState);
    }
    return 0;
}

int CReadPart::PrintInitInfo() {
    if (m_pState == nullptr) {
        return 0;
    }
    // The name may have no terminating NUL.
    const int nameLength = static_cast<int>(sizeof m_pState->partition.PartName);
    Message("*********************PrintInitInfo START********************** \n");
    Message("PartName : %.*s\n", nameLength, m_pState->partition.PartName);
    Message("BlockCount : %d\n", static_cast<int>(m_pState->BlkCount));
    Message("BlockSize : %d\n", static_cast<int>(m_pState->BlkSize));
    Message("PartStatus : %d\n", static_cast<int>(m_pState->PartStatus));
    Message("**********************PrintInitInfo END*********************** \n");
    return 0;
}

int CReadPart::GetEncrypt(unsigned int* map, unsigned int* encrypt, unsigned char* password, int length) {
    if (m_pState == nullptr || map == nullptr || encrypt == nullptr || password == nullptr) {
        return -1;
    }
    *encrypt = m_pState->Encrypt;
    *map = LockActive(m_pState->Encrypt) ? m_pState->EncryptMap : 0;
    const auto room = static_cast<size_t>(std::max(length, 0));
    const size_t copied = std::min(room, std::strlen(m_pState->CipherCode));
    std::memcpy(password, m_pState->CipherCode, copied);
    std::memset(password + copied, 0, room - copied);
    return 0;
}

int CReadPart::CheckEncrypt(unsigned char* password) {
    if (m_pState == nullptr) {
        return -1;
    }
    if (!LockActive(m_pState->Encrypt)) {
        return 0;
    }
    const bool right = password != nullptr &&
                       std::strcmp(reinterpret_cast<const char*>(password), m_pState->CipherCode) == 0;
    return right ? 0 : -1;
}

int DebugLog(const char* /*format*/, ...) {
    return 0;
}
