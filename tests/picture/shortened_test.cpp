// Texts that fit a width.
// SPDX-License-Identifier: MIT
#include "picture/shortened.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace
{

/// Characters, each with a width of 1.
double characters(const std::string& text)
{
    return static_cast<double>(std::count_if(text.begin(), text.end(),
                                             [](char c) { return (static_cast<unsigned char>(c) & 0xc0U) != 0x80U; }));
}

std::string repeated(const std::string& text, int count)
{
    std::string all;
    for (int i = 0; i < count; ++i) all += text;
    return all;
}

} // namespace

TEST(Shortened, KeepsTheLongestBeginningOfWholeCharacters)
{
    EXPECT_EQ(tarn::shortened("", 3.0, characters), "");
    EXPECT_EQ(tarn::shortened("abc", 3.0, characters), "abc");
    EXPECT_EQ(tarn::shortened("abcd", 3.0, characters), "ab\u2026");
    EXPECT_EQ(tarn::shortened("\u00e4\u6f22\U0001f600x", 4.0, characters), "\u00e4\u6f22\U0001f600x");
    EXPECT_EQ(tarn::shortened("\u00e4\u6f22\U0001f600xy", 4.0, characters), "\u00e4\u6f22\U0001f600\u2026");
    EXPECT_EQ(tarn::shortened("abc", 0.0, characters), "\u2026");
    for (const std::string character : {"a", "\u00e4", "\u6f22", "\U0001f600"}) {
        for (int count = 1; count < 300; ++count) {
            const std::string text = repeated(character, count);
            EXPECT_EQ(tarn::shortened(text, count, characters), text);
            EXPECT_EQ(tarn::shortened(text + character, count, characters), repeated(character, count - 1) + "\u2026");
        }
    }
}

TEST(Shortened, MeasuresLittleOfALongText)
{
    const std::string text = repeated("x", 1'000'000);
    std::size_t measured = 0;
    const auto widthOf = [&measured](const std::string& part) {
        measured += part.size();
        return characters(part);
    };
    EXPECT_EQ(tarn::shortened(text, 100.0, widthOf), std::string(99, 'x') + "\u2026");
    EXPECT_LT(measured, 2000u);
}
