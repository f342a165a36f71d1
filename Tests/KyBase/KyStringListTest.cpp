#include "KyBase/KyStringList.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

namespace
{

std::vector<std::string> Texts(const KyStringList& aList)
{
    std::vector<std::string> lTexts;
    for (const KyString* lText = aList.GetFirst(); lText != nullptr; lText = aList.GetNext())
    {
        lTexts.emplace_back(lText->GetAscii());
    }
    return lTexts;
}

KyStringList Make(std::initializer_list<const char*> aTexts)
{
    KyStringList lList;
    for (const char* const lText : aTexts)
    {
        lList.Add(lText);
    }
    return lList;
}

} // namespace

TEST(KyStringListTest, EmptyListHasNoFirst)
{
    const KyStringList lList;
    EXPECT_EQ(lList.GetCount(), 0U);
    EXPECT_EQ(lList.GetFirst(), nullptr);
    EXPECT_EQ(lList.GetNext(), nullptr);
}

TEST(KyStringListTest, WalksInTheOrderOfAdding)
{
    const KyStringList lList = Make({"Baud9600", "Baud19200", "Baud9600"});
    EXPECT_EQ(lList.GetCount(), 3U);
    EXPECT_EQ(Texts(lList), (std::vector<std::string>{"Baud9600", "Baud19200", "Baud9600"}));
}

TEST(KyStringListTest, WalkCanStartAgain)
{
    const KyStringList lList = Make({"a", "b"});
    lList.GetFirst();
    lList.GetNext();
    EXPECT_EQ(lList.GetNext(), nullptr);
    EXPECT_EQ(lList.GetNext(), nullptr);
    EXPECT_EQ(Texts(lList), (std::vector<std::string>{"a", "b"}));
}

TEST(KyStringListTest, NextBeforeFirstIsNull)
{
    const KyStringList lList = Make({"a"});
    EXPECT_EQ(lList.GetNext(), nullptr);
}

TEST(KyStringListTest, ClearEmptiesAndTheListIsUsableAgain)
{
    KyStringList lList = Make({"a", "b"});
    lList.GetFirst();
    lList.Clear();
    EXPECT_EQ(lList.GetCount(), 0U);
    EXPECT_EQ(lList.GetNext(), nullptr);
    lList.Add("c");
    EXPECT_EQ(Texts(lList), (std::vector<std::string>{"c"}));
}

TEST(KyStringListTest, CopiesAreIndependent)
{
    KyStringList lOriginal = Make({"a", "b"});
    KyStringList lCopy(lOriginal);
    lOriginal.Add("c");
    EXPECT_EQ(Texts(lCopy), (std::vector<std::string>{"a", "b"}));
    lCopy = lOriginal;
    lOriginal.Clear();
    EXPECT_EQ(Texts(lCopy), (std::vector<std::string>{"a", "b", "c"}));
    const KyStringList& lSame = lCopy;
    lCopy = lSame;
    EXPECT_EQ(lCopy.GetCount(), 3U);
}

TEST(KyStringListTest, MoveTakesTheTexts)
{
    KyStringList lOriginal = Make({"a", "b"});
    KyStringList lMoved(std::move(lOriginal));
    EXPECT_EQ(Texts(lMoved), (std::vector<std::string>{"a", "b"}));
    KyStringList lAssigned = Make({"x"});
    lAssigned = std::move(lMoved);
    EXPECT_EQ(Texts(lAssigned), (std::vector<std::string>{"a", "b"}));
    lAssigned.Add("c");
    EXPECT_EQ(lAssigned.GetCount(), 3U);
}

TEST(KyStringListTest, AssignedOrMovedToItselfStaysAsItWas)
{
    KyStringList lList = Make({"a", "b"});
    KyStringList& lSame = lList;
    lList = lSame;
    lList = std::move(lSame);
    EXPECT_EQ(Texts(lList), (std::vector<std::string>{"a", "b"}));
}
