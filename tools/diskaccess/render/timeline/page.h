#ifndef DISKACCESS_RENDER_TIMELINE_PAGE_H
#define DISKACCESS_RENDER_TIMELINE_PAGE_H

namespace diskaccess::timeline {

/// page.js and page.css, which are made part of the program; and report.css, for reports.
extern const char* const kPageScript;
extern const char* const kPageStyle;
extern const char* const kReportStyle;

} // namespace diskaccess::timeline

#endif // DISKACCESS_RENDER_TIMELINE_PAGE_H
