#ifndef MEDIA_SRC_LETTERS_H
#define MEDIA_SRC_LETTERS_H

#include <cstdint>
#include <string>

#include "media/stills.h"

namespace media {

/// Pixels of a letter, with the space after it.
constexpr uint32_t kLetterWidth = 6;
constexpr uint32_t kLetterHeight = 7;

/// Red, green and blue.
struct Colour {
    uint8_t red, green, blue;
};

/// Draws a line of text into a picture, as far as it fits.
/// @param x, y its upper left corner
/// @param scale pixels a dot of the letters
/// @param width pixels that it may take
void DrawText(Picture& picture, const std::string& text, uint32_t x, uint32_t y, uint32_t scale,
              uint32_t width, Colour colour);

} // namespace media

#endif // MEDIA_SRC_LETTERS_H
