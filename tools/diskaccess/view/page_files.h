#ifndef DISKACCESS_VIEW_PAGE_FILES_H
#define DISKACCESS_VIEW_PAGE_FILES_H

#include <string>
#include <string_view>

namespace diskaccess::view {

/// A file of the page, which is part of the program.
struct PageFile {
    std::string_view path; ///< "/app.js"
    std::string_view type; ///< "text/javascript"
    std::string_view bytes;
};

/// The file of a path; null when the page has no such file.
const PageFile* FindPageFile(const std::string& path);

} // namespace diskaccess::view

#endif // DISKACCESS_VIEW_PAGE_FILES_H
