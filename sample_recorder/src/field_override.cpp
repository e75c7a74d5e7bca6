#include "sample_recorder/field_override.h"

#include <cstddef>

namespace sample_recorder {

namespace {

struct Field {
    const char* structure;
    const char* name;
    size_t offset;
    uint32_t elements; ///< 1 for a plain field
};

#define FIELD(structure, name)                                                                               \
    { #structure, #name, offsetof(structure, name), 1 }
#define ARRAY(structure, name)                                                                               \
    { #structure, #name, offsetof(structure, name), 32 }

constexpr Field kFields[] = {
    FIELD(PartHead_t, FormatFlag),      FIELD(PartHead_t, FmtVersion),
    FIELD(PartHead_t, BlkCount),        FIELD(PartHead_t, BlkSize),
    FIELD(PartHead_t, BBTabOffs),       FIELD(PartHead_t, BBCounterOffs),
    FIELD(PartHead_t, BBTabBakOffs),    FIELD(PartHead_t, BBCounterBakOffs),
    FIELD(PartHead_t, Encrypt),         FIELD(PartHead_t, EncryptMap),
    FIELD(BlockHead_t, ValidFlag),      FIELD(BlockHead_t, RecTime),
    FIELD(BlockHead_t, RecSeq),         FIELD(BlockHead_t, pre_RecTime),
    FIELD(BlockHead_t, AlmDelayTime),   FIELD(BlockHead_t, media_chn_bitmap),
    FIELD(BlkExtHead_t, ExtParaValid),  FIELD(BlkExtHead_t, ExtPara),
    ARRAY(BlkIndexHead_t, iframeCount), ARRAY(BlkIndexHead_t, recSegCount),
    FIELD(BlkIndexHead_t, eventCount),  FIELD(BlockTail_t, CloseState),
    FIELD(BlockTail_t, RecSeq),         FIELD(BlockTail_t, StartTime),
    FIELD(BlockTail_t, EndTime),        FIELD(BlockTailEx_t, RecSeq),
    FIELD(BlockTailEx_t, StartTime),    FIELD(BlockTailEx_t, EndTime),
};

#undef FIELD
#undef ARRAY

uint64_t StructureOffset(const PartitionImage& image, uint32_t block, const std::string& structure) {
    if (structure == "PartHead_t") {
        return 0;
    }
    if (block >= image.BlockCount()) {
        throw Error("there is no block " + std::to_string(block) + " to override a field of");
    }
    if (structure == "BlkExtHead_t") {
        return image.ExtHeadOffset(block);
    }
    if (structure == "BlkIndexHead_t") {
        return image.IndexOffset(block);
    }
    if (structure == "BlockTail_t") {
        return image.TailOffset(block);
    }
    return structure == "BlockTailEx_t" ? image.TailExOffset(block) : image.HeadOffset(block);
}

/// The index in "name[5]", which must be below @p elements.
uint32_t IndexIn(const std::string& brackets, uint32_t elements) {
    size_t digits = 0;
    const unsigned long index = std::stoul(brackets.substr(1), &digits);
    if (brackets.compare(1 + digits, std::string::npos, "]") != 0 || index >= elements) {
        throw std::out_of_range(brackets);
    }
    return static_cast<uint32_t>(index);
}

} // namespace

void OverrideField(PartitionImage& image, uint32_t block, const std::string& structure,
                   const std::string& field, uint32_t value) {
    const std::string fullName = structure + "." + field;
    const size_t bracket = field.find('[');
    const std::string name = field.substr(0, bracket);
    for (const Field& known : kFields) {
        if (structure != known.structure || name != known.name ||
            (bracket == std::string::npos) != (known.elements == 1)) {
            continue;
        }
        uint32_t index = 0;
        if (bracket != std::string::npos) {
            try {
                index = IndexIn(field.substr(bracket), known.elements);
            } catch (const std::logic_error&) {
                throw Error(fullName + ": give an index from 0 to 31 in brackets");
            }
        }
        image.Put(StructureOffset(image, block, structure) + known.offset + index * sizeof value, value);
        return;
    }
    throw Error(fullName + ": no such field can be overridden");
}

} // namespace sample_recorder
