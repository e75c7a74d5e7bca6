// The public interface, pinned: every exported signature and every record's layout. It compiles, or something that
// callers rely on has changed. It is compiled with many sets of flags, for callers have their own, and each object
// refers to every exported function by the name that such a caller would look for.

#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "disk_access.h"

namespace {

#define SIZE(T, n)                                                                                           \
    static_assert(sizeof(T) == (n), #T " must take " #n " bytes");                                           \
    static_assert(alignof(T) == 4, #T " must be packed to four bytes")
#define AT(T, f, n) static_assert(offsetof(T, f) == (n), #T "." #f " must lie at " #n)
#define FIELD(T, f, type)                                                                                    \
    static_assert(std::is_same<decltype(T::f), type>::value, #T "." #f " must be " #type)
#define IS(expr, ...)                                                                                        \
    static_assert(std::is_same<decltype(expr), __VA_ARGS__>::value, #expr " has another signature");         \
    __attribute__((used)) decltype(expr) REFERENCE(__COUNTER__) = expr
#define REFERENCE(number) REFERENCE_(number)
#define REFERENCE_(number) reference_##number
#define POLY(T) static_assert(std::has_virtual_destructor<T>::value, #T " needs a virtual destructor")
#define HANDLE(T)                                                                                            \
    static_assert(sizeof(T) == 2 * sizeof(void*), #T " is a vtable pointer and one state pointer")

typedef std::uint8_t u8;
typedef std::uint32_t u32;
typedef std::int32_t i32;
typedef std::uint64_t u64;
typedef std::int64_t i64;
typedef unsigned int uint;

// ---- list container -------------------------------------------------------------------------
static_assert(std::is_same<POS, void*>::value, "POS is void*");
typedef CCommList<EventItem_t> EventList;
typedef CCommList<RecordItem_t> RecordList;
typedef CCommList<UnitItem_t> UnitList;
typedef CCommList<unsigned int> DayList;
#define LIST(List, Item)                                                                                     \
    POLY(List);                                                                                              \
    static_assert(sizeof(List) == (sizeof(void*) == 8 ? 32 : 16), #List " has another size");                \
    IS(&List::AddTail, POS (List::*)(const Item&));                                                          \
    IS(&List::RemoveHead, Item (List::*)());                                                                 \
    IS(&List::RemoveAll, void (List::*)())
LIST(EventList, EventItem_t);
LIST(RecordList, RecordItem_t);
LIST(CCommList<EventPeriodItem_t>, EventPeriodItem_t);
LIST(UnitList, UnitItem_t);
LIST(DayList, unsigned int);
FIELD(EventList, m_pHead, CCommListNode<EventItem_t>*);
FIELD(EventList, m_pTail, CCommListNode<EventItem_t>*);
static_assert(std::is_same<decltype(EventList::m_nCount), int>::value, "m_nCount is a signed 32-bit int");
FIELD(CCommListNode<EventItem_t>, data, EventItem_t);
FIELD(CCommListNode<EventItem_t>, pNext, CCommListNode<EventItem_t>*);
FIELD(CCommListNode<EventItem_t>, pPrev, CCommListNode<EventItem_t>*);

// ---- raw device and block window ------------------------------------------------------------
SIZE(PartAccess_t, 132);
AT(PartAccess_t, DiskType, 0);
AT(PartAccess_t, PartName, 4);
SIZE(block_info_t, 144);
FIELD(block_info_t, BlockNum, u32);
FIELD(block_info_t, BlkSize, u32);
FIELD(block_info_t, BaseOffs, u32);
static_assert(std::is_base_of<PartAccess_t, block_info_t>::value, "block_info_t derives from PartAccess_t");
SIZE(dev_op_st, 4);
FIELD(dev_op_st, fd, int);
FIELD(bolck_op_st, fd, int);
FIELD(bolck_op_st, StartOffs, i64);
FIELD(bolck_op_st, EndOffs, i64);
FIELD(bolck_op_st, CurOffs, i64);
struct IntAndOffset {
    int fd;
    i64 StartOffs;
};
AT(bolck_op_st, fd, 0);
AT(bolck_op_st, StartOffs, offsetof(IntAndOffset, StartOffs));
AT(bolck_op_st, EndOffs, offsetof(IntAndOffset, StartOffs) + 8);
AT(bolck_op_st, CurOffs, offsetof(IntAndOffset, StartOffs) + 16);
static_assert(sizeof(bolck_op_st) == offsetof(IntAndOffset, StartOffs) + 24, "bolck_op_st ends with CurOffs");
static_assert(alignof(bolck_op_st) == alignof(IntAndOffset), "bolck_op_st is not packed");
IS(&dev_open, dev_op_st* (*)(PartAccess_t*));
IS(&dev_close, int (*)(dev_op_st*));
IS(&dev_seek, int (*)(dev_op_st*, long long));
IS(&dev_read, int (*)(dev_op_st*, void*, uint));
IS(&block_open, bolck_op_st* (*)(block_info_t*));
IS(&block_close, int (*)(bolck_op_st*));
IS(&block_seek, int (*)(bolck_op_st*, uint));
IS(&block_read, int (*)(bolck_op_st*, void*, uint));

// ---- on-disk structures ---------------------------------------------------------------------
static_assert(BLOCK_BASE_OFFSET == 0x800000, "device offset of block 0");
static_assert(BLOCK_MAGIC == 0xAA55AA55u, "block head and frame head magic");
static_assert(PART_MAGIC == 0xAA55AA55u && PART_MAGIC_ALT == 0xAA55AA50u, "partition head magics");
static_assert(NO_INDEX_RECORD_SIZE == 0x3C00000u, "byte count of a record made without an index");
SIZE(PartHead_t, 200);
AT(PartHead_t, FormatFlag, 0);
AT(PartHead_t, FmtVersion, 4);
AT(PartHead_t, BlkCount, 8);
AT(PartHead_t, BlkSize, 12);
AT(PartHead_t, BBTabOffs, 16);
AT(PartHead_t, BBCounterOffs, 20);
AT(PartHead_t, BBTabBakOffs, 24);
AT(PartHead_t, BBCounterBakOffs, 28);
AT(PartHead_t, Description, 32);
AT(PartHead_t, Encrypt, 64);
AT(PartHead_t, EncryptMap, 68);
AT(PartHead_t, CipherCode, 72);
SIZE(ChnProp_t, 24);
AT(ChnProp_t, Bitrate, 0);
AT(ChnProp_t, VType, 4);
AT(ChnProp_t, FrameRate, 5);
AT(ChnProp_t, Resolution, 6);
AT(ChnProp_t, gop, 7);
AT(ChnProp_t, Sample, 8);
AT(ChnProp_t, BitWidth, 12);
AT(ChnProp_t, audio_frame_len, 16);
AT(ChnProp_t, AType, 20);
AT(ChnProp_t, propRes, 21);
SIZE(BlockHead_t, 840);
AT(BlockHead_t, ValidFlag, 0);
AT(BlockHead_t, RecTime, 4);
AT(BlockHead_t, RecSeq, 8);
AT(BlockHead_t, pre_RecTime, 12);
AT(BlockHead_t, AlmDelayTime, 16);
AT(BlockHead_t, VehicleNum, 20);
AT(BlockHead_t, VehicleID, 36);
AT(BlockHead_t, media_chn_bitmap, 68);
AT(BlockHead_t, prop, 72);
SIZE(BlkExtHead_t, 64);
SIZE(BlockTail_t, 20);
AT(BlockTail_t, RecSeq, 8);
AT(BlockTail_t, StartTime, 12);
AT(BlockTail_t, EndTime, 16);
SIZE(BlockTailEx_t, 12);
AT(BlockTailEx_t, RecSeq, 0);
AT(BlockTailEx_t, StartTime, 4);
AT(BlockTailEx_t, EndTime, 8);
SIZE(BlkIndexHead_t, 260);
AT(BlkIndexHead_t, iframeCount, 0);
AT(BlkIndexHead_t, recSegCount, 128);
AT(BlkIndexHead_t, eventCount, 256);
SIZE(IFrameItem_t, 16);
AT(IFrameItem_t, pts, 0);
AT(IFrameItem_t, pos, 8);
SIZE(RecSegItem_t, 20);
AT(RecSegItem_t, s, 0);
AT(RecSegItem_t, e, 4);
AT(RecSegItem_t, spos, 8);
AT(RecSegItem_t, epos, 12);
AT(RecSegItem_t, totalsize, 16);
SIZE(EventIndexItem_t, 24);
AT(EventIndexItem_t, type, 0);
AT(EventIndexItem_t, pts, 8);
AT(EventIndexItem_t, pos, 16);
SIZE(FrameHead_t, 24);
AT(FrameHead_t, pts, 0);
AT(FrameHead_t, sync, 8);
AT(FrameHead_t, type, 12);
AT(FrameHead_t, chn, 16);
AT(FrameHead_t, len, 20);
SIZE(EventHead_t, 16);

// ---- search records -------------------------------------------------------------------------
SIZE(SearchParam_t, 20);
AT(SearchParam_t, alarmMask, 0);
AT(SearchParam_t, startTime, 8);
AT(SearchParam_t, endTime, 12);
AT(SearchParam_t, chn, 16);
SIZE(RecordItem_t, 32);
AT(RecordItem_t, alarmType, 0);
AT(RecordItem_t, recId, 8);
AT(RecordItem_t, chn, 12);
AT(RecordItem_t, startTime, 16);
AT(RecordItem_t, endTime, 20);
AT(RecordItem_t, size, 24);
AT(RecordItem_t, flag, 28);
SIZE(EventItem_t, 16);
AT(EventItem_t, alarmType, 0);
AT(EventItem_t, eventId, 8);
AT(EventItem_t, time, 12);
SIZE(EventPeriodItem_t, 16);
AT(EventPeriodItem_t, alarmType, 0);
AT(EventPeriodItem_t, startTime, 8);
AT(EventPeriodItem_t, endTime, 12);
SIZE(UnitItem_t, 8);
AT(UnitItem_t, unitId, 0);
AT(UnitItem_t, recTime, 4);
SIZE(UnitTimeItem_t, 12);
AT(UnitTimeItem_t, unitId, 0);
AT(UnitTimeItem_t, startTime, 4);
AT(UnitTimeItem_t, endTime, 8);
SIZE(InputTime_t, 16);
AT(InputTime_t, startTime, 0);
AT(InputTime_t, endTime, 4);
AT(InputTime_t, oldestTime, 8);
AT(InputTime_t, newestTime, 12);
SIZE(OutputTime_t, 8);
AT(OutputTime_t, startTime, 0);
AT(OutputTime_t, endTime, 4);
SIZE(DiskSpaceInfo_t, 16);
AT(DiskSpaceInfo_t, totalSize, 0);
AT(DiskSpaceInfo_t, freeSize, 8);

// ---- playback records -----------------------------------------------------------------------
SIZE(FrameInfo_t, 20);
AT(FrameInfo_t, pts, 0);
AT(FrameInfo_t, type, 8);
AT(FrameInfo_t, chn, 12);
AT(FrameInfo_t, len, 16);
SIZE(EncodeParam_t, 100);
AT(EncodeParam_t, pre_RecTime, 0);
AT(EncodeParam_t, AlmDelayTime, 4);
AT(EncodeParam_t, chn, 8);
AT(EncodeParam_t, VType, 12);
AT(EncodeParam_t, FrameRate, 16);
AT(EncodeParam_t, AType, 20);
AT(EncodeParam_t, Bitrate, 24);
AT(EncodeParam_t, gop, 28);
AT(EncodeParam_t, Sample, 32);
AT(EncodeParam_t, BitWidth, 36);
AT(EncodeParam_t, audio_frame_len, 40);
AT(EncodeParam_t, propRes, 44);
AT(EncodeParam_t, Resolution, 48);
AT(EncodeParam_t, VehicleNum, 52);
AT(EncodeParam_t, VehicleID, 68);
AT(PartReadHandle_st, ChnType, 0);
AT(PartReadHandle_st, RecItem, 8);
AT(PartReadHandle_st, BlockNum, 40);
AT(PartReadHandle_st, pBlockObj, sizeof(void*) == 8 ? 48 : 44);
static_assert(sizeof(PartReadHandle_st) == (sizeof(void*) == 8 ? 56 : 48), "PartReadHandle_st ends with it");
static_assert(alignof(PartReadHandle_st) == 8, "the record in PartReadHandle_st is aligned to 8");
FIELD(PartReadHandle_st, BlockNum, u32);
FIELD(PartReadHandle_st, pBlockObj, CReadBlock*);

// ---- block search ---------------------------------------------------------------------------
POLY(CSearchBlock);
HANDLE(CSearchBlock);
static_assert(std::is_constructible<CSearchBlock, dev_op_st*, uint, uint, uint>::value,
              "CSearchBlock(dev, blkSize, baseOffs, fmtVersion)");
IS(&CSearchBlock::GetBlockInfo,
   int (CSearchBlock::*)(uint, BlockHead_t*, BlockTail_t*, BlkExtHead_t*, BlockTailEx_t*));
IS(&CSearchBlock::ReadBlockIndexList, int (CSearchBlock::*)(uint, uint));
IS(&CSearchBlock::PrintIndex, int (CSearchBlock::*)());
IS(&CSearchBlock::GetUnitRecMap, int (CSearchBlock::*)(uint));
IS(&CSearchBlock::RebuildRecSegInfo, int (CSearchBlock::*)(uint, uint, uint));
IS(&CSearchBlock::RefreshRecSegInfo, int (CSearchBlock::*)(FrameInfo_t*, uint, EventHead_t*));
IS(&CSearchBlock::CheckAlarmContition, long long (CSearchBlock::*)(long, long, long long));
IS(&CSearchBlock::GetEventList, int (CSearchBlock::*)(uint, long, long, long long, EventList*));
IS(&CSearchBlock::GetMediaList,
   int (CSearchBlock::*)(uint, long, long, uint, uint, long long, RecordList*, EventList*));
IS(&CSearchBlock::GetSigleChnMediaList,
   int (CSearchBlock::*)(uint, long, long, uint, uint, long long, uint, RecordList*, EventList*));
IS(&CSearchBlock::GetAllChnMediaList,
   int (CSearchBlock::*)(uint, long, long, uint, long long, uint, RecordList*, EventList*));
IS(&CSearchBlock::GetNoIndexMediaList, int (CSearchBlock::*)(uint, uint, uint, RecordList*));

// ---- partition search -----------------------------------------------------------------------
POLY(CSearchPart);
HANDLE(CSearchPart);
IS(&CSearchPart::Init, int (CSearchPart::*)(PartAccess_t*));
IS(&CSearchPart::Quit, int (CSearchPart::*)());
IS(&CSearchPart::GetBadBlockTab, int (CSearchPart::*)());
IS(&CSearchPart::IsBadBlock, int (CSearchPart::*)(uint));
IS(&CSearchPart::IsValidBlock, int (CSearchPart::*)(uint, uint, uint, BlockHead_t*));
IS(&CSearchPart::GetPrevValidBlock, int (CSearchPart::*)(uint, uint, uint, uint, uint*, BlockHead_t*));
IS(&CSearchPart::GetNextValidBlock, int (CSearchPart::*)(uint, uint, uint, uint, uint*, BlockHead_t*));
IS(&CSearchPart::GetEncrypt, int (CSearchPart::*)(uint*));
IS(&CSearchPart::CheckEncrypt, int (CSearchPart::*)(const char*, uint*));
IS(&CSearchPart::GetEventPara, int (CSearchPart::*)(uint, uint*, uint*));
IS(&CSearchPart::GetRecordExtPara, int (CSearchPart::*)(uint, uint*));
IS(&CSearchPart::PrintInitInfo, int (CSearchPart::*)());
IS(&CSearchPart::GetLastBlock, int (CSearchPart::*)());
IS(&CSearchPart::GetSearchRegion, int (CSearchPart::*)(InputTime_t, OutputTime_t*));
IS(&CSearchPart::InitSearch, int (CSearchPart::*)(SearchParam_t*, OutputTime_t*));
IS(&CSearchPart::GetSearchStartBlock, int (CSearchPart::*)(uint, uint));
IS(&CSearchPart::BinSearchStartBlock, int (CSearchPart::*)(uint, uint, uint, uint));
IS(&CSearchPart::GetSpace, int (CSearchPart::*)(DiskSpaceInfo_t*));
IS(&CSearchPart::SearchMedia, int (CSearchPart::*)(SearchParam_t*, uint, RecordList*));
IS(&CSearchPart::SearchEvent, int (CSearchPart::*)(SearchParam_t*, EventList*));
IS(&CSearchPart::SearchNormalMedia,
   int (CSearchPart::*)(uint, uint, uint, uint, long long, uint, RecordList*));
IS(&CSearchPart::SearchNormalEvent, int (CSearchPart::*)(uint, uint, long long, uint, EventList*));
IS(&CSearchPart::SearchUnitMedia, int (CSearchPart::*)(uint, uint, RecordList*, EventList*));
IS(&CSearchPart::AddUnitToList, int (CSearchPart::*)(uint, BlockHead_t*, UnitList*, int));
IS(&CSearchPart::GetBadUnitList, int (CSearchPart::*)(UnitList*));
IS(&CSearchPart::SearchUnitList, int (CSearchPart::*)(uint, uint, uint, UnitList*));
IS(&CSearchPart::GetUnitList, int (CSearchPart::*)(UnitList*));
IS(&CSearchPart::GetUnitRecMap, int (CSearchPart::*)(uint, int));
IS(&CSearchPart::AddDate2List, int (CSearchPart::*)(DayList*, uint));
IS(&CSearchPart::AddDateToList, int (CSearchPart::*)(BlockHead_t*, BlockTail_t*, DayList*, int, uint*));
IS(&CSearchPart::BinGetDataMap, int (CSearchPart::*)(UnitTimeItem_t*, UnitTimeItem_t*, DayList*));
IS(&CSearchPart::SearchDataMap, int (CSearchPart::*)(uint, uint, uint, DayList*));
IS(&CSearchPart::GetDateMap, int (CSearchPart::*)(DayList*));

// ---- disk search ----------------------------------------------------------------------------
POLY(CSearchDisk);
HANDLE(CSearchDisk);
IS(&CSearchDisk::Init, int (CSearchDisk::*)(PartAccess_t*));
IS(&CSearchDisk::Quit, int (CSearchDisk::*)());
IS(&CSearchDisk::SearchMedia, int (CSearchDisk::*)(SearchParam_t*, RecordList*));
IS(&CSearchDisk::SearchUnitMedia, int (CSearchDisk::*)(uint, RecordList*, EventList*));
IS(&CSearchDisk::SearchEvent, int (CSearchDisk::*)(SearchParam_t*, EventList*));
IS(&CSearchDisk::GetDateInfo, int (CSearchDisk::*)(DayList*));
IS(&CSearchDisk::GetUnitInfo, int (CSearchDisk::*)(UnitList*));
IS(&CSearchDisk::GetInvalidUnit, int (CSearchDisk::*)(UnitList*));
IS(&CSearchDisk::GetSpaceInfo, int (CSearchDisk::*)(DiskSpaceInfo_t*));
IS(&CSearchDisk::GetEncryptInfo, int (CSearchDisk::*)(uint*));
IS(&CSearchDisk::CheckEncryptInfo, int (CSearchDisk::*)(unsigned char*));
IS(&CSearchDisk::GetLastRecBlockId, int (CSearchDisk::*)());
IS(&CSearchDisk::GetBlockRecMap, int (CSearchDisk::*)(uint, int));
IS(&CSearchDisk::MixSearch, int (CSearchDisk::*)(SearchParam_t*, RecordList*));
IS(&CSearchDisk::MixSearchUnit, int (CSearchDisk::*)(uint, RecordList*, EventList*));
IS(&CSearchDisk::MixBuildList, int (CSearchDisk::*)(RecordList*, EventList*, SearchParam_t*, RecordList*));
IS(&IntervalIntersection, int (*)(uint, uint, uint, uint, uint*, uint*));

// ---- block reader ---------------------------------------------------------------------------
POLY(CReadBlock);
HANDLE(CReadBlock);
IS(&CReadBlock::OpenBlock, int (CReadBlock::*)(uint, uint, PartAccess_t*, uint, int));
IS(&CReadBlock::CloseBlock, int (CReadBlock::*)());
IS(&CReadBlock::GetBlockInfo, int (CReadBlock::*)(BlockHead_t*, BlockTail_t*));
IS(&CReadBlock::GetRecSegInfo, int (CReadBlock::*)(RecordItem_t*, RecSegItem_t*));
IS(&CReadBlock::GetBlockIndex, int (CReadBlock::*)(int));
IS(&CReadBlock::ReadBlockIndex, int (CReadBlock::*)());
IS(&CReadBlock::RebuiltBlockIndex, int (CReadBlock::*)());
IS(&CReadBlock::RefreshBlockIndex, int (CReadBlock::*)(FrameInfo_t*, uint, EventHead_t*));
IS(&CReadBlock::GetOffset, int (CReadBlock::*)(uint));
IS(&CReadBlock::CheckValidChn, int (CReadBlock::*)(FrameHead_t*));
IS(&CReadBlock::CheckFrameHead, int (CReadBlock::*)(FrameHead_t*));
IS(&CReadBlock::GetFrame, int (CReadBlock::*)(uint, FrameHead_t*, void**, int*));
IS(&CReadBlock::ForwardReadFrame, int (CReadBlock::*)(FrameHead_t*, void**));
IS(&CReadBlock::ReadFrame, int (CReadBlock::*)(FrameHead_t*, void**));
IS(&CReadBlock::ReadBlockFrame, int (CReadBlock::*)(FrameHead_t*, void**));
IS(&CReadBlock::SeekTime, int (CReadBlock::*)(int, RecordItem_t*, long));
IS(&CReadBlock::SeekOffs, int (CReadBlock::*)(int, RecordItem_t*, uint, int));
IS(&CReadBlock::GetIFrameIndex, int (CReadBlock::*)());
IS(&CReadBlock::ReadIFrame, int (CReadBlock::*)(uint, FrameHead_t*, void**));
IS(&CReadBlock::ReadNextIFrame, int (CReadBlock::*)(FrameHead_t*, void**));
IS(&CReadBlock::ReadPrevIFrame, int (CReadBlock::*)(FrameHead_t*, void**));

// ---- partition reader -----------------------------------------------------------------------
POLY(CReadPart);
HANDLE(CReadPart);
IS(&CReadPart::Init, int (CReadPart::*)(PartAccess_t*));
IS(&CReadPart::Quit, int (CReadPart::*)());
IS(&CReadPart::PrintInitInfo, int (CReadPart::*)());
IS(&CReadPart::GetBadBlockTab, int (CReadPart::*)());
IS(&CReadPart::IsValidBlock, int (CReadPart::*)(uint, uint, uint));
IS(&CReadPart::GetPrevValidBlock, int (CReadPart::*)(uint, uint, uint, uint, uint*));
IS(&CReadPart::GetNextValidBlock, int (CReadPart::*)(uint, uint, uint, uint, uint*));
IS(&CReadPart::BeginReader, PartReadHandle_st* (CReadPart::*)(int, RecordItem_t*));
IS(&CReadPart::EndReader, int (CReadPart::*)(PartReadHandle_st*));
IS(&CReadPart::SeekTime, int (CReadPart::*)(PartReadHandle_st*, long*));
IS(&CReadPart::SeekPos, int (CReadPart::*)(PartReadHandle_st*, uint*));
IS(&CReadPart::ReadFrame, int (CReadPart::*)(PartReadHandle_st*, FrameInfo_t*, void**));
IS(&CReadPart::ReadNextIFrame, int (CReadPart::*)(PartReadHandle_st*, FrameInfo_t*, void**));
IS(&CReadPart::ReadPrevIFrame, int (CReadPart::*)(PartReadHandle_st*, FrameInfo_t*, void**));
IS(&CReadPart::ReadUnitFrame, int (CReadPart::*)(PartReadHandle_st*, FrameInfo_t*, void**));
IS(&CReadPart::GetRecInfo, int (CReadPart::*)(EncodeParam_t*, RecordItem_t*, int));
IS(&CReadPart::GetEncrypt, int (CReadPart::*)(uint*, uint*, unsigned char*, int));
IS(&CReadPart::CheckEncrypt, int (CReadPart::*)(unsigned char*));
IS(&DebugLog, int (*)(const char*, ...));

// ---- disk reader ----------------------------------------------------------------------------
POLY(CReadDisk);
HANDLE(CReadDisk);
IS(&CReadDisk::Init, int (CReadDisk::*)(PartAccess_t*));
IS(&CReadDisk::Quit, int (CReadDisk::*)());
IS(&CReadDisk::StartRead, void* (CReadDisk::*)(int, RecordItem_t*));
IS(&CReadDisk::StopRead, int (CReadDisk::*)(void*));
IS(&CReadDisk::GetInfo, int (CReadDisk::*)(EncodeParam_t*, RecordItem_t*, int));
IS(&CReadDisk::SeekTime, int (CReadDisk::*)(void*, long*));
IS(&CReadDisk::SeekPos, int (CReadDisk::*)(void*, uint*));
IS(&CReadDisk::ReadFrame, int (CReadDisk::*)(void*, FrameInfo_t*, void**));
IS(&CReadDisk::ReadNextIFrame, int (CReadDisk::*)(void*, FrameInfo_t*, void**));
IS(&CReadDisk::ReadPrevIFrame, int (CReadDisk::*)(void*, FrameInfo_t*, void**));
IS(&CReadDisk::StartUnitRead, void* (CReadDisk::*)(int));
IS(&CReadDisk::StopUnitRead, int (CReadDisk::*)(void*));
IS(&CReadDisk::ReadUnitFrame, int (CReadDisk::*)(void*, FrameInfo_t*, void**));
IS(&CReadDisk::CheckEncryptInfo, int (CReadDisk::*)(unsigned char*));

// ---- dump -----------------------------------------------------------------------------------
POLY(CPrintDisk);
static_assert(sizeof(CPrintDisk) == sizeof(void*), "CPrintDisk has no data members");
IS(&CPrintDisk::Print, int (CPrintDisk::*)(PartAccess_t*, int, int (*)(void*, const char*, ...), void*));

} // namespace
