// The host sides over TCP, with the test in the bridge's place: clients of all kinds, hostile ones included.

#include "kyserial/Serve/Tcp/TcpHost.h"
#include "Support/WaitFor.h"
#include "kyserial/Text/Failure.h"

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/read.hpp>
#include <boost/asio/write.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <optional>
#include <thread>
#include <utility>

using namespace KySerialTool;
using namespace KyTest;
using boost::asio::ip::tcp;
using ReadEnd = IKySerialBridgeHost::ReadEnd;

namespace
{

class TcpHostTest : public testing::Test
{
protected:
    void Open(const TcpSettings& aSettings = {}) { mHost.emplace(aSettings, mNetwork); }
    void OpenFor(TcpClients aClients)
    {
        TcpSettings lSettings;
        lSettings.mClients = aClients;
        Open(lSettings);
    }
    void OpenTelnet()
    {
        TcpSettings lSettings;
        lSettings.mTelnet = true;
        Open(lSettings);
    }

    tcp::socket Connect()
    {
        tcp::socket lSocket(mContext);
        lSocket.connect({boost::asio::ip::address_v4::loopback(), mHost->GetPort()});
        return lSocket;
    }
    /// Connects, and waits until the host knows the client.
    tcp::socket Join()
    {
        const uint64_t lBefore = mHost->GetCounts().mAccepted;
        tcp::socket lSocket = Connect();
        EXPECT_TRUE(WaitFor([&] { return mHost->GetCounts().mAccepted == lBefore + 1; }));
        return lSocket;
    }
    static void Send(tcp::socket& aSocket, const std::string& aText)
    {
        boost::asio::write(aSocket, boost::asio::buffer(aText));
    }
    static std::string Receive(tcp::socket& aSocket, size_t aSize)
    {
        std::string lText(aSize, '\0');
        boost::system::error_code lError;
        lText.resize(boost::asio::read(aSocket, boost::asio::buffer(lText), lError));
        return lText;
    }
    /// Whether the host has disconnected the client, whose bytes are dropped.
    static bool IsOver(tcp::socket& aSocket)
    {
        char lByte[4096];
        boost::system::error_code lError;
        while (!lError)
        {
            static_cast<void>(aSocket.read_some(boost::asio::buffer(lByte), lError));
        }
        return true;
    }
    /// Has a device send until the client, which reads nothing, takes no more; then closes. \return What the host side has taken.
    uint64_t FillAndClose(const std::string& aBlock)
    {
        std::atomic<uint64_t> lTaken{0};
        std::thread lDevice(
            [&]
            {
                for (uint32_t lWritten = 1; lWritten > 0;)
                {
                    lWritten = Write(aBlock);
                    lTaken += lWritten;
                }
            });
        uint64_t lBefore = 0;
        EXPECT_TRUE(WaitFor(
            [&]
            {
                std::this_thread::sleep_for(
                    std::chrono::milliseconds(50)); // the system moves bytes on by itself
                return std::exchange(lBefore, lTaken.load()) == lTaken && lTaken > 65536;
            }));
        mHost->EndTransfers();
        lDevice.join();
        mHost->Close();
        return lTaken;
    }
    /// Runs aRound until bytes were stopped in one: a busy system may take all of them in time.
    template<typename Round>
    void UntilBytesAreStopped(const Round& aRound)
    {
        constexpr int cMost = 50;
        int lRounds = 0;
        do
        {
            aRound();
        } while (Counts().mStoppedToUser == 0 && ++lRounds < cMost);
        EXPECT_LT(lRounds, cMost);
    }
    static std::string ReceiveAll(tcp::socket& aSocket) { return Receive(aSocket, 100000000); }
    /// What clients have sent; a request is "[rate parity stop]".
    std::string Read(size_t aSize)
    {
        std::string lText;
        while (lText.size() < aSize)
        {
            uint8_t lBytes[1000];
            uint32_t lRead = 0;
            KySerialBridgeRequest lRequest;
            const ReadEnd lEnd = mHost->Read(lBytes, sizeof lBytes, lRead, lRequest);
            lText.append(reinterpret_cast<const char*>(lBytes), lRead);
            if (lEnd == ReadEnd::Nothing)
            {
                return lText;
            }
            if (lEnd == ReadEnd::Request)
            {
                lText += '[' + std::to_string(lRequest.mBaudRate) + ' ' +
                         (lRequest.mSetsParity ? std::to_string(lRequest.mParity) : "-") + ' ' +
                         std::to_string(lRequest.mStopBits) + (lRequest.mClearsReceived ? " clear]" : "]");
            }
        }
        return lText;
    }
    uint32_t Write(const std::string& aText)
    {
        return mHost->Write(reinterpret_cast<const uint8_t*>(aText.data()),
                            static_cast<uint32_t>(aText.size()));
    }
    TcpCounts Counts() { return mHost->GetCounts(); }

    Network mNetwork;
    boost::asio::io_context mContext;
    std::optional<TcpHost> mHost;
};

TEST_F(TcpHostTest, BytesFromElsewhereGoInOrderWithThoseOfClientsUpToALimit)
{
    OpenFor(TcpClients::ReadOnly); // whose clients send nothing
    EXPECT_TRUE(mHost->Insert("one "));
    EXPECT_TRUE(mHost->Insert(""));
    EXPECT_TRUE(mHost->Insert("two"));
    EXPECT_EQ(Read(7), "one two");
    uint64_t lTaken = 7;
    const std::string lPiece(1000, 'x');
    while (mHost->Insert(lPiece))
    {
        lTaken += lPiece.size();
        ASSERT_LE(lTaken, 100000U);
    }
    EXPECT_GE(lTaken, 16384U);
    EXPECT_EQ(mHost->GetCounts().mTaken, lTaken);
    mHost->EndTransfers();
    EXPECT_FALSE(mHost->Insert("late"));
    mHost->Close();
    EXPECT_GT(mHost->GetCounts().mLeft, 0U);
}

TEST_F(TcpHostTest, BytesGoBothWays)
{
    Open();
    tcp::socket lClient = Join();
    Send(lClient, "ZOOM");
    EXPECT_EQ(Read(4), "ZOOM");
    EXPECT_EQ(Write("READY"), 5U);
    EXPECT_EQ(Receive(lClient, 5), "READY");
    EXPECT_EQ(Counts().mTaken, 4U);
    EXPECT_EQ(Counts().mUnread, 0U);
}

TEST_F(TcpHostTest, WhatNobodyIsThereForIsCounted)
{
    Open();
    EXPECT_EQ(Write("READY"), 5U); // a port that no program has open takes it too
    EXPECT_EQ(Counts().mUnread, 5U);
}

TEST_F(TcpHostTest, OneClientAtATime)
{
    Open();
    std::optional<tcp::socket> lFirst = Join();
    tcp::socket lSecond = Connect();
    EXPECT_TRUE(IsOver(lSecond));
    EXPECT_EQ(Counts().mTurnedAway, 1U);
    lFirst.reset();
    EXPECT_TRUE(WaitFor([&] { return Counts().mClients == 0; }));
    tcp::socket lThird = Join();
    Send(lThird, "A");
    EXPECT_EQ(Read(1), "A");
}

TEST_F(TcpHostTest, AmongSeveralTheFirstWritesAndAllRead)
{
    OpenFor(TcpClients::Shared);
    std::optional<tcp::socket> lFirst = Join();
    tcp::socket lSecond = Join();
    Send(lSecond, "IGNORED");
    EXPECT_TRUE(WaitFor([&] { return Counts().mNotAllowed == 7; }));
    Send(*lFirst, "A");
    EXPECT_EQ(Read(1), "A");
    EXPECT_EQ(Write("READY"), 5U);
    EXPECT_EQ(Receive(*lFirst, 5), "READY");
    EXPECT_EQ(Receive(lSecond, 5), "READY");
    lFirst.reset();
    EXPECT_TRUE(WaitFor([&] { return Counts().mClients == 1; }));
    Send(lSecond, "B"); // now it is the first
    EXPECT_EQ(Read(1), "B");
    EXPECT_EQ(Counts().mTaken, 9U);
}

TEST_F(TcpHostTest, NobodyWritesToAPortThatIsReadOnly)
{
    OpenFor(TcpClients::ReadOnly);
    tcp::socket lClient = Join();
    Send(lClient, "IGNORED");
    EXPECT_TRUE(WaitFor([&] { return Counts().mNotAllowed == 7; }));
    EXPECT_EQ(Write("READY"), 5U);
    EXPECT_EQ(Receive(lClient, 5), "READY");
}

TEST_F(TcpHostTest, AClientThatNeverReadsHoldsUpNobodyElse)
{
    OpenFor(TcpClients::Shared);
    tcp::socket lSleeper = Join();
    tcp::socket lReader = Join();
    constexpr size_t cBlocks = 2048;
    const std::string lBlock(16384, 'x');
    std::thread lDevice(
        [&]
        {
            for (size_t lIndex = 0; lIndex < cBlocks; ++lIndex)
            {
                EXPECT_EQ(Write(lBlock), lBlock.size());
            }
        });
    EXPECT_EQ(Receive(lReader, cBlocks * lBlock.size()).size(), cBlocks * lBlock.size());
    lDevice.join();
    EXPECT_EQ(Counts().mDisconnected, 1U);
    EXPECT_EQ(Counts().mClients, 1U);
    EXPECT_EQ(Counts().mUnread, 0U);
}

TEST_F(TcpHostTest, AClientThatIsAloneAndNeverReadsIsWaitedForUntilTheEnd)
{
    UntilBytesAreStopped(
        [this]
        {
            Open();
            tcp::socket lSleeper = Join();
            const uint64_t lTaken = FillAndClose(std::string(16384, 'x'));
            EXPECT_EQ(Counts().mClients, 0U);
            // What waited here; the rest is in the system's buffers, and goes on.
            EXPECT_LE(Counts().mStoppedToUser, 65536U + 16384U);
            EXPECT_EQ(ReceiveAll(lSleeper).size() + Counts().mStoppedToUser, lTaken);
        });
}

TEST_F(TcpHostTest, EscapedBytesThatHaveNotLeftAreCountedAsThoseOfTheDevice)
{
    UntilBytesAreStopped(
        [this]
        {
            OpenTelnet();
            tcp::socket lSleeper = Join();
            const uint64_t lTaken = FillAndClose(std::string(8192, '\xFF') + std::string(8193, 'x'));
            const std::string lSent = ReceiveAll(lSleeper).substr(15); // after the greeting
            const auto lEscapes = static_cast<uint64_t>(std::count(lSent.begin(), lSent.end(), '\xFF'));
            EXPECT_EQ(lSent.size() - (lEscapes + 1) / 2 + Counts().mStoppedToUser, lTaken);
        });
}

TEST_F(TcpHostTest, AClientThatSendsTooFastIsNotRead)
{
    Open();
    tcp::socket lClient = Join();
    std::string lFlood;
    lFlood.resize(20'000'000);
    for (size_t lIndex = 0; lIndex < lFlood.size(); ++lIndex)
    {
        lFlood[lIndex] = static_cast<char>(lIndex * 7 + lIndex / 256);
    }
    std::thread lSender([&] { Send(lClient, lFlood); });
    EXPECT_TRUE(WaitFor([&] { return Counts().mTaken >= 16384; }));
    EXPECT_LE(Counts().mTaken, 16384U + 4096U);
    EXPECT_TRUE(Read(lFlood.size()) == lFlood); // and nothing is lost
    lSender.join();
}

TEST_F(TcpHostTest, ThousandsOfConnectionsAreTurnedAway)
{
    Open();
    tcp::socket lClient = Join();
    constexpr uint64_t cMany = 3000;
    for (uint64_t lCount = 0; lCount < cMany; ++lCount)
    {
        tcp::socket lOther = Connect();
        ASSERT_TRUE(IsOver(lOther));
    }
    EXPECT_EQ(Counts().mTurnedAway, cMany);
    EXPECT_EQ(Counts().mClients, 1U);
    Send(lClient, "A");
    EXPECT_EQ(Read(1), "A");
}

TEST_F(TcpHostTest, AnIdleClientIsDisconnected)
{
    TcpSettings lSettings;
    lSettings.mIdle = 1;
    Open(lSettings);
    tcp::socket lClient = Join();
    EXPECT_TRUE(IsOver(lClient));
    EXPECT_TRUE(WaitFor([&] { return Counts().mDisconnected == 1; }));
}

TEST_F(TcpHostTest, APlaceThatIsTakenIsRefused)
{
    Open();
    TcpSettings lSettings;
    lSettings.mPort = mHost->GetPort();
    EXPECT_THROW(TcpHost(lSettings, mNetwork), OperationError);
}

TEST_F(TcpHostTest, TheEndDisconnectsAndCounts)
{
    Open();
    tcp::socket lClient = Join();
    Send(lClient, "LEFT");
    EXPECT_TRUE(WaitFor([&] { return Counts().mTaken == 4; }));
    mHost->Close();
    EXPECT_TRUE(IsOver(lClient));
    EXPECT_EQ(Counts().mLeft, 4U);
    EXPECT_EQ(Counts().mClients, 0U);
    TcpHost lAfter(TcpSettings(), mNetwork);
    lAfter.Close(); // the network's thread has done all that the first end left to it
    EXPECT_EQ(Counts().mFailures, 0U);
    EXPECT_TRUE(mHost->TakeNews().empty());
}

TEST_F(TcpHostTest, APlaceWhoseConnectionsHaveJustEndedIsFreeAtOnce)
{
    Open();
    TcpSettings lSettings;
    lSettings.mPort = mHost->GetPort();
    {
        tcp::socket lClient = Join();
        mHost->Close(); // first: the system keeps this end of the connection for a while
        EXPECT_TRUE(IsOver(lClient));
    }
    ASSERT_NO_THROW(Open(lSettings));
    tcp::socket lClient = Join();
    EXPECT_EQ(Write("READY"), 5U);
    EXPECT_EQ(Receive(lClient, 5), "READY");
}

std::string Command(const std::string& aBytes)
{
    return "\xFF\xFA\x2C" + aBytes + "\xFF\xF0";
}

TEST_F(TcpHostTest, LineSettingsTakeTheirPlaceAmongTheBytesAndAreAnsweredWithWhatTheDeviceHas)
{
    OpenTelnet();
    tcp::socket lClient = Join();
    EXPECT_EQ(Receive(lClient, 15).size(), 15U); // the greeting
    Send(lClient, "A" + Command(std::string("\x01\x00\x01\xC2\x00", 5)) + "B" + Command("\x03\x03") +
                      Command("\x04\x02"));
    EXPECT_EQ(Read(1), "A");
    EXPECT_EQ(Read(1), "[115200 - 0]");
    mHost->NotifySettings({57600, KyParityOdd, 8, 1}); // the device refuses the one
    EXPECT_EQ(Receive(lClient, 10), Command(std::string("\x65\x00\x00\xE1\x00", 5)));
    EXPECT_EQ(Read(1), "B");
    EXPECT_EQ(Read(1), "[0 1 0]");
    mHost->NotifySettings({57600, KyParityEven, 8, 1});
    EXPECT_EQ(Receive(lClient, 7), Command("\x67\x03"));
    EXPECT_EQ(Read(1), "[0 - 2]");
    mHost->NotifySettings({57600, KyParityEven, 8, 2});
    EXPECT_EQ(Receive(lClient, 7), Command("\x68\x02"));
}

TEST_F(TcpHostTest, WhatACameraLacksIsAnsweredWithWhatIsInEffect)
{
    OpenTelnet();
    tcp::socket lClient = Join();
    Receive(lClient, 15);
    Send(lClient, Command("\x02\x07")); // seven bits
    EXPECT_EQ(Receive(lClient, 7), Command("\x66\x08"));
    Send(lClient, Command("\x05\x03") + Command("\x05\x04")); // hardware flow control; is there a break?
    EXPECT_EQ(Receive(lClient, 7), Command("\x69\x01"));
    Receive(lClient, 7); // modem state
    EXPECT_EQ(Receive(lClient, 7), Command("\x69\x06"));
}

TEST_F(TcpHostTest, APurgeDropsWhatWaitsForTheDevice)
{
    OpenTelnet();
    tcp::socket lClient = Join();
    Receive(lClient, 15);
    Send(lClient, "OLD" + Command("\x0C\x03") + "NEW");
    EXPECT_EQ(Receive(lClient, 7), Command("\x70\x03"));
    EXPECT_EQ(Read(1), "[0 - 0 clear]");
    EXPECT_EQ(Read(3), "NEW");
    EXPECT_EQ(Counts().mPurged, 3U);
    EXPECT_EQ(Counts().mTaken, 6U);
}

TEST_F(TcpHostTest, AReaderCannotSetTheLine)
{
    TcpSettings lSettings;
    lSettings.mTelnet = true;
    lSettings.mClients = TcpClients::ReadOnly;
    Open(lSettings);
    tcp::socket lClient = Join();
    mHost->NotifySettings({9600, KyParityNone, 8, 1});
    Receive(lClient, 15);
    Send(lClient, Command(std::string("\x01\x00\x01\xC2\x00", 5)));
    EXPECT_EQ(Receive(lClient, 10), Command(std::string("\x65\x00\x00\x25\x80", 5)));
    mHost->EndTransfers();
    EXPECT_EQ(Read(1), "");
}

TEST_F(TcpHostTest, AClientThatAsksAndNeverReadsTheAnswersIsDisconnected)
{
    OpenTelnet();
    tcp::socket lClient = Join();
    std::string lQuestions;
    for (int lCount = 0; lCount < 10000; ++lCount)
    {
        lQuestions += Command("\x02\x08");
    }
    boost::system::error_code lError;
    for (int lCount = 0; lCount < 1000 && !lError; ++lCount) // 70 MB, which no system holds
    {
        boost::asio::write(lClient, boost::asio::buffer(lQuestions), lError);
    }
    EXPECT_TRUE(WaitFor([&] { return Counts().mDisconnected == 1; }));
}

TEST_F(TcpHostTest, RubbishIsCountedAndOthersAreUnharmed)
{
    TcpSettings lSettings;
    lSettings.mTelnet = true;
    lSettings.mClients = TcpClients::Shared;
    Open(lSettings);
    tcp::socket lGood = Join();
    tcp::socket lBad = Join();
    Send(lBad, Command(std::string(1000, 'x')) + Command("\x01\x02") + "\xFF\xFA\x2C"); // half a request
    EXPECT_TRUE(WaitFor([&] { return Counts().mFaults == 2; }));
    Send(lGood, "A");
    EXPECT_EQ(Read(1), "A");
}

} // namespace
