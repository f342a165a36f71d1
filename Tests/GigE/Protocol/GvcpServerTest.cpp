#include "GigE/Protocol/ServerFixture.h"

namespace
{

using namespace KyGvcp;
using namespace KyDeviceProtocol;
using namespace KySimulator;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

class GvcpServerTest : public ServerFixture
{
};

TEST_F(GvcpServerTest, AnswersDiscoveryWithItsIdentity)
{
    const Answer lAnswer = Ask(MakeDiscovery(0xFFFF, true));
    EXPECT_EQ(cDiscoveryAck, lAnswer.mCode);
    EXPECT_EQ(0xFFFF, lAnswer.mRequestID);
    ASSERT_THAT(lAnswer.mPayload, SizeIs(cDiscoverySize));
    EXPECT_EQ(0x00020000U, lAnswer.Word());
    EXPECT_EQ(0x0203U, lAnswer.Word(cMacHighRegister / 4));
    EXPECT_EQ(0x04050607U, lAnswer.Word(cMacLowRegister / 4));
    EXPECT_EQ(0x7F000005U, lAnswer.Word(cAddressRegister / 4));
    const auto lText = [&](size_t aOffset)
    { return std::string(reinterpret_cast<const char*>(lAnswer.mPayload.data()) + aOffset); };
    EXPECT_EQ("Korvo", lText(cVendorRegister));
    EXPECT_EQ("Simulated Camera", lText(cModelRegister));
    EXPECT_EQ("SIM4711", lText(cSerialNumberRegister));
}

TEST_F(GvcpServerTest, ReadsSeveralRegistersAtOnce)
{
    const Answer lAnswer = Ask(Packet::Command(cReadRegister, cAcknowledgeWanted, 7)
                                   .Add32(cMessageTimeoutRegister)
                                   .Add32(cFunctionCapabilities));
    EXPECT_EQ(cReadRegisterAck, lAnswer.mCode);
    EXPECT_EQ(7, lAnswer.mRequestID);
    ASSERT_THAT(lAnswer.mPayload, SizeIs(8));
    EXPECT_EQ(200U, lAnswer.Word());
    EXPECT_EQ(0x80000002U, lAnswer.Word(1));
}

TEST_F(GvcpServerTest, WritesSeveralRegistersUpToTheFirstThatRefuses)
{
    TakeControl();
    const Answer lAnswer = Ask(Packet::Command(cWriteRegister, cAcknowledgeWanted, 7)
                                   .Add32(cInterruptEnable)
                                   .Add32(3)
                                   .Add32(cFunctionCapabilities)
                                   .Add32(0)
                                   .Add32(cInterruptEnable)
                                   .Add32(9));
    EXPECT_EQ(cWriteProtect, lAnswer.mStatus);
    EXPECT_THAT(lAnswer.mPayload, ElementsAre(0, 0, 0, 1));
    EXPECT_EQ(3U, Read(cInterruptEnable).Word());
}

TEST_F(GvcpServerTest, AnAcknowledgeSaysHowMuchWasWritten)
{
    TakeControl();
    EXPECT_THAT(Write(cInterruptEnable, 3).mPayload, ElementsAre(0, 0, 0, 1));
    EXPECT_THAT(WriteMemory(0x80000000, {1, 2, 3}).mPayload, ElementsAre(0, 0, 0, 3));
}

TEST_F(GvcpServerTest, PassesBytesOfAnyNumberToTheWindow)
{
    TakeControl();
    Write(cBulk0Configuration, 1U << cInterfaceShift);
    EXPECT_EQ(cSuccess, WriteMemory(0x80000000, {1}).mStatus);
    EXPECT_EQ(cSuccess, WriteMemory(0x80000000, {2, 3, 4, 5, 6}).mStatus);
    EXPECT_THAT(mCamera->GetWire(Port::Bulk0), ElementsAre(1, 2, 3, 4, 5, 6));
    EXPECT_EQ(cInvalidParameter, WriteMemory(0x80000000, {}).mStatus);
}

TEST_F(GvcpServerTest, PassesTheCamerasOwnStatusOn)
{
    TakeControl();
    Write(cBulk0Configuration, static_cast<uint32_t>(Protocol::I2C) << cInterfaceShift);
    EXPECT_EQ(0x8F01, WriteMemory(0x80001400, {0xA0}).mStatus);
}

TEST_F(GvcpServerTest, RefusesWhatIsNotThere)
{
    TakeControl();
    EXPECT_EQ(cInvalidAddress, Read(0x9000).mStatus);
    EXPECT_EQ(cInvalidAddress, Read(0xB900).mStatus);
    EXPECT_EQ(cBadAlignment, Read(0xB839).mStatus);
    EXPECT_EQ(cInvalidAddress, Write(0x9000, 1).mStatus);
    EXPECT_EQ(cWriteProtect, Write(cVersionRegister, 1).mStatus);
    EXPECT_EQ(cInvalidAddress, ReadMemory(0xA00000, 4).mStatus);
    EXPECT_EQ(cInvalidParameter, ReadMemory(0, 3).mStatus);
    EXPECT_EQ(cInvalidParameter, ReadMemory(0, 0).mStatus);
    EXPECT_EQ(cInvalidParameter, ReadMemory(0, 540).mStatus);
    EXPECT_EQ(cNotImplemented, Ask(Packet::Command(0x40, cAcknowledgeWanted, NextID())).mStatus);
}

TEST_F(GvcpServerTest, RefusesCommandsOfTheWrongLength)
{
    TakeControl();
    for (const uint16_t lCode : {cReadRegister, cWriteRegister, cReadMemory, cWriteMemory})
    {
        EXPECT_EQ(cInvalidHeader, Ask(Packet::Command(lCode, cAcknowledgeWanted, NextID())).mStatus) << lCode;
        EXPECT_EQ(cInvalidHeader, Ask(Packet::Command(lCode, cAcknowledgeWanted, NextID()).Add16(1)).mStatus)
            << lCode;
    }
    const Packet lWhole = MakeReadRegister(NextID(), 0);
    Buffer lLonger(lWhole.GetBytes().begin(), lWhole.GetBytes().end());
    lLonger.push_back(0);
    Receive(cOne, lLonger);
    EXPECT_EQ(cInvalidHeader, TakeAnswer().mStatus);
}

TEST_F(GvcpServerTest, SaysNothingToWhatIsNoCommand)
{
    const Buffer lForeign = {0x41, 1, 0, 0x80, 0, 4, 0, 1, 0, 0, 0, 0};
    Receive(cOne, lForeign);
    Receive(cOne, {});
    Receive(cOne, Packet::Command(cReadRegisterAck, cAcknowledgeWanted, 1).GetBytes());
    Receive(cOne, MakeReadRegister(0, 0).GetBytes());
    EXPECT_THAT(mSent, IsEmpty());
    EXPECT_EQ(4U, mServer->GetCounters().mIgnored);
}

TEST_F(GvcpServerTest, AcknowledgesOnlyCommandsThatWantIt)
{
    TakeControl();
    Receive(cOne, Packet::Command(cWriteRegister, 0, NextID()).Add32(cInterruptEnable).Add32(5).GetBytes());
    EXPECT_THAT(mSent, IsEmpty());
    EXPECT_EQ(5U, Read(cInterruptEnable).Word());
}

TEST_F(GvcpServerTest, ADuplicateThatThousandsHaveOvertakenIsNotExecutedAgain)
{
    TakeControl();
    Write(cBulk0Configuration, 1U << cInterfaceShift);
    const Buffer lByte = {0x55};
    const Packet lEarly = MakeWriteMemory(NextID(), 0x80000000, lByte);
    const Answer lFirst = Ask(lEarly);
    for (int lNext = 0; lNext < 4000; ++lNext)
    {
        ASSERT_EQ(cSuccess, Write(cInterruptEnable, 1).mStatus);
        ASSERT_EQ(cSuccess, Read(cInterruptEnable).mStatus);
    }
    EXPECT_EQ(lFirst.mPayload, Ask(lEarly).mPayload);
    EXPECT_THAT(mCamera->GetWire(Port::Bulk0), ElementsAre(0x55));
    EXPECT_EQ(1U, mServer->GetCounters().mRepeated);
}

TEST_F(GvcpServerTest, ARequestNumberThatIsUsedAgainIsANewCommand)
{
    TakeControl();
    const uint16_t lID = NextID();
    EXPECT_EQ(cSuccess, Ask(MakeWriteRegister(lID, cInterruptEnable, 1)).mStatus);
    EXPECT_EQ(cSuccess, Ask(MakeWriteRegister(lID, cInterruptEnable, 3)).mStatus);
    EXPECT_EQ(3U, Ask(MakeReadRegister(lID, cInterruptEnable)).Word());
    EXPECT_EQ(cSuccess, Ask(MakeWriteRegister(lID, cInterruptEnable, 1)).mStatus);
    EXPECT_EQ(1U, Read(cInterruptEnable).Word());
}

TEST_F(GvcpServerTest, AnnouncesSlowCommandsOnlyWhereThatIsEnabled)
{
    TakeControl();
    EXPECT_EQ(0U, Read(cConfigurationRegister).Word());
    EXPECT_EQ(200U, Read(cPendingTimeoutRegister).Word());
    EXPECT_EQ(cWriteProtect, Write(cPendingTimeoutRegister, 1).mStatus);
    mFaults.SetSlow(1, std::chrono::milliseconds(500));
    const Packet lCommand = MakeReadRegister(NextID(), 0);
    EXPECT_EQ(0xFFFF, Ask(lCommand).mStatus); // silence
    Advance(std::chrono::milliseconds(500));
    EXPECT_EQ(cSuccess, TakeAnswer().mStatus);
    mFaults.Clear();
    EXPECT_EQ(cSuccess, Write(cConfigurationRegister, 0xFFFFFFFF).mStatus);
    EXPECT_EQ(cPendingAckEnabled, Read(cConfigurationRegister).Word());
    mFaults.SetSilent(1, std::chrono::milliseconds(500));
    EXPECT_EQ(0xFFFF, Ask(MakeReadRegister(NextID(), 0)).mStatus);
    Advance(std::chrono::milliseconds(500));
    EXPECT_EQ(cSuccess, TakeAnswer().mStatus);
}

TEST_F(GvcpServerTest, ForgetsItsControllerAndItsCommandsWithARestart)
{
    TakeControl();
    const Packet lCommand = MakeWriteRegister(NextID(), cInterruptEnable, 1);
    EXPECT_EQ(cSuccess, Ask(lCommand).mStatus);
    mServer->Restart();
    EXPECT_EQ(cAccessDenied, Ask(lCommand).mStatus);
    EXPECT_EQ(0U, Read(cControlPrivilegeRegister).Word());
}

TEST_F(GvcpServerTest, AnswersARepeatedCommandFromMemory)
{
    TakeControl();
    Write(cBulk0Configuration, 1U << cInterfaceShift);
    const Buffer lByte = {0x55};
    const Packet lCommand = MakeWriteMemory(NextID(), 0x80000000, lByte);
    const Answer lFirst = Ask(lCommand);
    const Answer lSecond = Ask(lCommand);
    EXPECT_EQ(lFirst.mPayload, lSecond.mPayload);
    EXPECT_EQ(lFirst.mRequestID, lSecond.mRequestID);
    EXPECT_THAT(mCamera->GetWire(Port::Bulk0), SizeIs(1));
    EXPECT_EQ(1U, mServer->GetCounters().mRepeated);
}

TEST_F(GvcpServerTest, ExecutesTheSameCommandWithAnotherId)
{
    TakeControl();
    Write(cBulk0Configuration, 1U << cInterfaceShift);
    WriteMemory(0x80000000, {0x55});
    WriteMemory(0x80000000, {0x55});
    EXPECT_THAT(mCamera->GetWire(Port::Bulk0), SizeIs(2));
}

TEST_F(GvcpServerTest, ExecutesAnotherCommandWithTheSameId)
{
    TakeControl();
    Ask(MakeWriteRegister(50, cInterruptEnable, 1));
    Ask(MakeWriteRegister(50, cInterruptEnable, 2));
    EXPECT_EQ(2U, Read(cInterruptEnable).Word());
}

TEST_F(GvcpServerTest, RemembersForEachApplication)
{
    const Packet lCommand = MakeReadRegister(50, cControlPrivilegeRegister);
    EXPECT_EQ(0U, Ask(lCommand).Word());
    TakeControl(cOther);
    EXPECT_EQ(2U, Ask(lCommand, cOther).Word());
    EXPECT_EQ(0U, Ask(lCommand).Word()); // as it was
}

TEST_F(GvcpServerTest, AnswersBusyOnDemandAndLaterTheSameCommand)
{
    TakeControl();
    mFaults.SetBusy(2);
    EXPECT_EQ(cSuccess, Write(cInterruptEnable, 1).mStatus);
    const Packet lCommand = MakeWriteRegister(NextID(), cInterruptEnable, 2);
    EXPECT_EQ(cBusy, Ask(lCommand).mStatus);
    EXPECT_EQ(cSuccess, Ask(lCommand).mStatus);
    mFaults.Clear();
    EXPECT_EQ(2U, Read(cInterruptEnable).Word());
}

TEST_F(GvcpServerTest, AnnouncesACommandThatTakesLonger)
{
    using namespace std::chrono_literals;
    TakeControl();
    EnablePending();
    mFaults.SetSlow(1, 500ms);
    const Packet lCommand = MakeWriteRegister(60, cInterruptEnable, 6);
    const Answer lPending = Ask(lCommand);
    EXPECT_EQ(cPendingAck, lPending.mCode);
    EXPECT_EQ(60, lPending.mRequestID);
    EXPECT_EQ(600U, lPending.Word()); // reserved, then the time with a margin
    Advance(200ms);
    EXPECT_THAT(mSent, IsEmpty());
    EXPECT_EQ(400U, Ask(lCommand).Word()); // asked again: what is left
    EXPECT_EQ(mNow + 300ms, mServer->NextDue());
    Advance(300ms);
    const Answer lDone = TakeAnswer();
    EXPECT_EQ(cWriteRegisterAck, lDone.mCode);
    EXPECT_EQ(cSuccess, lDone.mStatus);
    mFaults.Clear();
    EXPECT_EQ(6U, Read(cInterruptEnable).Word());
}

TEST_F(GvcpServerTest, KeepsCommandsThatComeDuringASlowOne)
{
    using namespace std::chrono_literals;
    TakeControl();
    EnablePending();
    mFaults.SetSlow(1, 500ms);
    Ask(MakeWriteRegister(60, cInterruptEnable, 6));
    mFaults.Clear();
    const Packet lRead = MakeReadRegister(1, cInterruptEnable);
    Receive(cOther, lRead.GetBytes());
    Receive(cOther, lRead.GetBytes()); // the same again, impatiently
    EXPECT_THAT(mSent, IsEmpty());
    Advance(500ms);
    EXPECT_THAT(mSent, SizeIs(2));
    EXPECT_EQ(6U, TakeAnswer().Word());
}

TEST_F(GvcpServerTest, LatchesAndResetsItsTimestamp)
{
    TakeControl();
    EXPECT_EQ(1000000000U, Read(cTickFrequencyLowRegister).Word());
    auto& lClock = dynamic_cast<ManualScheduler&>(mCamera->GetScheduler());
    lClock.Advance(Time(5000000000));
    Write(cTimestampControlRegister, 2);
    EXPECT_EQ(1U, Read(cTimestampHighRegister).Word());
    EXPECT_EQ(5000000000U - 0x100000000U, Read(cTimestampLowRegister).Word());
    Write(cTimestampControlRegister, 1);
    EXPECT_EQ(Time(5000000000), mChannel.mTimestampStart);
    lClock.Advance(Time(7));
    Write(cTimestampControlRegister, 2);
    EXPECT_EQ(7U, Read(cTimestampLowRegister).Word());
}

} // namespace
