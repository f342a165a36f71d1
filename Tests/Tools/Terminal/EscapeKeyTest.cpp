#include "kyserial/Terminal/KeyReader.h"

#include <gtest/gtest.h>

#include <string>

using KySerialTool::EscapeKey;

namespace
{

std::string ParsedText(const std::string& aText)
{
    const std::optional<EscapeKey> lKey = EscapeKey::Parse(aText);
    return lKey.has_value() ? lKey->Text() : "refused";
}

TEST(EscapeKeyTest, IsControlBracketByDefault)
{
    EXPECT_EQ("Ctrl-]", EscapeKey().Text());
}

TEST(EscapeKeyTest, TakesControlKeysInBothSpellings)
{
    EXPECT_EQ("Ctrl-]", ParsedText("^]"));
    EXPECT_EQ("Ctrl-A", ParsedText("^a"));
    EXPECT_EQ("Ctrl-Q", ParsedText("Ctrl-q"));
    EXPECT_EQ("Ctrl-@", ParsedText("ctrl-@"));
    EXPECT_EQ("Ctrl-_", ParsedText("^_"));
}

TEST(EscapeKeyTest, TakesAnyByteAsANumber)
{
    EXPECT_EQ("Ctrl-]", ParsedText("0x1d"));
    EXPECT_EQ("0x7e", ParsedText("0x7E"));
    EXPECT_EQ("0xff", ParsedText("0xff"));
}

TEST(EscapeKeyTest, RefusesEverythingElse)
{
    for (const char* const lText :
         {"", "]", "^", "^1", "^]]", "Ctrl-", "Ctrl-1", "Ctrl-AB", "0x", "0x100", "29", "None"})
    {
        EXPECT_EQ("refused", ParsedText(lText)) << lText;
    }
}

TEST(EscapeKeyTest, FindsTheFirstKeyAmongBytes)
{
    const uint8_t lBytes[] = {'a', 0x1D, 'b', 0x1D};
    EXPECT_EQ(1U, EscapeKey().FindIn(lBytes, 4));
    EXPECT_EQ(1U, EscapeKey().FindIn(lBytes, 1)) << "not among these";
}

TEST(EscapeKeyTest, NoneIsNeverFound)
{
    const uint8_t lBytes[] = {0x1D, 0};
    const std::optional<EscapeKey> lNone = EscapeKey::Parse("none");
    ASSERT_TRUE(lNone.has_value());
    EXPECT_EQ(2U, lNone->FindIn(lBytes, 2));
    EXPECT_EQ("none", lNone->Text());
}

} // namespace
