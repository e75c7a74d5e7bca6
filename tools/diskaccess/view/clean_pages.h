#ifndef DISKACCESS_VIEW_CLEAN_PAGES_H
#define DISKACCESS_VIEW_CLEAN_PAGES_H

/// @file clean_pages.h
/// Memory that holds nothing but what the files of the program and its libraries hold.

#include <link.h>

namespace diskaccess::view {

/// Gives such memory of the program and of all its libraries back to the system. The dynamic loader reads most pages of
/// every library once, at the start; they would stay resident for as long as the program runs. What is used again comes
/// back from the files, most often out of the page cache. May be called while other threads run.
void GiveCleanPagesBack();

/// The same, of one of them. Left alone are segments that may be written to, and an object whose code was changed when it
/// was loaded: what was written is in no file.
void GiveCleanPagesBack(const dl_phdr_info& object);

} // namespace diskaccess::view

#endif // DISKACCESS_VIEW_CLEAN_PAGES_H
