#ifndef MEDIA_PICTURE_SERIES_H
#define MEDIA_PICTURE_SERIES_H

/// @file picture_series.h
/// Pictures that follow each other, for what shows recordings but cannot decode them.

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace media {

/// A video frame of a camera.
struct SeriesFrame {
    std::vector<uint8_t> payload;
    bool wanted = true; ///< else it is decoded for those after it alone
};

/// The picture of a wanted frame, as a JPEG file. Empty when none comes of the frame, or only a damaged one.
using SeriesPicture = std::vector<uint8_t>;

/// Decodes frames of one camera, the first of them a key frame, in recording order.
///
/// As with TakeStills(), a child process decodes: one for each call, without privileges, with bounded time and memory. No
/// other thread of the process may be decoding at the same time.
/// @param height pictures that are higher are made smaller
/// @return as many pictures as frames are wanted, in their order; nothing when the child died, or was ended by its limits
/// @throws Error when no child can be started
std::optional<std::vector<SeriesPicture>> DecodeSeries(const std::vector<SeriesFrame>& frames,
                                                       uint32_t height);

} // namespace media

#endif // MEDIA_PICTURE_SERIES_H
