#include "picture_kind.h"

#include <algorithm>

namespace recordings {

namespace {

/// Bytes of a payload that are looked at.
constexpr uint32_t kBytesThatTell = 64;

/// Goes through the units of an elementary stream: each begins after 00 00 01.
const uint8_t* NextUnit(const uint8_t* at, const uint8_t* end) {
    for (; end - at > 4; ++at) {
        if (at[0] == 0 && at[1] == 0 && at[2] == 1) {
            return at + 3;
        }
    }
    return nullptr;
}

/// A unit's head of one byte (H.264) or of two, of which the second is 1 in the base layer (H.265). Delimiters and
/// messages come before the picture, and tell nothing.
PictureKind KindOfUnit(const uint8_t* unit) {
    const unsigned h265 = unit[0] >> 1;
    if ((unit[0] & 0x81) == 0 && unit[1] == 1) {
        if ((h265 >= 16 && h265 <= 21) || (h265 >= 32 && h265 <= 34)) {
            return PictureKind::Key;
        }
        if (h265 <= 1 || (h265 >= 6 && h265 <= 9)) { // those between do not occur in the base layer
            return PictureKind::Other;
        }
    }
    switch (unit[0] & 0x9F) {
    case 5: // a picture by itself, and the sets before it
    case 7:
    case 8:
        return PictureKind::Key;
    case 1:
        return PictureKind::Other;
    default:
        return PictureKind::Unknown;
    }
}

} // namespace

PictureKind PictureKindAt(FrameArea& area, const FoundFrame& frame) {
    const uint32_t bytes = std::min(frame.size, kBytesThatTell);
    const uint8_t* const data = area.At(frame.offset + kHeadBytes, bytes);
    return data == nullptr ? PictureKind::Unknown : PictureKindOf(data, bytes);
}

PictureKind PictureKindOf(const uint8_t* data, size_t size) {
    const uint8_t* const end = data + size;
    const bool starts =
        size >= 5 && data[0] == 0 && data[1] == 0 && (data[2] == 1 || (data[2] == 0 && data[3] == 1));
    for (const uint8_t* unit = starts ? NextUnit(data, end) : nullptr; unit != nullptr;
         unit = NextUnit(unit, end)) {
        const PictureKind kind = KindOfUnit(unit);
        if (kind != PictureKind::Unknown) {
            return kind;
        }
    }
    return PictureKind::Unknown;
}

bool CarriesParameters(const uint8_t* data, size_t size) {
    const uint8_t* const end = data + size;
    bool sequence = false;
    bool picture = false;
    for (const uint8_t* unit = NextUnit(data, end); unit != nullptr; unit = NextUnit(unit, end)) {
        const unsigned h264 = unit[0] & 0x1F;
        const bool h265 = (unit[0] & 0x81) == 0 && unit[1] == 1; // the head of a unit of the base layer
        const unsigned type = h265 ? unit[0] >> 1 : h264;
        if (type == (h265 ? 33u : 7u)) {
            sequence = true;
        } else if (type == (h265 ? 34u : 8u)) {
            picture = true;
        } else if (h265 ? type <= 31 : type == 1 || type == 5) {
            break;
        }
    }
    return sequence && picture;
}

} // namespace recordings
