// Text in pictures, dot by dot.

#include "letters.h"

#include <gtest/gtest.h>

namespace {

using media::Picture;
using Rows = std::vector<std::string>;

constexpr media::Colour kInk = {1, 2, 3};

/// The dots of a text in a picture that was zeros: # where all of the ink's colour is, ? where some of it is.
Rows Draw(const std::string& text, uint32_t pictureWidth, uint32_t pictureHeight, uint32_t x, uint32_t y,
          uint32_t scale, uint32_t width) {
    Picture picture = {pictureWidth, pictureHeight, std::vector<uint8_t>(pictureWidth * pictureHeight * 3)};
    media::DrawText(picture, text, x, y, scale, width, kInk);
    Rows rows;
    for (uint32_t row = 0; row < pictureHeight; ++row) {
        std::string line;
        for (uint32_t column = 0; column < pictureWidth; ++column) {
            const uint8_t* const pixel = picture.pixels.data() + (row * pictureWidth + column) * 3;
            const bool ink = pixel[0] == 1 && pixel[1] == 2 && pixel[2] == 3;
            const bool none = pixel[0] == 0 && pixel[1] == 0 && pixel[2] == 0;
            line += ink ? '#' : none ? '.' : '?';
        }
        rows.push_back(line);
    }
    return rows;
}

TEST(Letters, AreDrawnInCapitalsWithASpaceAfterEach) {
    const Rows expected = {
        "####...###.", //
        "#...#...#..", //
        "#...#...#..", //
        "####....#..", //
        "#.......#..", //
        "#.......#..", //
        "#......###.",
    };
    EXPECT_EQ(Draw("PI", 11, 7, 0, 0, 1, 12), expected);
    EXPECT_EQ(Draw("pi", 11, 7, 0, 0, 1, 12), expected);
}

TEST(Letters, ThatThereAreNotAreBoxes) {
    const Rows box = {"#####", "#...#", "#...#", "#...#", "#...#", "#...#", "#####"};
    for (const std::string text : {"\x01", "\xC3", "~", "{"}) {
        EXPECT_EQ(Draw(text, 5, 7, 0, 0, 1, 6), box) << static_cast<int>(text[0]);
    }
}

TEST(Letters, AreLeftOutWhereTheyDoNotFit) {
    EXPECT_EQ(Draw("--", 12, 7, 0, 0, 1, 11), Draw("-", 12, 7, 0, 0, 1, 12));
    EXPECT_EQ(Draw("-", 12, 7, 0, 0, 1, 5), Draw("", 12, 7, 0, 0, 1, 12));
    EXPECT_EQ(Draw("-", 12, 7, 0, 0, 0xFFFFFFFF / 8, 11), Draw("", 12, 7, 0, 0, 1, 12));
}

TEST(Letters, EndWhereThePictureDoes) {
    // The dash has three dots, from the second column on, in its fourth row.
    EXPECT_EQ(Draw("-", 4, 5, 1, 1, 1, 100), (Rows{"....", "....", "....", "....", "..##"}));
    EXPECT_EQ(Draw("-", 4, 2, 9, 9, 1, 100), (Rows{"....", "...."}));
}

TEST(Letters, GrowWithTheirScale) {
    EXPECT_EQ(Draw(".", 12, 14, 0, 0, 2, 12),
              (Rows{"............", "............", "............", "............", "............",
                    "............", "............", "............", "............", "............",
                    "....##......", "....##......", "....##......", "....##......"}));
}

} // namespace
