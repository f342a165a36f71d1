#include "GigE/ScriptedDevice.h"
#include "Support/ResultMatcher.h"

#include "Adapters/GigE/Client/ControlChannel.h"

#include <gmock/gmock.h>

#include <numeric>

using KyGigE::ControlChannel;
using KyTest::IsOK;
using KyTest::IsResult;
using KyTest::ScriptedDevice;
using testing::ElementsAre;
using testing::SizeIs;
using Answer = ScriptedDevice::Answer;
using Bytes = std::vector<uint8_t>;

namespace
{

class ControlChannelTest : public testing::Test
{
protected:
    ControlChannelTest()
    {
        EXPECT_THAT(mChannel.Open({mDevice.GetAddress(), mDevice.GetPort()}, 0), IsOK());
        mChannel.Begin();
    }

    static Bytes Counting(size_t aSize)
    {
        Bytes lBytes(aSize);
        std::iota(lBytes.begin(), lBytes.end(), static_cast<uint8_t>(1));
        return lBytes;
    }

    ScriptedDevice mDevice{""};
    // Patient enough for a busy machine; tests of silence have their own.
    ControlChannel mChannel{{100, 100, 5000}};
};

TEST_F(ControlChannelTest, ReadsAndWritesRegisters)
{
    mDevice.PutWord(0xB84C, 0x01020304);
    uint32_t lValue = 0;
    EXPECT_THAT(mChannel.ReadRegister(0xB84C, lValue), IsOK());
    EXPECT_EQ(lValue, 0x01020304U);
    EXPECT_THAT(mChannel.WriteRegister(0xB84C, 0xA0B0C0D0), IsOK());
    EXPECT_EQ(mDevice.GetWord(0xB84C), 0xA0B0C0D0);
}

TEST_F(ControlChannelTest, ALostAcknowledgeIsAskedForAgainAndTheCommandDoneOnce)
{
    mDevice.SetScript([](const ScriptedDevice::Command&) { return Answer{Answer::Silence}; });
    EXPECT_THAT(mChannel.WriteMemory(0x80000000, Counting(1).data(), 1), IsOK());
    const auto lCommands = mDevice.TakeCommands();
    ASSERT_GE(lCommands.size(), 2U);
    EXPECT_EQ(lCommands[0].mRequest, lCommands[1].mRequest);
    EXPECT_THAT(mDevice.TakeWindowWrites(), SizeIs(1));
    EXPECT_EQ(mChannel.GetRepeats(), lCommands.size() - 1);
}

TEST_F(ControlChannelTest, RequestsHaveDifferentIdentifiersAndNeverZero)
{
    uint32_t lValue = 0;
    for (int lRound = 0; lRound < 100; ++lRound)
    {
        ASSERT_THAT(mChannel.ReadRegister(0, lValue), IsOK());
    }
    uint16_t lLast = 0;
    for (const auto& lCommand : mDevice.TakeCommands())
    {
        EXPECT_EQ(lCommand.mRequest, KyGigE::FollowingRequest(lLast));
        lLast = lCommand.mRequest;
    }
    EXPECT_EQ(KyGigE::FollowingRequest(0xFFFF), 1);
}

TEST_F(ControlChannelTest, ACommandOfAnEarlierConnectionIsNotSentOnTheNextOne)
{
    const uint64_t lFirst = mChannel.GetConnection();
    EXPECT_THAT(mChannel.WriteRegister(0x20000, 1, lFirst), IsOK());
    mChannel.SetShut(true);
    mChannel.Begin();
    EXPECT_EQ(mChannel.GetConnection(), lFirst + 1);
    const auto lGone = IsResult(KyResult::NO_CONNECTION, "The device is not currently connected.");
    mDevice.TakeCommands();
    uint32_t lValue = 1;
    uint8_t lByte = 0;
    EXPECT_THAT(mChannel.WriteRegister(0x20000, 2, lFirst), lGone);
    EXPECT_THAT(mChannel.ReadRegister(0x20000, lValue, lFirst), lGone);
    EXPECT_EQ(lValue, 0U);
    EXPECT_THAT(mChannel.WriteMemory(0x80000000, Counting(600).data(), 600, lFirst), lGone);
    EXPECT_THAT(mChannel.ReadMemory(0, &lByte, 1, lFirst), lGone);
    EXPECT_THAT(mDevice.TakeCommands(), SizeIs(0));
    EXPECT_EQ(mDevice.GetWord(0x20000), 1U);
    EXPECT_THAT(mChannel.WriteRegister(0x20000, 3, lFirst + 1), IsOK());
    EXPECT_THAT(mChannel.WriteRegister(0x20000, 4), IsOK());
}

TEST_F(ControlChannelTest, ASilentDeviceIsLostAfterTheLastAttempt)
{
    ControlChannel lChannel({100, 4, 5000});
    ASSERT_THAT(lChannel.Open({mDevice.GetAddress(), mDevice.GetPort()}, 0), IsOK());
    lChannel.Begin();
    mDevice.SetFrozen(true);
    uint32_t lValue = 7;
    const auto lBegin = std::chrono::steady_clock::now();
    EXPECT_THAT(lChannel.ReadRegister(0, lValue),
                IsResult(KyResult::NO_CONNECTION, "The device does not answer."));
    EXPECT_GE(std::chrono::steady_clock::now() - lBegin, std::chrono::milliseconds(400));
    EXPECT_EQ(lValue, 0U);
    EXPECT_TRUE(lChannel.IsShut());
    EXPECT_EQ(lChannel.GetRepeats(), 3U);
    EXPECT_THAT(lChannel.WriteRegister(0, 1),
                IsResult(KyResult::NO_CONNECTION, "The device is not currently connected."));
    mDevice.SetFrozen(false);
    EXPECT_THAT(mChannel.ReadRegister(0, lValue), IsOK());
}

TEST_F(ControlChannelTest, ADeviceThatIsSwitchedOffIsLostAtOnce)
{
    if (!KyGvcp::UdpSocket::ReportsRefusals())
    {
        GTEST_SKIP() << "this system does not report that nobody listens";
    }
    mDevice.SwitchOff();
    ControlChannel lPatient({60000, 4, 60000});
    ASSERT_THAT(lPatient.Open({mDevice.GetAddress(), mDevice.GetPort()}, 0), IsOK());
    lPatient.Begin();
    uint32_t lValue = 0;
    const auto lBegin = std::chrono::steady_clock::now();
    EXPECT_EQ(lPatient.ReadRegister(0, lValue).GetCode(), KyResult::NO_CONNECTION);
    EXPECT_LT(std::chrono::steady_clock::now() - lBegin, std::chrono::seconds(30));
}

TEST_F(ControlChannelTest, OneOldRefusalDoesNotLoseADeviceThatIsBack)
{
    mDevice.SwitchOff();
    uint32_t lValue = 0;
    EXPECT_EQ(mChannel.ReadRegister(0, lValue).GetCode(), KyResult::NO_CONNECTION);
    mDevice.SwitchOn();
    mChannel.Begin();
    EXPECT_THAT(mChannel.ReadRegister(0, lValue), IsOK());
}

TEST_F(ControlChannelTest, ADeviceThatAsksForTimeGetsIt)
{
    mDevice.SetScript([](const ScriptedDevice::Command&) { return Answer{Answer::Pending, 0, 1600}; });
    ControlChannel lChannel({600, 4, 5000});
    ASSERT_THAT(lChannel.Open({mDevice.GetAddress(), mDevice.GetPort()}, 0), IsOK());
    lChannel.Begin();
    const auto lBegin = std::chrono::steady_clock::now();
    uint32_t lValue = 0;
    EXPECT_THAT(lChannel.ReadRegister(0, lValue), IsOK());
    EXPECT_GE(std::chrono::steady_clock::now() - lBegin, std::chrono::milliseconds(800));
    EXPECT_EQ(lChannel.GetRepeats(), 0U);
}

TEST_F(ControlChannelTest, RefusalsKeepTheDevicesNumber)
{
    for (const uint16_t lStatus : std::initializer_list<uint16_t>{0x8003, 0x8004, 0x8006, 0x8F01, 0x8ABC})
    {
        mDevice.SetScript([=](const ScriptedDevice::Command&) { return Answer{Answer::Refuse, lStatus}; });
        const KyResult lResult = mChannel.WriteRegister(0xB84C, 1);
        EXPECT_EQ(lResult.GetCode(), lStatus);
        EXPECT_THAT(lResult.GetDescription().GetAscii(), testing::StartsWith("The device refused: "));
    }
    EXPECT_EQ(mDevice.GetWord(0xB84C), 0U);
    EXPECT_FALSE(mChannel.IsShut());
}

TEST_F(ControlChannelTest, ARefusalWithoutANamePrintsItsNumber)
{
    mDevice.SetScript([](const ScriptedDevice::Command&) { return Answer{Answer::Refuse, 0x8ABC}; });
    EXPECT_THAT(mChannel.WriteRegister(0xB84C, 1), IsResult(0x8ABC, "The device refused: status 0x8ABC."));
}

TEST_F(ControlChannelTest, ABusyDeviceIsAskedAgainAtThePaceOfTheTimeout)
{
    int lBusy = 2;
    mDevice.SetScript(
        [&](const ScriptedDevice::Command&) {
            return lBusy-- > 0 ? Answer{Answer::Refuse, KyGvcp::cBusy} : Answer();
        });
    const auto lBegin = std::chrono::steady_clock::now();
    EXPECT_THAT(mChannel.WriteRegister(0xB84C, 7), IsOK());
    EXPECT_GE(std::chrono::steady_clock::now() - lBegin, std::chrono::milliseconds(200));
    EXPECT_EQ(mDevice.GetWord(0xB84C), 7U);
    const auto lCommands = mDevice.TakeCommands();
    ASSERT_GE(lCommands.size(), 3U);
    EXPECT_NE(lCommands[0].mRequest, lCommands[1].mRequest); // its memory would answer "busy" for ever
}

TEST_F(ControlChannelTest, ADeviceThatStaysBusyIsARefusalAndNoLoss)
{
    mDevice.SetScript([](const ScriptedDevice::Command&) { return Answer{Answer::Refuse, KyGvcp::cBusy}; });
    ControlChannel lChannel({20, 3, 5000});
    ASSERT_THAT(lChannel.Open({mDevice.GetAddress(), mDevice.GetPort()}, 0), IsOK());
    lChannel.Begin();
    EXPECT_THAT(lChannel.WriteRegister(0xB84C, 1), IsResult(KyGvcp::cBusy, "The device refused: busy."));
    EXPECT_FALSE(lChannel.IsShut());
    EXPECT_GE(mDevice.TakeCommands().size(), 3U);
}

TEST_F(ControlChannelTest, ADeviceThatIsSlowInSilenceIsWaitedForAsLongAsItSays)
{
    mDevice.SetScript([](const ScriptedDevice::Command&) { return Answer{Answer::Slow, 0, 700}; });
    ControlChannel lChannel({20, 2, 20000});
    ASSERT_THAT(lChannel.Open({mDevice.GetAddress(), mDevice.GetPort()}, 0), IsOK());
    lChannel.Begin();
    lChannel.SetPatience(20000);
    EXPECT_THAT(lChannel.WriteMemory(0x80000000, Counting(1).data(), 1), IsOK());
    EXPECT_EQ(lChannel.GetRepeats(), 1U);
    EXPECT_THAT(mDevice.TakeWindowWrites(), SizeIs(1));
}

TEST_F(ControlChannelTest, NoDeviceGetsMoreTimeInSilenceThanTheMost)
{
    mDevice.SetFrozen(true);
    ControlChannel lChannel({20, 2, 100});
    ASSERT_THAT(lChannel.Open({mDevice.GetAddress(), mDevice.GetPort()}, 0), IsOK());
    lChannel.Begin();
    lChannel.SetPatience(UINT32_MAX);
    uint32_t lValue = 0;
    EXPECT_EQ(lChannel.ReadRegister(0, lValue).GetCode(), KyResult::NO_CONNECTION);
}

TEST_F(ControlChannelTest, ACommandThatWaitsCanBeCancelled)
{
    mDevice.SetScript([](const ScriptedDevice::Command&) { return Answer{Answer::Promise, 0, 60000}; });
    const auto lCancel = std::make_shared<std::atomic<bool>>(false);
    ControlChannel lChannel({200, 4, 60000}, lCancel);
    ASSERT_THAT(lChannel.Open({mDevice.GetAddress(), mDevice.GetPort()}, 0), IsOK());
    lChannel.Begin();
    std::thread lCanceller(
        [&]
        {
            EXPECT_TRUE(mDevice.WaitForCommand(KyGvcp::cReadRegister));
            *lCancel = true;
        });
    uint32_t lValue = 0;
    const auto lBegin = std::chrono::steady_clock::now();
    EXPECT_EQ(lChannel.ReadRegister(0, lValue).GetCode(), KyResult::NO_CONNECTION);
    EXPECT_LT(std::chrono::steady_clock::now() - lBegin, std::chrono::seconds(30));
    lCanceller.join();
    mDevice.TakeCommands();
    EXPECT_EQ(lChannel.ReadRegister(0, lValue).GetCode(), KyResult::NO_CONNECTION);
    EXPECT_THAT(mDevice.TakeCommands(), SizeIs(0));
}

TEST_F(ControlChannelTest, ForeignAndDamagedPacketsAnswerNothing)
{
    mDevice.PutWord(0x10000, 42);
    mDevice.SetScript([](const ScriptedDevice::Command&) { return Answer{Answer::Garbage}; });
    uint32_t lValue = 0;
    EXPECT_THAT(mChannel.ReadRegister(0x10000, lValue), IsOK());
    EXPECT_EQ(lValue, 42U);
}

TEST_F(ControlChannelTest, WritesExactlyTheBytesThatItGets)
{
    for (const size_t lSize : {1U, 2U, 3U, 255U, 535U, 536U})
    {
        EXPECT_THAT(mChannel.WriteMemory(0x80000400, Counting(lSize).data(), lSize), IsOK());
        EXPECT_THAT(mDevice.TakeWindowWrites(), ElementsAre(testing::Pair(0x80000400U, Counting(lSize))));
    }
}

TEST_F(ControlChannelTest, LongWritesStayInAWindowAndAdvanceInMemory)
{
    const Bytes lBytes = Counting(1100);
    EXPECT_THAT(mChannel.WriteMemory(0x80000200, lBytes.data(), lBytes.size()), IsOK());
    const auto lWrites = mDevice.TakeWindowWrites();
    ASSERT_THAT(lWrites, SizeIs(3));
    Bytes lAll;
    for (const auto& [lAddress, lPart] : lWrites)
    {
        EXPECT_EQ(lAddress, 0x80000200U);
        EXPECT_LE(lPart.size(), 536U);
        lAll.insert(lAll.end(), lPart.begin(), lPart.end());
    }
    EXPECT_EQ(lAll, lBytes);
    EXPECT_THAT(mChannel.WriteMemory(0x20000, lBytes.data(), lBytes.size()), IsOK());
    Bytes lRead(lBytes.size());
    EXPECT_THAT(mChannel.ReadMemory(0x20000, lRead.data(), lRead.size()), IsOK());
    EXPECT_EQ(lRead, lBytes);
}

TEST_F(ControlChannelTest, ReadsWholeWordsAndGivesWhatWasWanted)
{
    mDevice.PutWord(0x20000, 0x01020304);
    Bytes lRead(3, 9);
    EXPECT_THAT(mChannel.ReadMemory(0x20000, lRead.data(), 2), IsOK());
    EXPECT_THAT(lRead, ElementsAre(1, 2, 9));
    EXPECT_EQ(mDevice.TakeCommands()[0].Word(4), 4U);
}

TEST_F(ControlChannelTest, RefusesToWriteNothing)
{
    EXPECT_EQ(mChannel.WriteMemory(0x80000000, nullptr, 4).GetCode(), KyGvcp::cInvalidParameter);
    EXPECT_EQ(mChannel.WriteMemory(0x80000000, Counting(1).data(), 0).GetCode(), KyGvcp::cInvalidParameter);
    EXPECT_THAT(mDevice.TakeCommands(), SizeIs(0));
}

TEST_F(ControlChannelTest, SeveralThreadsGetTheirOwnAnswers)
{
    for (uint32_t lThread = 0; lThread < 4; ++lThread)
    {
        mDevice.PutWord(0x20000 + 4 * lThread, lThread);
    }
    std::vector<std::thread> lThreads;
    lThreads.reserve(4);
    for (uint32_t lThread = 0; lThread < 4; ++lThread)
    {
        lThreads.emplace_back(
            [this, lThread]
            {
                for (int lRound = 0; lRound < 500; ++lRound)
                {
                    uint32_t lValue = 99;
                    EXPECT_THAT(mChannel.ReadRegister(0x20000 + 4 * lThread, lValue), IsOK());
                    EXPECT_EQ(lValue, lThread);
                }
            });
    }
    for (std::thread& lThread : lThreads)
    {
        lThread.join();
    }
}

/// A device that has answered before it is asked; the channel looks once and does not wait.
class LateAnswerTest : public testing::Test
{
protected:
    LateAnswerTest()
    {
        EXPECT_TRUE(mDevice.Open({cLoopback, 0}));
        EXPECT_THAT(mChannel.Open(mDevice.GetLocal(), cLoopback), IsOK());
        mChannel.Begin();
    }

    /// Sends packets that belong to another request, and then the answer.
    void Send(unsigned aForeign)
    {
        const uint16_t lRequest = KyGigE::FollowingRequest(0);
        for (unsigned lPacket = 0; lPacket <= aForeign; ++lPacket)
        {
            const uint16_t lOwn = lPacket == aForeign ? lRequest : static_cast<uint16_t>(lRequest + 1);
            KyGvcp::Packet lAnswer =
                KyGvcp::Packet::Acknowledge(KyGvcp::cSuccess, KyGvcp::cReadRegister + 1, lOwn);
            ASSERT_EQ(mDevice.SendTo(mChannel.GetLocal(), lAnswer.Add32(7).GetBytes()),
                      KyGvcp::SocketResult::Done);
        }
    }

    static constexpr uint32_t cLoopback = 0x7F000001;
    KyGvcp::UdpSocket mDevice;
    ControlChannel mChannel{{0, 1, 0}};
};

TEST_F(LateAnswerTest, AnswerThatHasComeIsReadAfterItsTime)
{
    Send(10);
    uint32_t lValue = 0;
    EXPECT_THAT(mChannel.ReadRegister(0, lValue), IsOK());
    EXPECT_EQ(lValue, 7U);
}

TEST_F(LateAnswerTest, DeviceThatSendsWithoutEndDoesNotKeepTheCaller)
{
    Send(100);
    uint32_t lValue = 0;
    EXPECT_THAT(mChannel.ReadRegister(0, lValue),
                IsResult(KyResult::NO_CONNECTION, "The device does not answer."));
}

} // namespace
