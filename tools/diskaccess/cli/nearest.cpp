#include "cli/nearest.h"

#include <algorithm>
#include <cctype>

namespace diskaccess {

namespace {

std::string LowerCase(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

/// Letters to change, add, leave out or swap with their neighbour to make one word of the other.
size_t Slips(const std::string& a, const std::string& b) {
    std::vector<std::vector<size_t>> slips(a.size() + 1, std::vector<size_t>(b.size() + 1));
    for (size_t i = 0; i <= a.size(); ++i) {
        for (size_t j = 0; j <= b.size(); ++j) {
            if (i == 0 || j == 0) {
                slips[i][j] = std::max(i, j);
                continue;
            }
            const size_t changed = slips[i - 1][j - 1] + (a[i - 1] == b[j - 1] ? 0 : 1);
            slips[i][j] = std::min({changed, slips[i - 1][j] + 1, slips[i][j - 1] + 1});
            if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1]) {
                slips[i][j] = std::min(slips[i][j], slips[i - 2][j - 2] + 1);
            }
        }
    }
    return slips[a.size()][b.size()];
}

} // namespace

std::string Nearest(const std::string& typed, const std::vector<std::string>& words) {
    constexpr size_t kMostSlips = 2;
    constexpr size_t kLeastBeginning = 3;
    constexpr size_t kLongestWord = 64; // what is longer is no slip, and is not worth the work
    if (typed.size() > kLongestWord) {
        return "";
    }
    const std::string meant = LowerCase(typed);
    const size_t limit = std::min(kMostSlips, meant.size() / 2);
    std::string nearest;
    size_t fewest = kLongestWord;
    for (const std::string& word : words) {
        const bool begins = meant.size() >= kLeastBeginning && word.rfind(meant, 0) == 0;
        const size_t slips = Slips(meant, word);
        if ((begins || slips <= limit) && slips < fewest) {
            nearest = word;
            fewest = slips;
        }
    }
    return nearest;
}

} // namespace diskaccess
