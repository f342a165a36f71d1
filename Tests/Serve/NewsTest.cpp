// What a log has once, however often it happens.

#include "kyserial/Serve/Status/News.h"

#include <gtest/gtest.h>

using namespace KySerialTool;

namespace
{

TEST(NewsTest, WhatHappensAgainAndAgainIsNewsOnceUntilItHasPaused)
{
    News lNews;
    const News::Clock::time_point lBegin;
    EXPECT_EQ(lNews.Take(), "");
    for (int lTenth = 0; lTenth < 1000; ++lTenth)
    {
        lNews.Add("it happens " + std::to_string(lTenth), lBegin + std::chrono::milliseconds(100 * lTenth));
    }
    EXPECT_EQ(lNews.Take(), "it happens 0");
    EXPECT_EQ(lNews.Take(), "");
    const News::Clock::time_point lEnd = lBegin + std::chrono::milliseconds(99900);
    lNews.Add("still", lEnd + News::cPause);
    EXPECT_EQ(lNews.Take(), "");
    lNews.Add("anew", lEnd + News::cPause * 2 + std::chrono::milliseconds(1));
    EXPECT_EQ(lNews.Take(), "anew");
}

} // namespace
