#ifndef DISKACCESS_RENDER_REPORT_PAGE_H
#define DISKACCESS_RENDER_REPORT_PAGE_H

#include <string>
#include <vector>

#include "render/renderer.h"

namespace diskaccess {

/// A picture of a report, whose bytes stand in the page.
struct ReportPicture {
    std::string type; ///< "image/jpeg"; empty: there is none
    std::string bytes;
    std::string caption;
    std::string instead; ///< stands for a picture that is not there
};

/// A section of a report: its parts, and then its pictures.
struct ReportSection {
    std::string title;
    std::vector<Part> parts;
    std::vector<ReportPicture> pictures;
    bool wide = false; ///< each picture takes the width of the page
};

/// A report as one page that needs nothing else, loads nothing and runs nothing: its policy allows its own style, named by
/// its hash, and pictures that stand in it. All texts become text, never markup.
std::string ReportPage(const std::string& title, const std::vector<ReportSection>& sections,
                       const TimeZone& zone);

} // namespace diskaccess

#endif // DISKACCESS_RENDER_REPORT_PAGE_H
