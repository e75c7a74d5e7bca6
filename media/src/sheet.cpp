#include "media/sheet.h"

#include <algorithm>
#include <cstring>

#include "letters.h"
#include "media/error.h"
#include "picture_codec.h"

namespace media {

namespace {

constexpr uint32_t kBytesAPixel = 3;
constexpr uint32_t kGap = 8;       ///< pixels between cells, and round all
constexpr uint32_t kLineSpace = 4; ///< pixels between lines of text

// A sheet of more columns has smaller pictures, so that its width stays within what programs open.
constexpr uint32_t kLargeCell = 320;
constexpr uint32_t kSmallCell = 160;
constexpr size_t kMostLargeCells = 24;

/// The shape of a cell where no picture tells.
constexpr uint32_t kUsualWidth = 4;
constexpr uint32_t kUsualHeight = 3;

constexpr Colour kPaper = {255, 255, 255};
constexpr Colour kInk = {20, 24, 28};
constexpr Colour kNoPicture = {226, 229, 232};
constexpr Colour kDimInk = {90, 96, 102};

Picture Blank(uint32_t width, uint32_t height, Colour colour) {
    Picture picture = {width, height, std::vector<uint8_t>(size_t{width} * height * kBytesAPixel)};
    for (size_t i = 0; i < picture.pixels.size(); i += kBytesAPixel) {
        picture.pixels[i] = colour.red;
        picture.pixels[i + 1] = colour.green;
        picture.pixels[i + 2] = colour.blue;
    }
    return picture;
}

/// Lays a picture over another, in which it has room.
void Place(Picture& onto, const Picture& picture, uint32_t x, uint32_t y) {
    const size_t row = size_t{picture.width} * kBytesAPixel;
    for (uint32_t line = 0; line < picture.height; ++line) {
        std::memcpy(onto.pixels.data() + ((size_t{y} + line) * onto.width + x) * kBytesAPixel,
                    picture.pixels.data() + line * row, row);
    }
}

/// Where things are, in pixels.
struct Layout {
    uint32_t cell = 0;             ///< width
    uint32_t scale = 1;            ///< of text
    uint32_t line = 0;             ///< height of a line of text with its space
    uint32_t text = 0;             ///< height of the text of a cell
    std::vector<uint32_t> heights; ///< of the pictures of each row
    uint32_t width = 0;
    uint32_t height = 0;

    explicit Layout(const Sheet& sheet) : cell(SheetCellWidth(sheet.columns)), scale(cell / kSmallCell) {
        line = kLetterHeight * scale + kLineSpace;
        size_t lines = 0;
        for (const SheetCell& each : sheet.cells) {
            lines = std::max(lines, each.lines.size());
        }
        text = static_cast<uint32_t>(lines) * line;
        width = kGap + static_cast<uint32_t>(sheet.columns) * (cell + kGap);
        height = kGap + line + kGap;
        for (size_t first = 0; first < sheet.cells.size(); first += sheet.columns) {
            heights.push_back(HeightOfRow(sheet, first));
            height += text + heights.back() + kGap;
        }
    }

private:
    uint32_t HeightOfRow(const Sheet& sheet, size_t first) const {
        uint32_t most = 0;
        for (size_t i = first; i < std::min(first + sheet.columns, sheet.cells.size()); ++i) {
            most = std::max(most, sheet.cells[i].picture.height);
        }
        return most == 0 ? cell * kUsualHeight / kUsualWidth : most;
    }
};

void DrawCell(Picture& page, const SheetCell& cell, uint32_t x, uint32_t y, uint32_t height,
              const Layout& layout) {
    uint32_t line = y;
    for (const std::string& text : cell.lines) {
        DrawText(page, text, x, line, layout.scale, layout.cell, kInk);
        line += layout.line;
    }
    const uint32_t top = y + layout.text;
    if (!cell.picture.pixels.empty()) {
        Place(page, cell.picture, x, top);
        return;
    }
    Place(page, Blank(layout.cell, height, kNoPicture), x, top);
    const auto wide = static_cast<uint32_t>(cell.instead.size()) * kLetterWidth * layout.scale;
    const uint32_t indent = wide < layout.cell ? (layout.cell - wide) / 2 : 0;
    DrawText(page, cell.instead, x + indent, top + height / 2, layout.scale, layout.cell - indent, kDimInk);
}

} // namespace

uint32_t SheetCellWidth(size_t columns) {
    return columns <= kMostLargeCells ? kLargeCell : kSmallCell;
}

Picture Shrink(const Picture& picture, uint32_t width) {
    const uint32_t wide = std::min(width, picture.width);
    const auto high = std::max(1u, static_cast<uint32_t>(uint64_t{picture.height} * wide / picture.width));
    // Sides beyond all proportion are squeezed.
    const uint32_t tall = std::min(high, 2 * width);
    const Scaler scaler(sws_getContext(static_cast<int>(picture.width), static_cast<int>(picture.height),
                                       AV_PIX_FMT_RGB24, static_cast<int>(wide), static_cast<int>(tall),
                                       AV_PIX_FMT_RGB24, SWS_AREA | SWS_ACCURATE_RND, nullptr, nullptr,
                                       nullptr));
    if (!scaler) {
        throw Error(ErrorKind::CannotMake, "a picture cannot be made smaller");
    }
    PaddedRows large(picture);
    PaddedRows rows(wide, tall);
    const uint8_t* const from[4] = {large.Start(), nullptr, nullptr, nullptr};
    const int fromStride[4] = {large.Stride(), 0, 0, 0};
    uint8_t* const to[4] = {rows.Start(), nullptr, nullptr, nullptr};
    const int toStride[4] = {rows.Stride(), 0, 0, 0};
    sws_scale(scaler.get(), from, fromStride, 0, static_cast<int>(picture.height), to, toStride);
    return {wide, tall, rows.Pixels()};
}

Picture DrawSheet(const Sheet& sheet) {
    const Layout layout(sheet);
    Picture page = Blank(layout.width, layout.height, kPaper);
    DrawText(page, sheet.title, kGap, kGap, layout.scale, layout.width - 2 * kGap, kInk);
    uint32_t y = kGap + layout.line + kGap;
    for (size_t row = 0; row < layout.heights.size(); ++row) {
        for (size_t column = 0; column < sheet.columns; ++column) {
            const size_t cell = row * sheet.columns + column;
            if (cell < sheet.cells.size()) {
                const uint32_t x = kGap + static_cast<uint32_t>(column) * (layout.cell + kGap);
                DrawCell(page, sheet.cells[cell], x, y, layout.heights[row], layout);
            }
        }
        y += layout.text + layout.heights[row] + kGap;
    }
    return page;
}

} // namespace media
