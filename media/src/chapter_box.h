#ifndef MEDIA_SRC_CHAPTER_BOX_H
#define MEDIA_SRC_CHAPTER_BOX_H

#include <cstddef>
#include <vector>

#include "media/sink.h"
#include "recordings/source.h"

namespace media {

/// Chapters that the list of chapters in an MP4 file has room for.
constexpr size_t kMostInChapterBox = 255;

/// The list of chapters in an MP4 file, with places in microseconds as times. Some players read it, and others the track of
/// chapters, which has the same. Empty when there is none that can be read.
std::vector<Chapter> ReadChapterBox(const recordings::Source& file);

} // namespace media

#endif // MEDIA_SRC_CHAPTER_BOX_H
