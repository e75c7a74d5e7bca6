// CReadDisk: constructor to destructor, its opaque handles, and the operations that it forwards to CReadPart.

#include "read_disk.h"

#include <cstdint>
#include <cstdlib>
#include <new>

#include "format/channels.h"
#include "format/ids.h"
#include "format/state.h"
#include "read_part.h"

using namespace disk_access;

/// A disk given to the playback interface. After Quit() it exists until its last reader is stopped.
struct ReadDiskState_st {
    PartAccess_t partition;
    CReadPart* partReader; ///< owned
    uint32_t chnLockMap;   ///< bit n: reads of channel n are refused
    uint32_t readers;      ///< handles not yet stopped
    bool quit;             ///< Quit() was called
};

namespace {

/// The object to which a reader's opaque handle points.
struct ReadHandle_st {
    ReadDiskState_st* pDisk;
    PartReadHandle_st* pPartReader; ///< null: the partition could not make a reader
    uint32_t lockChn;               ///< channel to test against the lock, or kNoLockTest
};

constexpr uint32_t kNoLockTest = 0xFFFFFFFF;

void DropUnused(ReadDiskState_st* disk) {
    if (disk->quit && disk->readers == 0) {
        delete disk->partReader;
        DropState(disk);
    }
}

ReadHandle_st* Open(ReadDiskState_st& disk, int chnType, RecordItem_t& record, uint32_t lockChn) {
    auto* const handle = static_cast<ReadHandle_st*>(std::calloc(1, sizeof(ReadHandle_st)));
    if (handle == nullptr) {
        return nullptr;
    }
    handle->pDisk = &disk;
    handle->pPartReader = disk.partReader->BeginReader(chnType, &record);
    handle->lockChn = lockChn;
    ++disk.readers;
    return handle;
}

int Close(void* handle) {
    auto* const reader = static_cast<ReadHandle_st*>(handle);
    if (reader != nullptr) {
        reader->pDisk->partReader->EndReader(reader->pPartReader);
        --reader->pDisk->readers;
        DropUnused(reader->pDisk);
        std::free(reader);
    }
    return 0;
}

/// The reader of a handle; null if there is none, or if the lock refuses its channel.
ReadHandle_st* Readable(void* handle) {
    auto* const reader = static_cast<ReadHandle_st*>(handle);
    if (reader == nullptr || reader->pPartReader == nullptr) {
        return nullptr;
    }
    const bool locked =
        reader->lockChn != kNoLockTest && HasChannel(reader->pDisk->chnLockMap, reader->lockChn);
    return locked ? nullptr : reader;
}

int ZeroOrFailed(int result) {
    return result < 0 ? -1 : 0;
}

} // namespace

CReadDisk::CReadDisk() = default;

CReadDisk::~CReadDisk() = default;

int CReadDisk::Init(PartAccess_t* part) {
    if (m_pState != nullptr || part == nullptr) {
        return -1;
    }
    m_pState = MakeState<ReadDiskState_st>();
    if (m_pState == nullptr) {
        return -1;
    }
    m_pState->partReader = new (std::nothrow) CReadPart;
    if (m_pState->partReader == nullptr) {
        DropState(m_pState);
        return -1;
    }
    m_pState->partition = *part;
    // If the partition cannot be opened, partReader stays closed, and makes no readers.
    m_pState->partReader->Init(&m_pState->partition);
    return 0;
}

int CReadDisk::Quit() {
    if (m_pState == nullptr) {
        return -1;
    }
    m_pState->partReader->Quit();
    m_pState->quit = true;
    DropUnused(m_pState);
    m_pState = nullptr;
    return 0;
}

void* CReadDisk::StartRead(int ChnType, RecordItem_t* record) {
    if (m_pState == nullptr || record == nullptr) {
        return nullptr;
    }
    const uint32_t lockChn = ChnType == kAllChannelReader ? kNoLockTest : ChannelOfId(record->recId);
    return Open(*m_pState, ChnType, *record, lockChn);
}

int CReadDisk::StopRead(void* handle) {
    return Close(handle);
}

int CReadDisk::GetInfo(EncodeParam_t* out, RecordItem_t* record, int rebuild) {
    return m_pState == nullptr ? -1 : m_pState->partReader->GetRecInfo(out, record, rebuild);
}

int CReadDisk::SeekTime(void* handle, long* time) {
    auto* const reader = static_cast<ReadHandle_st*>(handle);
    return reader == nullptr ? -1
                             : ZeroOrFailed(reader->pDisk->partReader->SeekTime(reader->pPartReader, time));
}

int CReadDisk::SeekPos(void* handle, unsigned int* pos) {
    auto* const reader = static_cast<ReadHandle_st*>(handle);
    return reader == nullptr ? -1
                             : ZeroOrFailed(reader->pDisk->partReader->SeekPos(reader->pPartReader, pos));
}

int CReadDisk::ReadFrame(void* handle, FrameInfo_t* info, void** payload) {
    ReadHandle_st* const reader = Readable(handle);
    return reader == nullptr ? -1 : reader->pDisk->partReader->ReadFrame(reader->pPartReader, info, payload);
}

int CReadDisk::ReadNextIFrame(void* handle, FrameInfo_t* info, void** payload) {
    ReadHandle_st* const reader = Readable(handle);
    return reader == nullptr ? -1
                             : reader->pDisk->partReader->ReadNextIFrame(reader->pPartReader, info, payload);
}

int CReadDisk::ReadPrevIFrame(void* handle, FrameInfo_t* info, void** payload) {
    ReadHandle_st* const reader = Readable(handle);
    return reader == nullptr ? -1
                             : reader->pDisk->partReader->ReadPrevIFrame(reader->pPartReader, info, payload);
}

void* CReadDisk::StartUnitRead(int unit) {
    if (m_pState == nullptr) {
        return nullptr;
    }
    RecordItem_t record = {};
    record.recId = MakeRecordId(static_cast<uint32_t>(unit), 0, 0);
    return Open(*m_pState, kAllChannelReader, record, kNoLockTest);
}

int CReadDisk::StopUnitRead(void* handle) {
    return Close(handle);
}

int CReadDisk::ReadUnitFrame(void* handle, FrameInfo_t* info, void** payload) {
    ReadHandle_st* const reader = Readable(handle);
    return reader == nullptr ? -1
                             : reader->pDisk->partReader->ReadUnitFrame(reader->pPartReader, info, payload);
}

int CReadDisk::CheckEncryptInfo(unsigned char* password) {
    if (m_pState == nullptr) {
        return -1;
    }
    const int result = m_pState->partReader->CheckEncrypt(password);
    if (result == 0) {
        m_pState->chnLockMap = 0;
    }
    return result;
}
