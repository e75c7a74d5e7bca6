// NAL units in streams of bytes.

#include "byte_stream.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using media::FindStartCode;
using media::LengthPrefixer;
using Bytes = std::vector<uint8_t>;

ptrdiff_t Find(const Bytes& bytes) {
    return FindStartCode(bytes.data(), bytes.data() + bytes.size()) - bytes.data();
}

Bytes Convert(const Bytes& bytes) {
    LengthPrefixer prefixer;
    const LengthPrefixer::Bytes converted = prefixer.Convert(bytes.data(), bytes.size());
    return {converted.data, converted.data + converted.size};
}

TEST(StartCodes, AreFoundAnywhere) {
    EXPECT_EQ(Find({0, 0, 1}), 0);
    EXPECT_EQ(Find({0, 0, 0, 1}), 1);
    EXPECT_EQ(Find({5, 1, 0, 1, 1, 0, 0, 1, 9}), 5);
    EXPECT_EQ(Find({1, 1, 1, 0, 0, 1}), 3);
    for (size_t at = 0; at < 200; ++at) {
        Bytes bytes(300, 1); // the byte that is looked for, but not where it counts
        bytes[at] = bytes[at + 1] = 0;
        EXPECT_EQ(Find(bytes), static_cast<ptrdiff_t>(at));
    }
}

TEST(StartCodes, AreNotWhereTheyAreCutOff) {
    EXPECT_EQ(Find({}), 0);
    EXPECT_EQ(Find({1}), 1);
    EXPECT_EQ(Find({0, 1}), 2);
    EXPECT_EQ(Find({7, 0, 0}), 3);
    EXPECT_EQ(Find({0, 0, 2, 0, 0, 3, 1}), 7);
}

TEST(Lengths, TakeThePlaceOfStartCodes) {
    EXPECT_EQ(Convert({0, 0, 0, 1, 0x67, 1, 2, 0, 0, 1, 0x65}),
              (Bytes{0, 0, 0, 3, 0x67, 1, 2, 0, 0, 0, 1, 0x65}));
    // All zeros before a start code belong to it, and units may touch.
    EXPECT_EQ(Convert({0, 0, 1, 0x41, 9, 0, 0, 0, 0, 0, 1, 0x42}),
              (Bytes{0, 0, 0, 2, 0x41, 9, 0, 0, 0, 1, 0x42}));
    EXPECT_EQ(Convert({0, 0, 1, 0, 0, 1, 0, 0, 1, 7}), (Bytes{0, 0, 0, 1, 7}));
    EXPECT_EQ(Convert({0, 0, 1}), Bytes());
    EXPECT_EQ(Convert({}), Bytes());
}

TEST(Lengths, DropNoOtherBytes) {
    // Bytes that follow no start code are kept as a unit; zeros at the very end stay.
    EXPECT_EQ(Convert({0xFF, 0xD8, 0}), (Bytes{0, 0, 0, 3, 0xFF, 0xD8, 0}));
    EXPECT_EQ(Convert({8, 9, 0, 0, 1, 7, 0, 0}), (Bytes{0, 0, 0, 2, 8, 9, 0, 0, 0, 3, 7, 0, 0}));
}

TEST(Lengths, AreOfFourBytes) {
    Bytes bytes = {0, 0, 1};
    bytes.resize(3 + 0x012345, 0xAB);
    const Bytes converted = Convert(bytes);
    ASSERT_EQ(converted.size(), 4u + 0x012345);
    EXPECT_EQ(Bytes(converted.begin(), converted.begin() + 4), (Bytes{0, 0x01, 0x23, 0x45}));
}

TEST(Lengths, FitWhereNothingButStartCodesAre) {
    // As many short units as a payload can hold: each takes five bytes instead of four.
    Bytes bytes;
    for (int i = 0; i < 30000; ++i) {
        bytes.insert(bytes.end(), {0, 0, 1, 5});
    }
    LengthPrefixer prefixer;
    EXPECT_EQ(prefixer.Convert(bytes.data(), bytes.size()).size, 150000u);
    // The same buffer serves the next payload, and zeros follow what it holds.
    const Bytes small = {0, 0, 1, 5};
    const LengthPrefixer::Bytes converted = prefixer.Convert(small.data(), small.size());
    EXPECT_EQ(Bytes(converted.data, converted.data + 5), (Bytes{0, 0, 0, 1, 5}));
    EXPECT_EQ(Bytes(converted.data + 5, converted.data + 5 + 64), Bytes(64));
}

} // namespace
