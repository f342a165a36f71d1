#include "kyserial/Bridge/PtyHost.h"

#include "Support/WaitFor.h"
#include "kyserial/Text/Failure.h"

#include <gtest/gtest.h>

#include <array>
#include <optional>
#include <string>
#include <thread>

using namespace KySerialTool;
using KyPlatform::HostLine;
using KyPlatform::HostSerialPort;
using KyPlatform::HostTransfer;
using KyTest::WaitFor;
using ReadEnd = IKySerialBridgeHost::ReadEnd;

namespace
{

/// The test is in the bridge's place.
class PtyHostTest : public testing::Test
{
protected:
    void SetUp() override
    {
        if (!KyToolPlatform::PseudoTerminal::IsSupported())
        {
            EXPECT_THROW(const PtyHost lHost{PtyFollows()}, OperationError);
            GTEST_SKIP() << "this system has no pseudo terminals";
        }
        ASSERT_TRUE(mStop.Create());
        mHost.emplace(PtyFollows());
    }
    void Attach()
    {
        ASSERT_TRUE(mUser.Open(mHost->GetPath().c_str()));
        ASSERT_TRUE(mUser.SetTimeouts());
        ASSERT_TRUE(mUser.ReadLine());
    }
    void Choose(uint32_t aRate, bool aTwoStopBits = false)
    {
        HostLine lLine;
        lLine.mBaudRate = aRate;
        lLine.mTwoStopBits = aTwoStopBits;
        ASSERT_TRUE(mUser.SetLine(lLine));
    }
    void Type(const std::string& aText)
    {
        EXPECT_EQ(mUser.Write(aText.data(), static_cast<uint32_t>(aText.size()), mStop).mBytes, aText.size());
    }
    std::string ReadAsUser(size_t aCount)
    {
        std::string lText;
        std::array<char, 1000> lBuffer{};
        while (lText.size() < aCount)
        {
            const auto lRead = mUser.Read(lBuffer.data(), 1000, mStop);
            if (lRead.mEnd != HostTransfer::Done)
            {
                break;
            }
            lText.append(lBuffer.data(), lRead.mBytes);
        }
        return lText;
    }
    /// What the bridge reads, up to a number of characters; a request is "[RATE - STOP]", with the parity where it is set.
    std::string Read(size_t aCount)
    {
        std::string lText;
        while (lText.size() < aCount)
        {
            std::array<uint8_t, 1000> lBuffer{};
            uint32_t lRead = 0;
            KySerialBridgeRequest lRequest;
            const ReadEnd lEnd = mHost->Read(lBuffer.data(), 1000, lRead, lRequest);
            if (lEnd == ReadEnd::Nothing)
            {
                break;
            }
            lText.append(reinterpret_cast<const char*>(lBuffer.data()), lRead);
            if (lEnd == ReadEnd::Request)
            {
                lText += '[' + std::to_string(lRequest.mBaudRate) + ' ' +
                         (lRequest.mSetsParity ? std::to_string(lRequest.mParity) : "-") + ' ' +
                         std::to_string(lRequest.mStopBits) + ']';
            }
        }
        return lText;
    }
    uint32_t Write(const std::string& aText)
    {
        return mHost->Write(reinterpret_cast<const uint8_t*>(aText.data()),
                            static_cast<uint32_t>(aText.size()));
    }
    bool AwaitUnread(uint64_t aCount) const
    {
        return WaitFor([&] { return mHost->GetUnread() == aCount; });
    }

    KyPlatform::StopEvent mStop;
    std::optional<PtyHost> mHost;
    HostSerialPort mUser;
};

TEST_F(PtyHostTest, CarriesBytesBothWaysForOneUserAfterTheOther)
{
    for (const std::string lText : {"first", "second"})
    {
        Attach();
        Type(lText);
        EXPECT_EQ(Read(lText.size()), lText); // and no request: the user has chosen nothing
        EXPECT_EQ(Write(lText + " answer"), lText.size() + 7);
        EXPECT_EQ(ReadAsUser(lText.size() + 7), lText + " answer");
        mUser.Close();
    }
    EXPECT_EQ(mHost->GetUnread(), 0U);
    EXPECT_EQ(mHost->GetTaken(), 11U);
}

TEST_F(PtyHostTest, TheSettingsOfTheUserComeBeforeTheBytesThatFollow)
{
    Attach();
    Choose(57600);
    Type("fast");
    EXPECT_EQ(Read(15), "[57600 - 0]fast");
    Choose(57600, true);
    EXPECT_EQ(Read(7), "[0 - 2]"); // without a byte too
    Choose(115200);
    Type("both");
    EXPECT_EQ(Read(16), "[115200 - 1]both");
}

TEST_F(PtyHostTest, WhatIsFixedDoesNotFollow)
{
    mHost.emplace(PtyFollows{false, true});
    Attach();
    Choose(57600, true);
    Type("x");
    EXPECT_EQ(Read(8), "[0 - 2]x");
}

TEST_F(PtyHostTest, AUserFindsWhatTheDeviceHasAndChangesNothingByThat)
{
    KySerialPortConfiguration lSettings;
    lSettings.mBaudRate = 38400;
    mHost->NotifySettings(lSettings);
    EXPECT_TRUE(WaitFor([this] { return mHost->IsSettled(); })); // nobody is there, so that it takes no time
    Attach();
    Type("no change");
    EXPECT_EQ(Read(9), "no change");
    Choose(9600);
    Type("x");
    EXPECT_EQ(Read(11), "[9600 - 0]x");
}

TEST_F(PtyHostTest, WithoutAUserBytesAreDroppedAndCounted)
{
    EXPECT_EQ(Write("nobody is there"), 15U);
    EXPECT_TRUE(AwaitUnread(15));
    Attach();
    EXPECT_EQ(Write("somebody"), 8U);
    EXPECT_EQ(ReadAsUser(8), "somebody");
    EXPECT_TRUE(AwaitUnread(15));
}

TEST_F(PtyHostTest, GoesOnWhenAUserLeavesWithoutReading)
{
    Attach();
    std::thread lBridge(
        [this]
        {
            for (int lBlock = 0; lBlock < 20; ++lBlock) // more than the system holds
            {
                EXPECT_EQ(Write(std::string(3000, 'x')), 3000U);
            }
        });
    mUser.Close();
    lBridge.join();
    Attach();
    Type("?");
    EXPECT_EQ(Read(1), "?");
}

TEST_F(PtyHostTest, CountsWhatAUserLeavesUnread)
{
    Attach();
    EXPECT_EQ(Write(std::string(3000, 'x')), 3000U);
    EXPECT_EQ(mHost->GetUnread(), 0U);
    mUser.Close();
    EXPECT_TRUE(AwaitUnread(3000));
}

TEST_F(PtyHostTest, AUserThatSendsFasterThanTheDeviceTakesItWaits)
{
    Attach();
    constexpr size_t cMany = 200000;
    std::thread lTyping([this] { Type(std::string(cMany, 'x')); });
    EXPECT_TRUE(WaitFor([this] { return mHost->GetTaken() >= 16384; }));
    EXPECT_LE(mHost->GetTaken(), 16384U + 4096U);
    EXPECT_EQ(Read(cMany).size(), cMany);
    lTyping.join();
    EXPECT_EQ(mHost->GetTaken(), cMany);
}

// The next user must not find them, however long the device takes.
TEST_F(PtyHostTest, WhatAUserLeavesUnreadGoesAtOnceAlsoWhileTheDeviceIsSlow)
{
    Attach();
    EXPECT_EQ(Write("unread"), 6U);
    Type(std::string(22000, 'x')); // more than what waits for the bridge, which takes none of it
    EXPECT_TRUE(WaitFor([&] { return mHost->GetTaken() >= 16384; }));
    EXPECT_LT(mHost->GetTaken(), 22000U);
    mUser.Close();
    EXPECT_TRUE(AwaitUnread(6));
}

TEST_F(PtyHostTest, TheEndCountsWhatIsInTheTerminal)
{
    Attach();
    Type("for the bridge"); // which does not read
    EXPECT_EQ(Write("for the user"), 12U);
    mUser.Close();
    mHost->Close();
    EXPECT_EQ(mHost->GetTaken(), 14U);
    EXPECT_EQ(mHost->GetLeft(), 14U);
    EXPECT_EQ(mHost->GetUnread(), 12U);
    mHost->Close(); // harmless
}

TEST_F(PtyHostTest, AnEndEndsWhatWaits)
{
    Attach();
    std::thread lUp([this] { EXPECT_LT(Write(std::string(1000000, 'x')), 1000000U); });
    std::thread lDown([this] { EXPECT_EQ(Read(1), ""); });
    mHost->EndTransfers();
    lUp.join();
    lDown.join();
    mHost->Close();
}

} // namespace
