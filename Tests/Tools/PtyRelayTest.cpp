#include "kyserial/Bridge/PtyRelay.h"

#include "Support/WaitFor.h"
#include "kyserial/Text/Failure.h"

#include <JxUtilsLib/Thread.h>

#include <gtest/gtest.h>

#include <array>
#include <string>

using namespace KySerialTool;
using KyPlatform::HostSerialPort;
using KyPlatform::HostTransfer;
using KyTest::WaitFor;

namespace
{

class PtyRelayTest : public testing::Test
{
protected:
    void SetUp() override
    {
        if (!KyToolPlatform::PseudoTerminal::IsSupported())
        {
            EXPECT_THROW(const PtyRelay lRelay, OperationError);
            GTEST_SKIP() << "this system has no pseudo terminals";
        }
        ASSERT_TRUE(mStop.Create());
        mRelay.emplace();
        Open(mBridge, mRelay->GetBridgePath());
    }
    static void Open(HostSerialPort& aPort, const std::string& aPath)
    {
        ASSERT_TRUE(aPort.Open(aPath.c_str()));
        ASSERT_TRUE(aPort.SetTimeouts());
        ASSERT_TRUE(aPort.ReadLine());
        ASSERT_TRUE(aPort.SetLine({}));
    }
    void Write(HostSerialPort& aPort, const std::string& aText)
    {
        EXPECT_EQ(aPort.Write(aText.data(), static_cast<uint32_t>(aText.size()), mStop).mBytes, aText.size());
    }
    std::string Read(HostSerialPort& aPort, size_t aCount)
    {
        std::string lText;
        std::array<char, 1000> lBuffer{};
        while (lText.size() < aCount)
        {
            const auto lRead = aPort.Read(lBuffer.data(), 1000, mStop);
            if (lRead.mEnd != HostTransfer::Done)
            {
                break;
            }
            lText.append(lBuffer.data(), lRead.mBytes);
        }
        return lText;
    }
    void AwaitUnread(uint64_t aCount) const
    {
        for (int lTry = 0; lTry < 6000 && mRelay->GetUnread() < aCount; ++lTry)
        {
            JxUtilsLib::Thread::Sleep(10);
        }
        EXPECT_EQ(mRelay->GetUnread(), aCount);
    }

    KyPlatform::StopEvent mStop;
    std::optional<PtyRelay> mRelay;
    HostSerialPort mBridge;
    HostSerialPort mUser;
};

TEST_F(PtyRelayTest, CarriesBytesBothWaysForOneUserAfterTheOther)
{
    for (const std::string lText : {"first", "second"})
    {
        Open(mUser, mRelay->GetUserPath());
        Write(mUser, lText);
        EXPECT_EQ(Read(mBridge, lText.size()), lText);
        Write(mBridge, lText + " answer");
        EXPECT_EQ(Read(mUser, lText.size() + 7), lText + " answer");
        mUser.Close();
    }
    EXPECT_EQ(mRelay->GetUnread(), 0U);
}

TEST_F(PtyRelayTest, DropsAndCountsWhatComesForNobody)
{
    Write(mBridge, "nobody is there");
    AwaitUnread(15);
    Open(mUser, mRelay->GetUserPath());
    Write(mBridge, "somebody");
    EXPECT_EQ(Read(mUser, 8), "somebody");
    AwaitUnread(15);
}

TEST_F(PtyRelayTest, GoesOnWhenAUserLeavesWhoDoesNotRead)
{
    Open(mUser, mRelay->GetUserPath());
    const std::string lMuch(3000, 'x');
    Write(mBridge, lMuch);
    mUser.Close();
    for (int lBlock = 0; lBlock < 20; ++lBlock) // more than the system holds
    {
        Write(mBridge, lMuch);
    }
    Open(mUser, mRelay->GetUserPath());
    Write(mUser, "?");
    EXPECT_EQ(Read(mBridge, 1), "?");
}

// Few bytes, and more than the system keeps in one place.
TEST_F(PtyRelayTest, CountsWhatAUserLeavesUnread)
{
    uint64_t lUnread = 0;
    for (const size_t lCount : {size_t{3000}, size_t{9000}})
    {
        Open(mUser, mRelay->GetUserPath());
        Write(mBridge, std::string(lCount, 'x'));
        EXPECT_TRUE(WaitFor([&] { return mRelay->GetDeliveredToUser() == lCount; }));
        mUser.Close();
        lUnread += lCount;
        AwaitUnread(lUnread);
        EXPECT_EQ(mRelay->GetDeliveredToUser(), 0U);
    }
}

TEST_F(PtyRelayTest, TheEndCountsWhatIsInTheTerminals)
{
    Open(mUser, mRelay->GetUserPath());
    Write(mUser, "for the bridge"); // which does not read
    Write(mBridge, "for the user");
    EXPECT_TRUE(
        WaitFor([this] { return mRelay->GetTakenFromUser() == 14 && mRelay->GetDeliveredToUser() == 12; }));
    mUser.Close();
    mBridge.Close();
    mRelay->End();
    EXPECT_EQ(mRelay->GetTakenFromUser(), 14U);
    EXPECT_EQ(mRelay->GetLostToBridge(), 14U);
    EXPECT_EQ(mRelay->GetUnread(), 12U);
    EXPECT_EQ(mRelay->GetDeliveredToUser(), 0U);
    mRelay->End(); // harmless
}

TEST_F(PtyRelayTest, EndsWhileAUserDoesNotRead)
{
    Open(mUser, mRelay->GetUserPath());
    for (int lBlock = 0; lBlock < 3; ++lBlock)
    {
        Write(mBridge, std::string(2000, 'x'));
    }
    mRelay.reset();
}

} // namespace
