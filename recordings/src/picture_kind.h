#ifndef RECORDINGS_PICTURE_KIND_H
#define RECORDINGS_PICTURE_KIND_H

#include <cstddef>
#include <cstdint>

#include "found_frames.h"
#include "frame_area.h"

namespace recordings {

/// What the payload of a video frame is.
enum class PictureKind : uint8_t {
    Unknown, ///< of an encoding that is not known here
    Key,     ///< H.264 or H.265: parameter sets, or a picture that can be decoded by itself
    Other    ///< H.264 or H.265: a picture that needs others
};

/// Tells what begins a payload.
PictureKind PictureKindOf(const uint8_t* data, size_t size);
/// The same of the payload of a frame.
PictureKind PictureKindAt(FrameArea& area, const FoundFrame& frame);

/// Whether the units of a payload up to its first picture hold the parameters that it takes to decode it.
bool CarriesParameters(const uint8_t* data, size_t size);

} // namespace recordings

#endif // RECORDINGS_PICTURE_KIND_H
