#include "Platform/PseudoTerminal.h"

#include "JxUtilsLib/Thread.h"

#include <gtest/gtest.h>

#include <array>
#include <string>
#include <thread>

using KyPlatform::HostSerialPort;
using KyPlatform::HostTransfer;
using KyPlatform::HostTransferResult;
using KyPlatform::StopEvent;
using KyToolPlatform::PseudoTerminal;

namespace
{

TEST(PseudoTerminalClosedTest, RefusesEverything)
{
    PseudoTerminal lTerminal;
    StopEvent lStop;
    ASSERT_TRUE(lStop.Create());
    char lByte = 0;
    EXPECT_FALSE(lTerminal.IsOpen());
    EXPECT_FALSE(lTerminal.IsAttached());
    EXPECT_STREQ(lTerminal.GetPath(), "");
    EXPECT_EQ(lTerminal.Read(&lByte, 1, lStop).mEnd, HostTransfer::Refused);
    EXPECT_EQ(lTerminal.Write(&lByte, 1, lStop).mEnd, HostTransfer::Refused);
    lTerminal.Close();
}

TEST(PseudoTerminalClosedTest, IsMadeWhereTheSystemHasThemAndNowhereElse)
{
    PseudoTerminal lTerminal;
    EXPECT_EQ(lTerminal.Create(), PseudoTerminal::IsSupported());
    EXPECT_EQ(lTerminal.IsOpen(), PseudoTerminal::IsSupported());
}

/// A terminal whose user is a host port.
class PseudoTerminalTest : public testing::Test
{
protected:
    void SetUp() override
    {
        if (!PseudoTerminal::IsSupported())
        {
            GTEST_SKIP() << "this system has no pseudo terminals";
        }
        ASSERT_TRUE(mStop.Create());
        ASSERT_TRUE(mTerminal.Create());
    }
    void Attach()
    {
        ASSERT_TRUE(mUser.Open(mTerminal.GetPath()));
        ASSERT_TRUE(mUser.SetTimeouts());
        ASSERT_TRUE(mUser.ReadLine());
        ASSERT_TRUE(mUser.SetLine({}));
    }
    HostTransferResult Write(const std::string& aText)
    {
        return mTerminal.Write(aText.data(), static_cast<uint32_t>(aText.size()), mStop);
    }
    template<typename Port>
    std::string Read(Port& aPort, size_t aCount)
    {
        std::string lText;
        while (lText.size() < aCount)
        {
            std::array<char, 1000> lBuffer{};
            const HostTransferResult lRead = aPort.Read(lBuffer.data(), 1000, mStop);
            if (lRead.mEnd != HostTransfer::Done)
            {
                break;
            }
            lText.append(lBuffer.data(), lRead.mBytes);
        }
        return lText;
    }
    void UserWrites(const std::string& aText)
    {
        EXPECT_EQ(mUser.Write(aText.data(), static_cast<uint32_t>(aText.size()), mStop).mBytes, aText.size());
    }

    PseudoTerminal mTerminal;
    HostSerialPort mUser;
    StopEvent mStop;
};

TEST_F(PseudoTerminalTest, CarriesEveryByteValueBothWays)
{
    std::string lAll;
    for (int lByte = 0; lByte < 256; ++lByte)
    {
        lAll += static_cast<char>(lByte);
    }
    Attach();
    UserWrites(lAll);
    EXPECT_EQ(Read(mTerminal, 256), lAll);
    EXPECT_EQ(Write(lAll).mBytes, 256U);
    EXPECT_EQ(Read(mUser, 256), lAll);
}

TEST_F(PseudoTerminalTest, ReportsWhetherAUserHasItOpen)
{
    EXPECT_FALSE(mTerminal.IsAttached());
    Attach();
    EXPECT_TRUE(mTerminal.IsAttached());
    mUser.Close();
    EXPECT_FALSE(mTerminal.IsAttached());
}

TEST_F(PseudoTerminalTest, BytesForNobodyAreRefusedAtOnce)
{
    const HostTransferResult lWrite = Write("lost");
    EXPECT_EQ(lWrite.mEnd, HostTransfer::Done);
    EXPECT_EQ(lWrite.mBytes, 0U);
}

TEST_F(PseudoTerminalTest, AReadGoesOnWhenTheUserLeavesAndAnotherComes)
{
    std::string lRead;
    std::thread lReader([&] { lRead = Read(mTerminal, 11); });
    Attach();
    UserWrites("first");
    mUser.Close(); // what was written before is not lost
    JxUtilsLib::Thread::Sleep(30);
    Attach();
    UserWrites("second");
    lReader.join();
    EXPECT_EQ(lRead, "firstsecond");
}

TEST_F(PseudoTerminalTest, AWriteEndsWhenTheUserLeavesWithoutReading)
{
    Attach();
    const std::string lMuch(1000000, 'x');
    HostTransferResult lWrite;
    std::thread lWriter([&] { lWrite = Write(lMuch); });
    EXPECT_EQ(Read(mUser, 1).substr(0, 1), "x");
    mUser.Close();
    lWriter.join();
    EXPECT_EQ(lWrite.mEnd, HostTransfer::Done);
    EXPECT_LT(lWrite.mBytes, lMuch.size());
}

TEST_F(PseudoTerminalTest, StopEndsReadAndWrite)
{
    Attach();
    HostTransfer lWrite = HostTransfer::Done;
    std::thread lWriter([&] { lWrite = Write(std::string(1000000, 'x')).mEnd; });
    HostTransfer lRead = HostTransfer::Done;
    char lByte = 0;
    std::thread lReader([&] { lRead = mTerminal.Read(&lByte, 1, mStop).mEnd; });
    EXPECT_TRUE(mStop.Set());
    lWriter.join();
    lReader.join();
    EXPECT_EQ(lWrite, HostTransfer::Stopped);
    EXPECT_EQ(lRead, HostTransfer::Stopped);
    mUser.Close();
    EXPECT_EQ(mTerminal.Read(&lByte, 1, mStop).mEnd, HostTransfer::Stopped) << "without a user too";
}

TEST_F(PseudoTerminalTest, IsGoneWhenClosed)
{
    Attach();
    mTerminal.Close();
    char lByte = 0;
    EXPECT_NE(mUser.Read(&lByte, 1, mStop).mEnd, HostTransfer::Done);
}

} // namespace
