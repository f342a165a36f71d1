#include "kyserial/Serve/Web/WebRequest.h"
#include "kyserial/Serve/Tcp/TcpHost.h"

#include <gtest/gtest.h>

#include <string>

using namespace KySerialTool;

namespace
{

TEST(WebRequestTest, ATargetIsAPathAndNamesWithValues)
{
    const auto lTarget = ParseWebTarget("/traffic?device=lens%20%28left%29&port=bulk1&flag&empty=");
    ASSERT_TRUE(lTarget.has_value());
    EXPECT_EQ(lTarget->mPath, "/traffic");
    const std::map<std::string, std::string> lQuery = {
        {"device", "lens (left)"}, {"port", "bulk1"}, {"flag", ""}, {"empty", ""}};
    EXPECT_EQ(lTarget->mQuery, lQuery);
    EXPECT_TRUE(ParseWebTarget("/").has_value());
    EXPECT_EQ(ParseWebTarget("/a%2Fb")->mPath, "/a%2Fb"); // no path of ours has such a character
}

TEST(WebRequestTest, WhatMakesNoSenseIsRefused)
{
    for (const char* const lText : {"", "traffic", "http://x/", "*", "/x?a=%", "/x?a=%4", "/x?a=%4g",
                                    "/x?a=%g4", "/x?a=1&a=2", "/x?1&2&3&4&5&6&7&8&9"})
    {
        EXPECT_FALSE(ParseWebTarget(lText).has_value()) << lText;
    }
}

TEST(WebRequestTest, OnlyThisComputersOwnNamesAreItsHost)
{
    for (const char* const lHost : {"localhost", "localhost:4217", "127.0.0.1:4217", "[::1]", "[::1]:4217",
                                    "192.168.1.5:4217", "192.168.1.5"})
    {
        EXPECT_TRUE(IsOwnHost(lHost, "192.168.1.5")) << lHost;
    }
    EXPECT_TRUE(IsOwnHost("[fd00::5]:4217", "fd00::5"));
    for (const char* const lHost : {"", "evil.example", "evil.example:4217", "localhost.evil.example",
                                    "127.0.0.1.evil.example:80", ":4217", "192.168.1.6"})
    {
        EXPECT_FALSE(IsOwnHost(lHost, "192.168.1.5")) << lHost;
    }
}

TEST(WebRequestTest, TheHostThatAQuestionNamesIsTheServicesOwn)
{
    EXPECT_EQ(HostText("127.0.0.1", 4217), "127.0.0.1:4217");
    EXPECT_EQ(HostText("::1", 4217), "[::1]:4217");
    for (const char* const lPlace : {"::", "::1"})
    {
        EXPECT_TRUE(IsOwnHost(HostText("::1", 4217), lPlace)) << lPlace;
    }
    EXPECT_TRUE(IsOwnHost(HostText("fd00::5", 4217), "fd00::5"));
    EXPECT_FALSE(IsOwnHost(HostText("fd00::5", 4217), "fd00::6"));
}

TEST(WebRequestTest, ASecretIsTheSameTextOnly)
{
    EXPECT_TRUE(IsSameSecret("0123456789abcdef", "0123456789abcdef"));
    for (const char* const lGiven :
         {"", "0123456789abcde", "0123456789abcdeg", "0123456789abcdef0123456789abcdef"})
    {
        EXPECT_FALSE(IsSameSecret(lGiven, "0123456789abcdef")) << lGiven;
    }
    EXPECT_FALSE(IsSameSecret("", "")); // without a secret nobody knows it
}

} // namespace
