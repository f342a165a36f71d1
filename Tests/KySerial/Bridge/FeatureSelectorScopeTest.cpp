#include "FeatureSelectorScope.h"

#include "KySerial/EngineTest.h"
#include "Support/WaitFor.h"

#include <atomic>
#include <chrono>
#include <deque>
#include <optional>
#include <thread>
#include <vector>

using namespace KyTest;
using KySerialLib::FeatureSelectorScope;

namespace
{

class FeatureSelectorScopeTest : public EngineTest
{
protected:
    void SetUp() override { mDevice.SetText("Selector", "Other"); }

    KyResult Set(const char* aName = "Selector", const char* aValue = "Mine")
    {
        return mScope->Set(aName, aValue);
    }
    Calls End()
    {
        mScope.reset();
        return mDevice.TakeCalls();
    }

    std::optional<FeatureSelectorScope> mScope{std::in_place, &mDevice};
};

TEST_F(FeatureSelectorScopeTest, DoesNothingByItselfAndNeedsNoDeviceForThat)
{
    const FeatureSelectorScope lScope(nullptr);
    EXPECT_EQ(End(), Calls());
}

TEST_F(FeatureSelectorScopeTest, WritesAnotherValueAndWritesItOnceMoreAtTheEnd)
{
    EXPECT_THAT(Set(), IsOK());
    EXPECT_EQ(mDevice.TakeCalls(),
              (Calls{"GetFeatureAsString(Selector)", "SetFeatureFromString(Selector, \"Mine\")"}));
    mDevice.SetText("Selector", "Moved");
    EXPECT_EQ(End(), Calls{"SetFeatureFromString(Selector, \"Mine\")"});
    EXPECT_EQ(mDevice.GetText("Selector"), "Mine");
}

TEST_F(FeatureSelectorScopeTest, LeavesTheSameValueAloneAndOneThatCannotBeRead)
{
    for (const char* lValue : {"Mine", "Unread"})
    {
        mScope.emplace(&mDevice);
        mDevice.SetText("Selector", lValue);
        EXPECT_THAT(Set(), IsOK());
        EXPECT_EQ(End(), Calls{"GetFeatureAsString(Selector)"});
        EXPECT_EQ(mDevice.GetText("Selector"), lValue);
        mDevice.Fail(Slot::GetFeatureAsString);
    }
}

TEST_F(FeatureSelectorScopeTest, ComparesTheWholeValue)
{
    for (const char* lOther : {"mine", "Min", "Mine0", ""})
    {
        mDevice.SetText("Selector", lOther);
        EXPECT_THAT(Set(), IsOK());
        EXPECT_EQ(mDevice.GetText("Selector"), "Mine") << lOther;
    }
}

TEST_F(FeatureSelectorScopeTest, PassesARefusedWriteOnAndDoesNotTryAgain)
{
    mDevice.FailCall(Slot::SetFeatureFromString, 1, KyResult(0x1234, "no"));
    EXPECT_THAT(Set(), IsResult(0x1234, "no"));
    EXPECT_EQ(End(), (Calls{"GetFeatureAsString(Selector)", "SetFeatureFromString(Selector, \"Mine\")"}));
}

TEST_F(FeatureSelectorScopeTest, IgnoresARefusalAtTheEnd)
{
    EXPECT_THAT(Set(), IsOK());
    mDevice.Fail(Slot::SetFeatureFromString);
    mDevice.TakeCalls();
    EXPECT_EQ(End(), Calls{"SetFeatureFromString(Selector, \"Mine\")"});
    EXPECT_EQ(TakeLog(), Lines());
}

TEST_F(FeatureSelectorScopeTest, WritesEachOfSeveralOnceMore)
{
    EXPECT_THAT(Set("A", "1"), IsOK());
    EXPECT_THAT(Set("B", "2"), IsOK());
    mDevice.TakeCalls();
    EXPECT_THAT(End(), testing::UnorderedElementsAre("SetFeatureFromString(A, \"1\")",
                                                     "SetFeatureFromString(B, \"2\")"));
}

// What a selected feature means must not change inside a scope.
TEST_F(FeatureSelectorScopeTest, ScopesOfOneDeviceOnSeveralThreadsWaitForOneAnother)
{
    std::optional<FeatureSelectorScope> lNested(std::in_place, &mDevice); // of the same thread
    std::atomic<bool> lIsInside{false};
    std::thread lOther(
        [&]
        {
            const FeatureSelectorScope lScope(&mDevice);
            lIsInside = true;
        });
    std::this_thread::sleep_for(std::chrono::milliseconds(50)); // for one that does not wait to get inside
    EXPECT_FALSE(lIsInside);
    mScope.reset();
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_FALSE(lIsInside);
    lNested.reset();
    lOther.join();
}

// A device that does not answer holds up no other's bridges, however many there are.
TEST_F(FeatureSelectorScopeTest, ScopesOfManyDevicesDoNotWaitForOneAnother)
{
    constexpr size_t cDevices = 100;
    std::deque<ScriptedAdapter> lDevices(cDevices);
    std::atomic<size_t> lInside{0};
    std::vector<std::thread> lThreads;
    lThreads.reserve(lDevices.size());
    for (ScriptedAdapter& lDevice : lDevices)
    {
        lThreads.emplace_back(
            [&]
            {
                const FeatureSelectorScope lScope(&lDevice);
                ++lInside;
                EXPECT_TRUE(WaitFor([&] { return lInside == cDevices; }));
            });
    }
    for (std::thread& lThread : lThreads)
    {
        lThread.join();
    }
}

} // namespace
