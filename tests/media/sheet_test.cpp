// Pages of small pictures: where each cell lies.

#include "media/sheet.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdlib>

namespace {

using media::Picture;
using media::Sheet;
using Pixel = std::array<int, 3>;

constexpr Pixel kPaper = {255, 255, 255};
constexpr Pixel kNoPicture = {226, 229, 232};

Picture Plain(uint32_t width, uint32_t height, uint8_t value) {
    return {width, height, std::vector<uint8_t>(size_t{width} * height * 3, value)};
}

Pixel At(const Picture& picture, uint32_t x, uint32_t y) {
    const size_t place = (size_t{y} * picture.width + x) * 3;
    return {picture.pixels.at(place), picture.pixels.at(place + 1), picture.pixels.at(place + 2)};
}

/// Pixels of a part of a page that are not of a colour.
size_t Others(const Picture& page, uint32_t x, uint32_t y, uint32_t width, uint32_t height, Pixel colour) {
    size_t others = 0;
    for (uint32_t row = y; row < y + height; ++row) {
        for (uint32_t column = x; column < x + width; ++column) {
            others += At(page, column, row) != colour ? 1u : 0u;
        }
    }
    return others;
}

/// Whether all of a picture is of one grey, but for what scaling rounds.
bool IsPlain(const Picture& picture, int value) {
    return std::all_of(picture.pixels.begin(), picture.pixels.end(),
                       [value](uint8_t each) { return std::abs(each - value) <= 1; });
}

TEST(Sheets, HaveSmallerCellsWhenTheyAreMany) {
    EXPECT_EQ(media::SheetCellWidth(1), 320u);
    EXPECT_EQ(media::SheetCellWidth(24), 320u);
    EXPECT_EQ(media::SheetCellWidth(25), 160u);
}

// Eight pixels between cells and round all; a line of text takes two times seven and four.
TEST(Sheets, LayTheirCellsOutInRows) {
    Sheet sheet;
    sheet.columns = 2;
    sheet.cells.push_back({Plain(320, 200, 10), {"A"}, ""});
    sheet.cells.push_back({Plain(300, 100, 20), {}, ""});
    sheet.cells.push_back({{}, {}, "NO"});
    const Picture page = DrawSheet(sheet);
    EXPECT_EQ(page.width, 8 + 2 * (320 + 8u));
    // The title; a row with a line and 200 rows of pixels; one with a line, and three quarters of a cell's width.
    EXPECT_EQ(page.height, (8 + 18 + 8) + (18 + 200 + 8) + (18 + 240 + 8u));
    ASSERT_EQ(page.pixels.size(), size_t{page.width} * page.height * 3);

    const uint32_t top = 34 + 18;
    EXPECT_EQ(Others(page, 8, top, 320, 200, {10, 10, 10}), 0u);
    EXPECT_EQ(Others(page, 336, top, 300, 100, {20, 20, 20}), 0u);
    EXPECT_EQ(Others(page, 336, top + 100, 320, 100, kPaper), 0u);
    EXPECT_EQ(Others(page, 328, 0, 8, page.height, kPaper), 0u) << "between the columns";
    EXPECT_NE(Others(page, 8, 34, 12, 14, kPaper), 0u) << "the line above the first picture";
    EXPECT_EQ(Others(page, 336, 34, 320, 18, kPaper), 0u) << "no line above the second";
    // "NO" is 24 pixels wide, and in the middle: (320 - 24) / 2 = 148.
    const uint32_t second = top + 200 + 8 + 18;
    EXPECT_EQ(Others(page, 8, second, 148, 240, kNoPicture), 0u);
    EXPECT_NE(Others(page, 8 + 148, second + 120, 24, 14, kNoPicture), 0u);
    EXPECT_EQ(Others(page, 8 + 172, second, 148, 240, kNoPicture), 0u);
    EXPECT_EQ(Others(page, 336, second, 320, 240, kPaper), 0u) << "there is no fourth cell";
}

TEST(Sheets, CutTextsThatDoNotFit) {
    Sheet sheet;
    sheet.columns = 1;
    sheet.title = std::string(1000, 'M');
    sheet.cells.push_back({{}, {std::string(1000, 'M')}, std::string(1000, 'M')});
    const Picture page = DrawSheet(sheet);
    EXPECT_EQ(page.width, 336u);
    EXPECT_EQ(Others(page, 328, 0, 8, page.height, kPaper), 0u);
    EXPECT_EQ(Others(page, 0, 0, 8, page.height, kPaper), 0u);
}

TEST(SmallPictures, KeepTheirProportions) {
    const Picture small = Shrink(Plain(640, 360, 77), 320);
    EXPECT_EQ(small.width, 320u);
    EXPECT_EQ(small.height, 180u);
    EXPECT_TRUE(IsPlain(small, 77));
    const Picture odd = Shrink(Plain(333, 100, 200), 160);
    EXPECT_EQ(odd.width, 160u);
    EXPECT_EQ(odd.height, 48u); // 100 * 160 / 333 = 48.05
    EXPECT_TRUE(IsPlain(odd, 200));
}

/// A plain picture, and what lies after it in memory.
Picture PlainBefore(uint32_t width, uint32_t height, uint8_t after) {
    Picture picture = Plain(width, height, 200);
    const size_t size = picture.pixels.size();
    picture.pixels.resize(size + 256, after);
    picture.pixels.resize(size); // keeps its memory, and what is in it
    return picture;
}

TEST(SmallPictures, AreMadeOfThePictureAlone) {
    for (uint32_t width = 300; width < 364; ++width) {
        const Picture small = Shrink(PlainBefore(width, 100, 0), 160);
        EXPECT_EQ(small.pixels, Shrink(PlainBefore(width, 100, 255), 160).pixels) << width;
        EXPECT_TRUE(IsPlain(small, 200)) << width;
    }
}

TEST(PictureFiles, AreMadeOfThePictureAlone) {
    for (uint32_t width = 1; width < 64; ++width) {
        for (const auto format : {media::PictureFormat::Jpeg, media::PictureFormat::Png}) {
            EXPECT_EQ(EncodePicture(PlainBefore(width, 16, 0), format),
                      EncodePicture(PlainBefore(width, 16, 255), format))
                << width;
        }
    }
}

TEST(SmallPictures, AreNeverMadeLarger) {
    const Picture same = Shrink(Plain(100, 50, 5), 320);
    EXPECT_EQ(same.width, 100u);
    EXPECT_EQ(same.height, 50u);
}

TEST(SmallPictures, OfNoProportionAreSqueezed) {
    EXPECT_EQ(Shrink(Plain(2, 4000, 5), 160).height, 320u);
    EXPECT_EQ(Shrink(Plain(4000, 2, 5), 160).height, 1u);
}

} // namespace
