#ifndef DISKACCESS_RENDER_TIMELINE_PAGE_H
#define DISKACCESS_RENDER_TIMELINE_PAGE_H

namespace diskaccess::timeline {

/// page.js and page.css, which are made part of the program.
extern const char* const kPageScript;
extern const char* const kPageStyle;

} // namespace diskaccess::timeline

#endif // DISKACCESS_RENDER_TIMELINE_PAGE_H
