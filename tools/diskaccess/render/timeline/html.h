#ifndef DISKACCESS_RENDER_TIMELINE_HTML_H
#define DISKACCESS_RENDER_TIMELINE_HTML_H

#include <string>

#include "recordings/coverage.h"
#include "render/timeline/labels.h"

namespace diskaccess::timeline {

/// The journeys as one page that needs nothing else and loads nothing: its policy lets only its own script and style run,
/// which it names by their hashes. What is from the disk goes in as data, and becomes text, never markup.
std::string Html(const recordings::Coverage& coverage, const Labels& labels);

} // namespace diskaccess::timeline

#endif // DISKACCESS_RENDER_TIMELINE_HTML_H
