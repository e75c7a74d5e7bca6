#ifndef SAMPLE_RECORDER_FIELD_OVERRIDE_H
#define SAMPLE_RECORDER_FIELD_OVERRIDE_H

#include <cstdint>
#include <string>

#include "sample_recorder/partition_image.h"

namespace sample_recorder {

/// Overwrites one 32-bit field of a structure on the disk, by the names that disk_format.h gives them:
/// OverrideField(image, 3, "BlockTail_t", "RecSeq", 7). Arrays are indexed: "iframeCount[5]".
/// @param block the block; not used for PartHead_t
void OverrideField(PartitionImage& image, uint32_t block, const std::string& structure,
                   const std::string& field, uint32_t value);

} // namespace sample_recorder

#endif // SAMPLE_RECORDER_FIELD_OVERRIDE_H
