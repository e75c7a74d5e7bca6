#ifndef DISKACCESS_RENDER_HTML_TEXT_H
#define DISKACCESS_RENDER_HTML_TEXT_H

#include <string>

namespace diskaccess {

/// Text as it stands in the elements and attributes of a page or of an SVG picture.
std::string HtmlText(const std::string& text);

/// Bytes in base64.
std::string Base64(const std::string& bytes);

/// "sha256-..." of a script or style, as a content security policy names it.
std::string PolicyHash(const std::string& text);

} // namespace diskaccess

#endif // DISKACCESS_RENDER_HTML_TEXT_H
