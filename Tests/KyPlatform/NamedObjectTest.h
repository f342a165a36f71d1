#pragma once

#include "KyPlatform/NamedEvent.h"
#include "KyPlatform/NamedMutex.h"
#include "KyPlatform/NamedSemaphore.h"
#include "KyPlatform/SharedMemory.h"
#include "Tests/KyPlatform/FailingSystem.h"
#include "Tests/Support/ForEachNth.h"
#include "Tests/Support/UniqueName.h"

#include <gtest/gtest.h>

#include <string>

inline bool CreateObject(KyPlatform::NamedMutex& aObject, const std::string& aName)
{
    return aObject.Create(aName);
}

inline bool CreateObject(KyPlatform::NamedEvent& aObject, const std::string& aName)
{
    return aObject.Create(aName);
}

inline bool CreateObject(KyPlatform::NamedSemaphore& aObject, const std::string& aName)
{
    return aObject.Create(aName, 1, 1);
}

inline bool CreateObject(KyPlatform::SharedMemory& aObject, const std::string& aName)
{
    bool lNew = false;
    return aObject.Create(aName, 100, lNew);
}

/// What all named objects have in common: names and life.
template<typename tObject>
class NamedObjectTest : public testing::Test
{
protected:
    const std::string mBase = UniqueName("KyObject");
    const std::string mName = "Local\\" + mBase;
};

TYPED_TEST_SUITE_P(NamedObjectTest);

TYPED_TEST_P(NamedObjectTest, IsClosedAtFirst)
{
    TypeParam lObject;
    EXPECT_FALSE(lObject.IsValid());
    EXPECT_TRUE(lObject.Close());
}

TYPED_TEST_P(NamedObjectTest, CannotBeOpenedBeforeItIsMade)
{
    TypeParam lObject;
    EXPECT_FALSE(lObject.Open(this->mName));
    EXPECT_FALSE(lObject.IsValid());
}

TYPED_TEST_P(NamedObjectTest, CanBeOpenedWhileSomebodyHoldsIt)
{
    TypeParam lFirst;
    ASSERT_TRUE(CreateObject(lFirst, this->mName));
    EXPECT_TRUE(lFirst.IsValid());
    TypeParam lSecond;
    EXPECT_TRUE(lSecond.Open(this->mName));
    EXPECT_TRUE(lFirst.Close());
    TypeParam lThird;
    EXPECT_TRUE(lThird.Open(this->mName));
}

TYPED_TEST_P(NamedObjectTest, IsGoneWithItsLastHolder)
{
    for (int lTurn = 0; lTurn < 3; ++lTurn)
    {
        {
            TypeParam lFirst;
            TypeParam lSecond;
            ASSERT_TRUE(CreateObject(lFirst, this->mName));
            ASSERT_TRUE(CreateObject(lSecond, this->mName));
        }
        TypeParam lLate;
        EXPECT_FALSE(lLate.Open(this->mName));
    }
}

TYPED_TEST_P(NamedObjectTest, OpeningAgainLetsTheOldOneGo)
{
    TypeParam lObject;
    ASSERT_TRUE(CreateObject(lObject, this->mName));
    ASSERT_TRUE(CreateObject(lObject, this->mName + "Other"));
    TypeParam lLate;
    EXPECT_FALSE(lLate.Open(this->mName));
    EXPECT_TRUE(lLate.Open(this->mName + "Other"));
}

TYPED_TEST_P(NamedObjectTest, NamesAreCaseSensitiveAndExact)
{
    TypeParam lObject;
    ASSERT_TRUE(CreateObject(lObject, this->mName + "a"));
    TypeParam lOther;
    EXPECT_FALSE(lOther.Open(this->mName + "A"));
    EXPECT_FALSE(lOther.Open(this->mName));
    EXPECT_FALSE(lOther.Open(this->mName + "ab"));
}

TYPED_TEST_P(NamedObjectTest, NameWithSlashesIsRefused)
{
    TypeParam lObject;
    EXPECT_FALSE(CreateObject(lObject, "Local\\Ky\\" + this->mBase));
    EXPECT_FALSE(CreateObject(lObject, "Other\\" + this->mBase));
    EXPECT_FALSE(lObject.Open("Session\\12a\\" + this->mBase));
    EXPECT_FALSE(lObject.IsValid());
}

TYPED_TEST_P(NamedObjectTest, NobodyElsesSessionIsReachedByAnUnusedNumber)
{
    TypeParam lObject;
    EXPECT_FALSE(lObject.Open("Session\\4000000000\\" + this->mBase));
    EXPECT_FALSE(CreateObject(lObject, "Session\\4000000000\\" + this->mBase));
}

TYPED_TEST_P(NamedObjectTest, FailureOfAnyCallLeavesItClosedAndTheNextTryWorks)
{
    const int lRefused = KyTest::ForEachNth(
        [this](int aNth, int& aCount)
        {
            TypeParam lHolder;
            ASSERT_TRUE(CreateObject(lHolder, this->mName + "Held"));
            {
                const FailingSystem lSystem(aNth);
                TypeParam lNew;
                TypeParam lOpened;
                const bool lCreated = CreateObject(lNew, this->mName);
                EXPECT_EQ(lCreated, lNew.IsValid());
                const bool lFound = lOpened.Open(this->mName + "Held");
                EXPECT_EQ(lFound, lOpened.IsValid());
                aCount = FailingSystem::GetCalls();
            }
            TypeParam lNew;
            TypeParam lOpened;
            EXPECT_TRUE(CreateObject(lNew, this->mName));
            EXPECT_TRUE(lOpened.Open(this->mName + "Held"));
        });
    EXPECT_GE(lRefused, 2);
}

REGISTER_TYPED_TEST_SUITE_P(NamedObjectTest, IsClosedAtFirst, CannotBeOpenedBeforeItIsMade,
                            CanBeOpenedWhileSomebodyHoldsIt, IsGoneWithItsLastHolder,
                            OpeningAgainLetsTheOldOneGo, NamesAreCaseSensitiveAndExact,
                            NameWithSlashesIsRefused, NobodyElsesSessionIsReachedByAnUnusedNumber,
                            FailureOfAnyCallLeavesItClosedAndTheNextTryWorks);
