#include "Libraries/KySerialC/HandleTable.h"

#include <gtest/gtest.h>

using KySerialCLib::GetTable;
using KySerialCLib::HandleKind;
using KySerialCLib::HandleTable;

namespace
{

TEST(HandleTableTest, GivesNoHandleWhenAllPlacesAreTaken)
{
    HandleTable<int> lTable(HandleKind::Port, 2);
    const uint64_t lFirst = lTable.Add(std::make_shared<int>(1));
    const uint64_t lSecond = lTable.Add(std::make_shared<int>(2));
    EXPECT_NE(lFirst, 0U);
    EXPECT_NE(lSecond, 0U);
    EXPECT_EQ(lTable.Add(std::make_shared<int>(3)), 0U);
    EXPECT_EQ(*lTable.Find(lFirst), 1);
    EXPECT_EQ(*lTable.Remove(lFirst), 1);
    const uint64_t lThird = lTable.Add(std::make_shared<int>(3)); // takes the free place
    EXPECT_EQ(*lTable.Find(lThird), 3);
    EXPECT_EQ(lTable.Find(lFirst), nullptr);
    EXPECT_EQ(*lTable.Find(lSecond), 2);
}

TEST(HandleTableTest, KnowsNoHandleOfAPlaceKindOrGenerationThatItHasNotGiven)
{
    HandleTable<int> lTable(HandleKind::Port);
    const uint64_t lHandle = lTable.Add(std::make_shared<int>(1));
    for (const uint64_t lOther : {uint64_t{0}, lHandle + 1, lHandle ^ (uint64_t{1} << 24U),
                                  lHandle ^ (uint64_t{1} << 56U), ~uint64_t{0}})
    {
        EXPECT_EQ(lTable.Find(lOther), nullptr) << lOther;
        EXPECT_EQ(lTable.Remove(lOther), nullptr) << lOther;
    }
    EXPECT_EQ(*lTable.Remove(lHandle), 1);
    EXPECT_EQ(lTable.Remove(lHandle), nullptr);
}

TEST(HandleTableTest, EachKindHasOneTable)
{
    auto& lPorts = GetTable<HandleKind::Port, int>();
    EXPECT_EQ(&lPorts, (&GetTable<HandleKind::Port, int>()));
    EXPECT_NE(&lPorts, (&GetTable<HandleKind::Bridge, int>()));
    const uint64_t lHandle = lPorts.Add(std::make_shared<int>(1));
    EXPECT_EQ((GetTable<HandleKind::Bridge, int>().Find(lHandle)), nullptr);
    EXPECT_EQ(*lPorts.Remove(lHandle), 1);
}

} // namespace
