#ifndef DISKACCESS_ENDING_H
#define DISKACCESS_ENDING_H

#include <string>

namespace diskaccess {

inline bool EndsWith(const std::string& text, const std::string& end) {
    return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

} // namespace diskaccess

#endif // DISKACCESS_ENDING_H
