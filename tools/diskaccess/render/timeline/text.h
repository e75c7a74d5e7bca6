#ifndef DISKACCESS_RENDER_TIMELINE_TEXT_H
#define DISKACCESS_RENDER_TIMELINE_TEXT_H

#include <cstddef>
#include <string>

#include "recordings/coverage.h"
#include "render/timeline/labels.h"

namespace diskaccess::timeline {

/// What a terminal can show.
struct TextStyle {
    size_t width = 80;   ///< columns
    bool unicode = true; ///< else ASCII alone
    bool colour = false;
};

/// A strip a journey: a row a channel, with rows for alarms, events and damage where there are any.
std::string Text(const recordings::Coverage& coverage, const Labels& labels, const TextStyle& style);

} // namespace diskaccess::timeline

#endif // DISKACCESS_RENDER_TIMELINE_TEXT_H
