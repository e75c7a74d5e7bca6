#ifndef MEDIA_SHEET_H
#define MEDIA_SHEET_H

/// @file sheet.h
/// Many small pictures on one page.

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "media/stills.h"

namespace media {

/// The most columns that a sheet has.
constexpr size_t kMostSheetColumns = 48;

/// A place of a sheet.
struct SheetCell {
    Picture picture;                ///< without pixels: none
    std::vector<std::string> lines; ///< stand above it
    std::string instead;            ///< why there is no picture
};

/// The cells of a sheet, row by row.
struct Sheet {
    std::string title;
    size_t columns = 0;
    std::vector<SheetCell> cells;
};

/// How wide the cells of a sheet are, in pixels.
uint32_t SheetCellWidth(size_t columns);

/// A picture at most so wide, with its proportions.
/// @throws Error when it cannot be made
Picture Shrink(const Picture& picture, uint32_t width);

/// Draws a sheet: its title, and each cell's lines with the picture below them, made to fit. Texts are drawn in capitals; a
/// character that the program cannot draw becomes a box.
/// @throws Error when it cannot be made
Picture DrawSheet(const Sheet& sheet);

} // namespace media

#endif // MEDIA_SHEET_H
