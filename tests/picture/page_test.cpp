// Panels of a picture.
// SPDX-License-Identifier: MIT
#include "picture/page.h"

#include <gtest/gtest.h>

namespace
{

std::vector<tarn::PixelArea> panelsOf(const tarn::Page& page)
{
    std::vector<tarn::PixelArea> panels{page.front};
    if (page.behind.height > 0) panels.push_back(page.behind);
    panels.push_back(page.places);
    panels.insert(panels.end(), page.lanes.begin(), page.lanes.end());
    return panels;
}

} // namespace

TEST(Page, PanelsAreBelowEachOtherAndInsideThePicture)
{
    for (const tarn::PictureSize size :
         {tarn::kSmallestPicture, tarn::PictureSize{800, 520}, tarn::PictureSize{1600, 1040}, tarn::kLargestPicture,
          tarn::PictureSize{8192, 400}, tarn::PictureSize{640, 8192}}) {
        for (std::size_t lanes = 2; lanes <= 8; ++lanes) {
            const tarn::Page page = tarn::pageOf(size, lanes, lanes > 3);
            int above = page.key.bottom();
            for (const tarn::PixelArea& panel : panelsOf(page)) {
                EXPECT_GT(panel.y, above);
                EXPECT_GE(panel.height, 8) << size.width << "x" << size.height << ", " << lanes << " lanes";
                EXPECT_GT(panel.x, 0);
                EXPECT_LT(panel.right(), size.width);
                above = panel.bottom();
            }
            EXPECT_LT(above, page.timeLine - page.text);
            EXPECT_LT(page.timeLine, size.height);
            EXPECT_GE(page.text, 10.0);
            ASSERT_EQ(page.lanes.size(), lanes);
        }
    }
}

TEST(Page, DefaultSizeGrowsWithTheOutputs)
{
    EXPECT_EQ(tarn::defaultSize(3, false).width, 1600);
    EXPECT_EQ(tarn::defaultSize(3, false).height, 1040);
    EXPECT_GT(tarn::defaultSize(5, true).height, 1040);
}
