#ifndef TESTS_DAMAGE_FORMAT_FIELDS_H
#define TESTS_DAMAGE_FORMAT_FIELDS_H

/// @file format_fields.h
/// Every field of every structure on the disk, and the values that break readers.

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "disk_format.h"

namespace test_support {

/// What a field's bytes are.
enum class FieldKind {
    Numbers, ///< one number, or several independent ones
    Bytes,   ///< text, or bytes without use: all of them together
    Nested,  ///< structures, which have tables of their own
};

struct FormatField {
    const char* name;
    size_t offset;
    size_t width;    ///< bytes a number, or a structure
    size_t elements; ///< 1 for a plain field
    FieldKind kind;
};

/// The fields of one structure, in the order of their offsets. The tables leave nothing out: the compiler
/// compares them with the structures.
struct FormatStructure {
    const char* name;
    const FormatField* fields;
    size_t count;
};

extern const FormatStructure kPartHeadFields;
extern const FormatStructure kBlockHeadFields; ///< without its channel properties
extern const FormatStructure kChnPropFields;
extern const FormatStructure kBlkExtHeadFields;
extern const FormatStructure kFrameHeadFields;
extern const FormatStructure kEventHeadFields;
extern const FormatStructure kBlkIndexHeadFields;
extern const FormatStructure kIFrameItemFields;
extern const FormatStructure kRecSegItemFields;
extern const FormatStructure kEventIndexItemFields;
extern const FormatStructure kBlockTailFields;
extern const FormatStructure kBlockTailExFields;

/// A field on a disk.
struct FieldPlace {
    std::string name;   ///< "BlockTail_t.RecSeq of block 3"
    uint64_t offset;    ///< on the device
    size_t bytes;       ///< that it takes
    size_t numberWidth; ///< bytes a number in it: 1 for text
};

/// Appends the places of the fields of a structure that lies at @p offset.
/// @param where what to say of the place: " of block 3"
void AppendPlaces(const FormatStructure& structure, uint64_t offset, const std::string& where,
                  std::vector<FieldPlace>& places);

/// The bytes that a field is set to in turn: 0, 1, the numbers next to its value, and the extremes of signed
/// and unsigned numbers of its width. What it holds already is not among them.
std::vector<std::vector<uint8_t>> HostileValues(const std::vector<uint8_t>& held, size_t numberWidth);

} // namespace test_support

#endif // TESTS_DAMAGE_FORMAT_FIELDS_H
