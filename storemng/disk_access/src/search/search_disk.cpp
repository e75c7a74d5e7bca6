// CSearchDisk: constructor to destructor, and the operations that it forwards to CSearchPart.

#include "search_disk.h"

#include <algorithm>
#include <new>

#include "format/state.h"
#include "search/search_disk_alarm.h"
#include "search/search_disk_state.h"

using namespace disk_access;

namespace {

/// Callers expect a count: a failure in a lower layer counts as nothing found.
int CountOf(int result) {
    return std::max(result, 0);
}

} // namespace

CSearchDisk::CSearchDisk() = default;

CSearchDisk::~CSearchDisk() {
    Quit();
}

int CSearchDisk::Init(PartAccess_t* part) {
    if (m_pState != nullptr || part == nullptr) {
        return -1;
    }
    m_pState = MakeState<DiskSearchState_t>();
    if (m_pState == nullptr) {
        return -1;
    }
    m_pState->searchPart = new (std::nothrow) CSearchPart;
    if (m_pState->searchPart == nullptr) {
        DropState(m_pState);
        return -1;
    }
    m_pState->partAccess = *part;
    // If the partition cannot be opened, searchPart stays closed, and searches find nothing.
    m_pState->searchPart->Init(&m_pState->partAccess);
    return 0;
}

int CSearchDisk::Quit() {
    if (m_pState == nullptr) {
        return -1;
    }
    m_pState->searchPart->Quit();
    delete m_pState->searchPart;
    DropState(m_pState);
    return 0;
}

int CSearchDisk::SearchMedia(SearchParam_t* param, CCommList<RecordItem_t>* out) {
    if (m_pState == nullptr || param == nullptr) {
        return -1;
    }
    if (param->alarmMask != 0) {
        return SearchAlarmMedia(*m_pState->searchPart, param, m_pState->lockedMap, out);
    }
    return CountOf(m_pState->searchPart->SearchMedia(param, m_pState->lockedMap, out));
}

int CSearchDisk::SearchUnitMedia(unsigned int unit, CCommList<RecordItem_t>* recs,
                                 CCommList<EventItem_t>* events) {
    if (m_pState == nullptr) {
        return -1;
    }
    return CountOf(m_pState->searchPart->SearchUnitMedia(unit, m_pState->lockedMap, recs, events));
}

int CSearchDisk::SearchEvent(SearchParam_t* param, CCommList<EventItem_t>* out) {
    return m_pState == nullptr ? -1 : CountOf(m_pState->searchPart->SearchEvent(param, out));
}

int CSearchDisk::GetDateInfo(CCommList<unsigned int>* days) {
    return m_pState == nullptr ? -1 : CountOf(m_pState->searchPart->GetDateMap(days));
}

int CSearchDisk::GetUnitInfo(CCommList<UnitItem_t>* units) {
    return m_pState == nullptr ? -1 : CountOf(m_pState->searchPart->GetUnitList(units));
}

int CSearchDisk::GetInvalidUnit(CCommList<UnitItem_t>* units) {
    return m_pState == nullptr ? -1 : CountOf(m_pState->searchPart->GetBadUnitList(units));
}

int CSearchDisk::GetSpaceInfo(DiskSpaceInfo_t* info) {
    return m_pState == nullptr ? -1 : m_pState->searchPart->GetSpace(info);
}

int CSearchDisk::GetEncryptInfo(unsigned int* encrypt) {
    return m_pState == nullptr ? -1 : m_pState->searchPart->GetEncrypt(encrypt);
}

int CSearchDisk::CheckEncryptInfo(unsigned char* password) {
    if (m_pState == nullptr) {
        return -1;
    }
    return m_pState->searchPart->CheckEncrypt(reinterpret_cast<const char*>(password), &m_pState->lockedMap);
}

int CSearchDisk::GetLastRecBlockId() {
    return m_pState == nullptr ? -1 : CountOf(m_pState->searchPart->GetLastBlock());
}

int CSearchDisk::GetBlockRecMap(unsigned int unit, int what) {
    return m_pState == nullptr ? -1 : m_pState->searchPart->GetUnitRecMap(unit, what);
}
