#ifndef DISKACCESS_ENDING_H
#define DISKACCESS_ENDING_H

#include <string>

namespace diskaccess {

inline bool EndsWith(const std::string& text, const std::string& end) {
    return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

/// In lower case: names of files that come from elsewhere end as they like.
inline std::string Lowered(std::string text) {
    for (char& c : text) {
        c = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    }
    return text;
}

} // namespace diskaccess

#endif // DISKACCESS_ENDING_H
