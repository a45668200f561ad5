// Whole pictures.
// SPDX-License-Identifier: MIT
#include "picture/drawing.h"
#include "tests/picture/demo_picture.h"

#include <gtest/gtest.h>

namespace tarn_picture
{

namespace
{

tarn::PictureAnalysis silence(std::size_t frames)
{
    tarn::PictureAnalysis analysis({.sampleRate = 48000,
                                    .slots = 2,
                                    .channels = {{.name = "FL", .place = tarn::ChannelPlace::Left, .slot = 0},
                                                 {.name = "FR", .place = tarn::ChannelPlace::Right, .slot = 1}}});
    const std::vector<std::int32_t> samples(2 * frames);
    analysis.push(samples.data(), frames);
    analysis.finish();
    return analysis;
}

} // namespace

TEST(Drawing, SameAnalysisGivesTheSameBytes)
{
    const auto scene = analysedScene("5.1");
    for (const auto theme : {tarn::Theme::Dark, tarn::Theme::Light}) {
        const tarn::PictureStyle style{.size = {800, 600}, .theme = theme, .title = "scene", .layout = "5.1"};
        const std::string bytes = tarn::drawPicture(scene->analysis(), style);
        EXPECT_GT(bytes.size(), 50000u);
        EXPECT_TRUE(bytes == tarn::drawPicture(scene->analysis(), style));
    }
}

TEST(Drawing, AFrameOfSilenceIsAPicture)
{
    for (const std::size_t frames : {std::size_t{1}, std::size_t{300}, std::size_t{50000}}) {
        const std::string bytes =
            tarn::drawPicture(silence(frames), {.size = tarn::kSmallestPicture, .title = "silence", .layout = "2.0"});
        EXPECT_EQ(bytes.substr(1, 3), "PNG") << frames;
    }
}

TEST(Drawing, LongTitlesOfAnyLanguageAreCutOff)
{
    const tarn::PictureAnalysis analysis = silence(1000);
    const auto drawn = [&analysis](const std::string& title) {
        return tarn::drawPicture(analysis, {.size = tarn::kSmallestPicture, .title = title, .layout = "2.0"});
    };
    std::string title;
    for (int i = 0; i < 200; ++i) title += "\u00e4\u6f22\U0001f600";
    const std::string bytes = drawn(title);
    EXPECT_EQ(bytes.substr(1, 3), "PNG");
    EXPECT_TRUE(drawn(title + "the end, which is cut off") == bytes);
    EXPECT_FALSE(drawn("the beginning" + title) == bytes);
}

} // namespace tarn_picture
