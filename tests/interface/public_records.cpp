// Takes one of each record of the public headers, so that the description of the binary interface has also those that
// no function of the library takes.

#include <disk_access.h>

extern "C" __attribute__((visibility("default"))) void
TakePublicRecords(const PartAccess_t*, const block_info_t*, const dev_op_st*, const bolck_op_st*,
                  const PartHead_t*, const ChnProp_t*, const BlockHead_t*, const BlkExtHead_t*,
                  const BlockTail_t*, const BlockTailEx_t*, const BlkIndexHead_t*, const IFrameItem_t*,
                  const RecSegItem_t*, const EventIndexItem_t*, const FrameHead_t*, const EventHead_t*,
                  const FrameInfo_t*, const EncodeParam_t*, const PartReadHandle_st*, const SearchParam_t*,
                  const RecordItem_t*, const EventItem_t*, const EventPeriodItem_t*, const UnitItem_t*,
                  const UnitTimeItem_t*, const InputTime_t*, const OutputTime_t*, const DiskSpaceInfo_t*) {}
