#include "damage/format_fields.h"

#include <algorithm>
#include <cstring>
#include <type_traits>

namespace test_support {

namespace {

template <typename Field>
using ElementOf = std::remove_extent_t<Field>;

template <typename Field>
constexpr size_t kElements = sizeof(Field) / sizeof(ElementOf<Field>);

#define FIELD(structure, name, kind)                                                                         \
    {                                                                                                        \
#name, offsetof(structure, name), sizeof(ElementOf <decltype(structure::name)>),                     \
            kElements < decltype(structure::name)>, FieldKind::kind                                          \
    }
#define NUMBERS(structure, name) FIELD(structure, name, Numbers)
#define BYTES(structure, name) FIELD(structure, name, Bytes)

constexpr FormatField kPartHead[] = {
    NUMBERS(PartHead_t, FormatFlag),   NUMBERS(PartHead_t, FmtVersion),
    NUMBERS(PartHead_t, BlkCount),     NUMBERS(PartHead_t, BlkSize),
    NUMBERS(PartHead_t, BBTabOffs),    NUMBERS(PartHead_t, BBCounterOffs),
    NUMBERS(PartHead_t, BBTabBakOffs), NUMBERS(PartHead_t, BBCounterBakOffs),
    BYTES(PartHead_t, Description),    NUMBERS(PartHead_t, Encrypt),
    NUMBERS(PartHead_t, EncryptMap),   BYTES(PartHead_t, CipherCode),
};

constexpr FormatField kBlockHead[] = {
    NUMBERS(BlockHead_t, ValidFlag),    NUMBERS(BlockHead_t, RecTime),
    NUMBERS(BlockHead_t, RecSeq),       NUMBERS(BlockHead_t, pre_RecTime),
    NUMBERS(BlockHead_t, AlmDelayTime), BYTES(BlockHead_t, VehicleNum),
    BYTES(BlockHead_t, VehicleID),      NUMBERS(BlockHead_t, media_chn_bitmap),
    FIELD(BlockHead_t, prop, Nested),
};

constexpr FormatField kChnProp[] = {
    NUMBERS(ChnProp_t, Bitrate),   NUMBERS(ChnProp_t, VType),
    NUMBERS(ChnProp_t, FrameRate), NUMBERS(ChnProp_t, Resolution),
    NUMBERS(ChnProp_t, gop),       NUMBERS(ChnProp_t, Sample),
    NUMBERS(ChnProp_t, BitWidth),  NUMBERS(ChnProp_t, audio_frame_len),
    NUMBERS(ChnProp_t, AType),     NUMBERS(ChnProp_t, propRes),
    BYTES(ChnProp_t, Reserved),
};

constexpr FormatField kBlkExtHead[] = {
    NUMBERS(BlkExtHead_t, ExtParaValid),
    NUMBERS(BlkExtHead_t, ExtPara),
    BYTES(BlkExtHead_t, Reserved),
};

constexpr FormatField kFrameHead[] = {
    NUMBERS(FrameHead_t, pts), NUMBERS(FrameHead_t, sync), NUMBERS(FrameHead_t, type),
    NUMBERS(FrameHead_t, chn), NUMBERS(FrameHead_t, len),
};

constexpr FormatField kEventHead[] = {
    NUMBERS(EventHead_t, type),
    NUMBERS(EventHead_t, Reserved1),
    NUMBERS(EventHead_t, Indexed),
    BYTES(EventHead_t, Reserved2),
};

constexpr FormatField kBlkIndexHead[] = {
    NUMBERS(BlkIndexHead_t, iframeCount),
    NUMBERS(BlkIndexHead_t, recSegCount),
    NUMBERS(BlkIndexHead_t, eventCount),
};

constexpr FormatField kIFrameItem[] = {
    NUMBERS(IFrameItem_t, pts),
    NUMBERS(IFrameItem_t, pos),
    NUMBERS(IFrameItem_t, Reserved),
};

constexpr FormatField kRecSegItem[] = {
    NUMBERS(RecSegItem_t, s),    NUMBERS(RecSegItem_t, e),         NUMBERS(RecSegItem_t, spos),
    NUMBERS(RecSegItem_t, epos), NUMBERS(RecSegItem_t, totalsize),
};

constexpr FormatField kEventIndexItem[] = {
    NUMBERS(EventIndexItem_t, type),
    NUMBERS(EventIndexItem_t, pts),
    NUMBERS(EventIndexItem_t, pos),
    NUMBERS(EventIndexItem_t, Reserved),
};

constexpr FormatField kBlockTail[] = {
    NUMBERS(BlockTail_t, Reserved),  NUMBERS(BlockTail_t, CloseState), NUMBERS(BlockTail_t, RecSeq),
    NUMBERS(BlockTail_t, StartTime), NUMBERS(BlockTail_t, EndTime),
};

constexpr FormatField kBlockTailEx[] = {
    NUMBERS(BlockTailEx_t, RecSeq),
    NUMBERS(BlockTailEx_t, StartTime),
    NUMBERS(BlockTailEx_t, EndTime),
};

#undef BYTES
#undef NUMBERS
#undef FIELD

/// Whether fields follow each other directly, from the first byte of a structure to its last. Numbers must be
/// as wide as numbers are.
template <size_t Count>
constexpr bool Covers(const FormatField (&fields)[Count], size_t size) {
    size_t end = 0;
    for (const FormatField& field : fields) {
        const bool number = field.width == 1 || field.width == 2 || field.width == 4 || field.width == 8;
        if (field.offset != end || (field.kind != FieldKind::Nested && !number)) {
            return false;
        }
        end += field.width * field.elements;
    }
    return end == size;
}

static_assert(Covers(kPartHead, sizeof(PartHead_t)), "a field of the partition head is missing");
static_assert(Covers(kBlockHead, sizeof(BlockHead_t)), "a field of the block head is missing");
static_assert(Covers(kChnProp, sizeof(ChnProp_t)), "a field of the channel properties is missing");
static_assert(Covers(kBlkExtHead, sizeof(BlkExtHead_t)), "a field of the extended head is missing");
static_assert(Covers(kFrameHead, sizeof(FrameHead_t)), "a field of the frame head is missing");
static_assert(Covers(kEventHead, sizeof(EventHead_t)), "a field of the event head is missing");
static_assert(Covers(kBlkIndexHead, sizeof(BlkIndexHead_t)), "a field of the index head is missing");
static_assert(Covers(kIFrameItem, sizeof(IFrameItem_t)), "a field of the I-frame entry is missing");
static_assert(Covers(kRecSegItem, sizeof(RecSegItem_t)), "a field of the record segment is missing");
static_assert(Covers(kEventIndexItem, sizeof(EventIndexItem_t)), "a field of the event entry is missing");
static_assert(Covers(kBlockTail, sizeof(BlockTail_t)), "a field of the tail is missing");
static_assert(Covers(kBlockTailEx, sizeof(BlockTailEx_t)), "a field of the extended tail is missing");

std::vector<uint8_t> LittleEndian(uint64_t value, size_t width) {
    std::vector<uint8_t> bytes(width);
    for (size_t i = 0; i < width; ++i) {
        bytes[i] = static_cast<uint8_t>(value >> 8 * i);
    }
    return bytes;
}

uint64_t NumberIn(const std::vector<uint8_t>& bytes, size_t at, size_t width) {
    uint64_t value = 0;
    for (size_t i = 0; i < width; ++i) {
        value |= uint64_t{bytes[at + i]} << 8 * i;
    }
    return value;
}

} // namespace

const FormatStructure kPartHeadFields = {"PartHead_t", kPartHead, std::size(kPartHead)};
const FormatStructure kBlockHeadFields = {"BlockHead_t", kBlockHead, std::size(kBlockHead)};
const FormatStructure kChnPropFields = {"ChnProp_t", kChnProp, std::size(kChnProp)};
const FormatStructure kBlkExtHeadFields = {"BlkExtHead_t", kBlkExtHead, std::size(kBlkExtHead)};
const FormatStructure kFrameHeadFields = {"FrameHead_t", kFrameHead, std::size(kFrameHead)};
const FormatStructure kEventHeadFields = {"EventHead_t", kEventHead, std::size(kEventHead)};
const FormatStructure kBlkIndexHeadFields = {"BlkIndexHead_t", kBlkIndexHead, std::size(kBlkIndexHead)};
const FormatStructure kIFrameItemFields = {"IFrameItem_t", kIFrameItem, std::size(kIFrameItem)};
const FormatStructure kRecSegItemFields = {"RecSegItem_t", kRecSegItem, std::size(kRecSegItem)};
const FormatStructure kEventIndexItemFields = {"EventIndexItem_t", kEventIndexItem,
                                               std::size(kEventIndexItem)};
const FormatStructure kBlockTailFields = {"BlockTail_t", kBlockTail, std::size(kBlockTail)};
const FormatStructure kBlockTailExFields = {"BlockTailEx_t", kBlockTailEx, std::size(kBlockTailEx)};

void AppendPlaces(const FormatStructure& structure, uint64_t offset, const std::string& where,
                  std::vector<FieldPlace>& places) {
    for (size_t i = 0; i < structure.count; ++i) {
        const FormatField& field = structure.fields[i];
        const std::string name = std::string(structure.name) + "." + field.name;
        if (field.kind == FieldKind::Bytes) {
            places.push_back(
                {name + where, offset + field.offset, field.width * field.elements, field.width});
        }
        for (size_t k = 0; field.kind == FieldKind::Numbers && k < field.elements; ++k) {
            const std::string index = field.elements == 1 ? "" : "[" + std::to_string(k) + "]";
            places.push_back(
                {name + index + where, offset + field.offset + k * field.width, field.width, field.width});
        }
    }
}

std::vector<std::vector<uint8_t>> HostileValues(const std::vector<uint8_t>& held, size_t numberWidth) {
    const uint64_t top = uint64_t{1} << (8 * numberWidth - 1);
    std::vector<std::vector<uint8_t>> values;
    const auto add = [&](auto valueOf) {
        std::vector<uint8_t> bytes;
        for (size_t at = 0; at < held.size(); at += numberWidth) {
            const std::vector<uint8_t> number =
                LittleEndian(valueOf(NumberIn(held, at, numberWidth)), numberWidth);
            bytes.insert(bytes.end(), number.begin(), number.end());
        }
        if (bytes != held && std::find(values.begin(), values.end(), bytes) == values.end()) {
            values.push_back(bytes);
        }
    };
    for (const uint64_t value : {uint64_t{0}, uint64_t{1}, top - 1, top, uint64_t{0} - 1}) {
        add([value](uint64_t) { return value; });
    }
    add([](uint64_t old) { return old - 1; });
    add([](uint64_t old) { return old + 1; });
    return values;
}

} // namespace test_support
