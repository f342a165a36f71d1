#include "KyBase/KyPermanent.h"

#include <gtest/gtest.h>

#include <string>
#include <type_traits>

namespace
{

struct Counting
{
    Counting(int& aLives, const std::string& aText) : mLives(aLives), mText(aText) { ++mLives; }
    ~Counting() { --mLives; }
    Counting(const Counting&) = delete;
    Counting& operator=(const Counting&) = delete;

    int& mLives;
    std::string mText;
};

TEST(KyPermanentTest, ObjectIsMadeFromTheArgumentsAndNeverDestroyed)
{
    int lLives = 0;
    {
        KyPermanent<Counting> lPermanent(lLives, "x");
        EXPECT_EQ(lPermanent.Get().mText, "x");
        EXPECT_EQ(&lPermanent.Get(), &lPermanent.Get());
        EXPECT_EQ(lLives, 1);
    }
    EXPECT_EQ(lLives, 1);
}

TEST(KyPermanentTest, StaticVariableHasNothingToDoAtTheEndOfTheProgram)
{
    EXPECT_FALSE(std::is_trivially_destructible_v<Counting>);
    EXPECT_TRUE(std::is_trivially_destructible_v<KyPermanent<Counting>>);
}

} // namespace
