#include "KyPlatform/HostSerialPort.h"

#include "JxUtilsLib/Thread.h"
#include "Tests/Support/HostLinkTest.h"

#include <gtest/gtest.h>

#include <array>
#include <thread>

using JxUtilsLib::Thread;
using KyPlatform::HostLine;
using KyPlatform::HostSerialPort;
using KyPlatform::HostTransfer;
using KyPlatform::HostTransferResult;
using KyTest::HostLink;
using KyTest::HostLinkTest;

namespace
{

std::string AllBytes()
{
    std::string lAll;
    for (int lIndex = 0; lIndex < 256; ++lIndex)
    {
        lAll += static_cast<char>(lIndex);
    }
    return lAll;
}

TEST(HostSerialPortClosedTest, RefusesEverything)
{
    HostSerialPort lPort;
    KyPlatform::StopEvent lStop;
    ASSERT_TRUE(lStop.Create());
    char lByte = 0;
    EXPECT_FALSE(lPort.IsOpen());
    EXPECT_FALSE(lPort.SetTimeouts());
    EXPECT_FALSE(lPort.ReadLine());
    EXPECT_FALSE(lPort.SetLine(HostLine()));
    EXPECT_EQ(lPort.Read(&lByte, 1, lStop).mEnd, HostTransfer::Refused);
    EXPECT_EQ(lPort.Write(&lByte, 1, lStop).mEnd, HostTransfer::Refused);
    lPort.Close();
}

TEST(HostSerialPortClosedTest, SaysWhyAPortIsNotOpened)
{
    HostSerialPort lPort;
    EXPECT_EQ("", lPort.GetRefusal());
    EXPECT_FALSE(lPort.Open(R"(\\.\COM98)"));
    EXPECT_EQ("there is no such port", lPort.GetRefusal());
    EXPECT_FALSE(lPort.Open(nullptr)); // not the name of a port
    EXPECT_EQ("", lPort.GetRefusal());
    if (HostSerialPort::IsPath("/"))
    {
        EXPECT_FALSE(lPort.Open("/dev/null"));
        EXPECT_EQ("it is no terminal", lPort.GetRefusal());
        EXPECT_FALSE(lPort.Open("/"));
        EXPECT_EQ("Is a directory", lPort.GetRefusal());
    }
}

TEST(HostSerialPortClosedTest, DoesNotOpenWhatIsNoPort)
{
    HostSerialPort lPort;
    for (const char* lName : {"", "COM", R"(\\.\COM)", R"(\\.\COM0)", R"(\\.\COM1x)", "relative", "/",
                              "/dev/does-not-exist", R"(\\.\COM99)"})
    {
        EXPECT_FALSE(lPort.Open(lName)) << lName;
        EXPECT_FALSE(lPort.IsOpen());
    }
    EXPECT_FALSE(lPort.Open(nullptr));
    EXPECT_FALSE(lPort.Open(std::string(100000, '/').c_str()));
    EXPECT_FALSE(HostSerialPort::IsPath(nullptr));
    EXPECT_FALSE(HostSerialPort::IsPath("COM1"));
    EXPECT_FALSE(HostSerialPort::IsPath(""));
}

class HostSerialPortTest : public HostLinkTest<testing::Test>
{
protected:
    void SetUp() override
    {
        HostLinkTest::SetUp();
        if (!HasLink())
        {
            return;
        }
        ASSERT_TRUE(mStop.Create());
        ASSERT_TRUE(mPort.Open(mLink->GetPath().c_str()));
        ASSERT_TRUE(mPort.SetTimeouts());
        ASSERT_TRUE(mPort.ReadLine());
        HostLine lLine;
        lLine.mBaudRate = 115200;
        ASSERT_TRUE(mPort.SetLine(lLine));
    }
    HostTransferResult Read(uint32_t aSize = 16384) { return mPort.Read(mBuffer.data(), aSize, mStop); }
    /// Reads, over completions without bytes, until something comes.
    std::string ReadSome(uint32_t aSize = 16384)
    {
        HostTransferResult lRead{HostTransfer::Done, 0, 0};
        while (lRead.mEnd == HostTransfer::Done && lRead.mBytes == 0)
        {
            lRead = Read(aSize);
        }
        EXPECT_EQ(lRead.mEnd, HostTransfer::Done);
        return {mBuffer.data(), lRead.mBytes};
    }
    std::string ReadCount(size_t aCount)
    {
        std::string lAll;
        while (lAll.size() < aCount)
        {
            const std::string lSome = ReadSome();
            if (lSome.empty())
            {
                break;
            }
            lAll += lSome;
        }
        return lAll;
    }

    HostSerialPort mPort;
    KyPlatform::StopEvent mStop;
    std::array<char, 16384> mBuffer{};
};

TEST_F(HostSerialPortTest, CarriesEveryByteValueIn)
{
    EXPECT_EQ(mLink->Write(AllBytes()), 256U);
    EXPECT_EQ(ReadCount(256), AllBytes());
}

TEST_F(HostSerialPortTest, CarriesEveryByteValueOut)
{
    const std::string lAll = AllBytes();
    const HostTransferResult lWrite = mPort.Write(lAll.data(), 256, mStop);
    EXPECT_EQ(lWrite.mEnd, HostTransfer::Done);
    EXPECT_EQ(lWrite.mBytes, 256U);
    EXPECT_EQ(mLink->Read(256), lAll);
    EXPECT_EQ(mLink->Read(1, 50), ""); // no echo
}

TEST_F(HostSerialPortTest, AFullBufferIsDeliveredWithoutWaiting)
{
    EXPECT_EQ(mLink->Write("abcdef"), 6U);
    EXPECT_EQ(ReadSome(4), "abcd");
    EXPECT_EQ(ReadCount(2), "ef");
}

TEST_F(HostSerialPortTest, WaitsForTheFirstByteAsLongAsItTakes)
{
    std::thread lSender(
        [&]
        {
            Thread::Sleep(100);
            mLink->Write("x");
        });
    EXPECT_EQ(ReadSome(), "x");
    lSender.join();
}

TEST_F(HostSerialPortTest, AStopEndsAReadThatWaits)
{
    std::thread lStopper(
        [&]
        {
            Thread::Sleep(30);
            mStop.Set();
        });
    HostTransferResult lRead{HostTransfer::Done, 0, 0};
    while (lRead.mEnd == HostTransfer::Done)
    {
        lRead = Read();
    }
    EXPECT_EQ(lRead.mEnd, HostTransfer::Stopped);
    lStopper.join();
    EXPECT_EQ(Read().mEnd, HostTransfer::Stopped); // it stays set
}

TEST_F(HostSerialPortTest, AStopEndsAWriteThatNobodyTakes)
{
    // More than any buffer on the way holds; the other end of the link does not read.
    std::thread lStopper(
        [&]
        {
            Thread::Sleep(100);
            mStop.Set();
        });
    const std::string lMuch(16384, 'x');
    HostTransferResult lWrite{HostTransfer::Done, 0, 0};
    const uint64_t lStart = Thread::GetTickCount();
    while (lWrite.mEnd == HostTransfer::Done && Thread::GetTickCount() - lStart < 60000)
    {
        lWrite = mPort.Write(lMuch.data(), 16384, mStop);
    }
    EXPECT_EQ(lWrite.mEnd, HostTransfer::Stopped);
    EXPECT_LE(lWrite.mBytes, 16384U);
    lStopper.join();
}

TEST_F(HostSerialPortTest, ReadsAndWritesAtTheSameTime)
{
    const std::string lMuch(20000, 'u');
    std::string lArrived;
    std::thread lReader([&] { lArrived = ReadCount(lMuch.size()); });
    std::thread lWriter(
        [&]
        {
            size_t lDone = 0;
            while (lDone < lMuch.size())
            {
                const auto lPart = static_cast<uint32_t>(std::min<size_t>(1000, lMuch.size() - lDone));
                lDone += mPort.Write(lMuch.data() + lDone, lPart, mStop).mBytes;
            }
        });
    std::string lCame;
    std::thread lTaker([&] { lCame = mLink->Read(lMuch.size()); });
    EXPECT_EQ(mLink->Write(lMuch), lMuch.size());
    lReader.join();
    lWriter.join();
    lTaker.join();
    EXPECT_TRUE(lArrived == lMuch); // not as equality: the texts are long
    EXPECT_TRUE(lCame == lMuch);
}

TEST_F(HostSerialPortTest, TheLineCanBeSetAgain)
{
    for (const uint32_t lRate : {9600U, 19200U, 38400U, 57600U, 115200U})
    {
        ASSERT_TRUE(mPort.ReadLine());
        HostLine lLine;
        lLine.mBaudRate = lRate;
        EXPECT_TRUE(mPort.SetLine(lLine)) << lRate;
    }
}

TEST_F(HostSerialPortTest, APortThatIsClosedCanBeOpenedAgain)
{
    mPort.Close();
    EXPECT_FALSE(mPort.IsOpen());
    ASSERT_TRUE(mPort.Open(mLink->GetPath().c_str()));
    EXPECT_FALSE(mPort.SetLine(HostLine())); // not read yet
    EXPECT_TRUE(mPort.ReadLine());
    EXPECT_TRUE(mPort.SetLine(HostLine()));
}

TEST_F(HostSerialPortTest, GoesOnAfterTheOtherEndHasVanishedAndComeBack)
{
    if (!HostLink::CanComeBack())
    {
        GTEST_SKIP() << "a port of this system that has vanished does not come back while it is open";
    }
    mLink->Vanish();
    EXPECT_EQ(Read().mEnd, HostTransfer::Refused);
    EXPECT_EQ(mPort.Write("x", 1, mStop).mEnd, HostTransfer::Refused);
    EXPECT_EQ(Read().mEnd, HostTransfer::Refused); // still away
    EXPECT_NE(Read().mError, 0U);
    mLink->ComeBack();
    // A read that is to stop at once opens the device again and then stops.
    KyPlatform::StopEvent lAtOnce;
    ASSERT_TRUE(lAtOnce.Create());
    ASSERT_TRUE(lAtOnce.Set());
    EXPECT_EQ(mPort.Read(mBuffer.data(), 1, lAtOnce).mEnd, HostTransfer::Stopped);
    EXPECT_EQ(mLink->Write("back"), 4U);
    EXPECT_EQ(ReadCount(4), "back");
    EXPECT_EQ(mPort.Write("\nhere", 5, mStop).mBytes, 5U);
    EXPECT_EQ(mLink->Read(5), "\nhere"); // the settings are as before: no translation
}

} // namespace
