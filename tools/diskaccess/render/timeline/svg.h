#ifndef DISKACCESS_RENDER_TIMELINE_SVG_H
#define DISKACCESS_RENDER_TIMELINE_SVG_H

#include <string>

#include "recordings/coverage.h"
#include "render/timeline/labels.h"

namespace diskaccess::timeline {

/// A picture of the journeys, a strip each, that needs nothing else.
std::string Svg(const recordings::Coverage& coverage, const Labels& labels);

} // namespace diskaccess::timeline

#endif // DISKACCESS_RENDER_TIMELINE_SVG_H
