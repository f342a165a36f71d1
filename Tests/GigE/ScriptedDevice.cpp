#include "GigE/ScriptedDevice.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>

namespace KyTest
{

using KyGvcp::CommandView;
using KyGvcp::Endpoint;
using KyGvcp::Packet;
using KyGvcp::Reader;
using KyGvcp::SocketResult;
using Lock = std::lock_guard<std::mutex>;

namespace
{

constexpr uint32_t cXmlAddress = 0x100000;
constexpr uint32_t cWindow = 0x80000000;

} // namespace

uint32_t ScriptedDevice::Command::Word(size_t aOffset) const
{
    Reader lReader{KyGvcp::Bytes(mPayload)};
    lReader.Take(aOffset);
    return lReader.Take32();
}

ScriptedDevice::ScriptedDevice(const std::string& aXml, uint32_t aAddress, uint16_t aPort)
    : mAddress(aAddress), mPort(aPort)
{
    char lUrl[64];
    std::snprintf(lUrl, sizeof(lUrl), "Local:test.xml;%X;%zX", cXmlAddress, aXml.size());
    PutText(KyGvcp::cFirstUrlRegister, lUrl);
    PutText(cXmlAddress, aXml);
    PutText(KyGvcp::cVendorRegister, "Korvo");
    PutText(KyGvcp::cModelRegister, "Scripted");
    PutText(KyGvcp::cSerialNumberRegister, "S1");
    PutWord(KyGvcp::cMacHighRegister, 0x0200);
    PutWord(KyGvcp::cMacLowRegister, 0x12345678);
    PutWord(KyGvcp::cMessageChannelCountRegister, 1);
    PutWord(KyGvcp::cMessageCapabilityRegister, 0x80000000);
    Open();
}

ScriptedDevice::~ScriptedDevice()
{
    Close();
}

void ScriptedDevice::Open()
{
    EXPECT_TRUE(mSocket.Open({mAddress, mPort})) << mSocket.GetError();
    EXPECT_TRUE(mEvents.Open({mAddress, 0}));
    mPort = mSocket.GetLocal().mPort;
    PutWord(KyGvcp::cMessageSourcePortRegister, mEvents.GetLocal().mPort);
    Start();
}

void ScriptedDevice::Start()
{
    mStop = false;
    mThread = std::thread([this] { Run(); });
}

void ScriptedDevice::Stop()
{
    if (mThread.joinable())
    {
        {
            const Lock lLock(mLock);
            mStop = true;
        }
        mWaker.Wake();
        mThread.join();
    }
}

void ScriptedDevice::HearBroadcasts()
{
    Stop();
    EXPECT_TRUE(mBroadcasts.Open({KyGvcp::cBroadcastAddress, KyGvcp::cControlPort}, true));
    Start();
}

void ScriptedDevice::Close()
{
    Stop();
    mBroadcasts.Close();
    mSocket.Close();
    mEvents.Close();
}

void ScriptedDevice::SwitchOff()
{
    Close();
}

void ScriptedDevice::SwitchOn()
{
    {
        const Lock lLock(mLock);
        mOwner.reset();
        mStrict = true;
        mLastRequest = 0;
        mNextEvent = 0;
        for (const uint32_t lRegister : {KyGvcp::cControlPrivilegeRegister, KyGvcp::cMessagePortRegister,
                                         KyGvcp::cMessageAddressRegister})
        {
            for (uint32_t lByte = 0; lByte < 4; ++lByte)
            {
                mMemory[lRegister + lByte] = 0;
            }
        }
    }
    Open();
}

void ScriptedDevice::SetScript(std::function<Answer(const Command&)> aScript)
{
    const Lock lLock(mLock);
    mScript = std::move(aScript);
}

void ScriptedDevice::SetFrozen(bool aFrozen)
{
    const Lock lLock(mLock);
    mFrozen = aFrozen;
}

void ScriptedDevice::GiveControlAway()
{
    const Lock lLock(mLock);
    mOwner = Endpoint{0x7F000063, 99};
}

void ScriptedDevice::ReleaseControl()
{
    const Lock lLock(mLock);
    mOwner.reset();
}

int ScriptedDevice::GetOpeners()
{
    const Lock lLock(mLock);
    return mOpeners;
}

void ScriptedDevice::PutWord(uint32_t aAddress, uint32_t aValue)
{
    const Lock lLock(mLock);
    for (uint32_t lByte = 0; lByte < 4; ++lByte)
    {
        mMemory[aAddress + lByte] = static_cast<uint8_t>(aValue >> (24 - 8 * lByte));
    }
}

uint32_t ScriptedDevice::GetWord(uint32_t aAddress)
{
    const Lock lLock(mLock);
    uint32_t lValue = 0;
    for (uint32_t lByte = 0; lByte < 4; ++lByte)
    {
        lValue = lValue << 8 | mMemory[aAddress + lByte];
    }
    return lValue;
}

void ScriptedDevice::PutText(uint32_t aAddress, const std::string& aText)
{
    const Lock lLock(mLock);
    for (size_t lIndex = 0; lIndex < aText.size(); ++lIndex)
    {
        mMemory[aAddress + static_cast<uint32_t>(lIndex)] = static_cast<uint8_t>(aText[lIndex]);
    }
}

std::vector<ScriptedDevice::Command> ScriptedDevice::TakeCommands()
{
    const Lock lLock(mLock);
    return std::exchange(mCommands, {});
}

bool ScriptedDevice::WaitForCommand(uint16_t aCode)
{
    std::unique_lock<std::mutex> lLock(mLock);
    return mChanged.wait_for(lLock, std::chrono::seconds(20),
                             [&]
                             {
                                 return std::any_of(mCommands.begin(), mCommands.end(),
                                                    [&](const Command& aCommand)
                                                    { return aCommand.mCode == aCode; });
                             });
}

std::vector<std::pair<uint32_t, ScriptedDevice::Bytes>> ScriptedDevice::TakeWindowWrites()
{
    const Lock lLock(mLock);
    return std::exchange(mWindow, {});
}

uint16_t ScriptedDevice::SendEvent(uint16_t aEvent, const Bytes& aData, uint16_t aRequest, uint64_t aTime)
{
    const uint16_t lRequest = aRequest != 0 ? aRequest : ++mNextEvent;
    Packet lPacket = Packet::Command(KyGvcp::cEventData, KyGvcp::cAcknowledgeWanted, lRequest);
    KyGvcp::AddEvent(lPacket, aEvent, lRequest, aTime != 0 ? aTime : ++mTime, aData);
    const KyGvcp::Bytes lBytes = lPacket.GetBytes();
    SendPacket({lBytes.begin(), lBytes.end()}, 0);
    return lRequest;
}

void ScriptedDevice::SendPacket(const Bytes& aPacket, uint32_t aFrom)
{
    const Endpoint lTo{GetWord(KyGvcp::cMessageAddressRegister),
                       static_cast<uint16_t>(GetWord(KyGvcp::cMessagePortRegister))};
    KyGvcp::UdpSocket lOther;
    const bool lOwn = aFrom == 0;
    EXPECT_TRUE(lOwn || lOther.Open({aFrom, 0}));
    EXPECT_EQ((lOwn ? mEvents : lOther).SendTo(lTo, aPacket), SocketResult::Done);
}

bool ScriptedDevice::WaitForAcknowledge(uint16_t aRequest, std::chrono::milliseconds aTime)
{
    std::unique_lock<std::mutex> lLock(mLock);
    const auto lHasCome = [&]
    { return std::find(mAcknowledged.begin(), mAcknowledged.end(), aRequest) != mAcknowledged.end(); };
    if (!mChanged.wait_for(lLock, aTime, lHasCome))
    {
        return false;
    }
    mAcknowledged.erase(std::find(mAcknowledged.begin(), mAcknowledged.end(), aRequest));
    return true;
}

void ScriptedDevice::TakeAcknowledge()
{
    uint8_t lBuffer[KyGvcp::cMaxPacket];
    size_t lSize = 0;
    if (mEvents.Receive(lBuffer, lSize, nullptr, KyGvcp::SocketTime(0)) == SocketResult::Done)
    {
        const auto lAnswer = KyGvcp::ParseAcknowledge({lBuffer, lSize});
        if (lSize == 0)
        {
            const Lock lLock(mLock);
            ++mOpeners;
        }
        if (lAnswer && lAnswer->mCode == KyGvcp::cEventDataAck)
        {
            const Lock lLock(mLock);
            mAcknowledged.push_back(lAnswer->mRequestID);
            mChanged.notify_all();
        }
    }
}

void ScriptedDevice::Run()
{
    for (;;)
    {
        KyGvcp::UdpSocket* const lSockets[] = {&mSocket, &mEvents, &mBroadcasts};
        static_cast<void>(KyGvcp::UdpSocket::Wait(lSockets, KyGvcp::cForever, &mWaker));
        {
            const Lock lLock(mLock);
            if (mStop)
            {
                return;
            }
        }
        TakeAcknowledge();
        uint8_t lBuffer[KyGvcp::cMaxPacket];
        size_t lSize = 0;
        Endpoint lFrom;
        for (KyGvcp::UdpSocket* const lSocket : {&mSocket, &mBroadcasts})
        {
            if (lSocket->Receive(lBuffer, lSize, &lFrom, KyGvcp::SocketTime(0)) == SocketResult::Done)
            {
                Handle({lBuffer, lSize}, lFrom);
            }
        }
    }
}

void ScriptedDevice::SendGarbage(uint16_t aRequest, const Endpoint& aFrom)
{
    const auto lOther = static_cast<uint16_t>(aRequest + 1000);
    Packet lForeign = Packet::Acknowledge(KyGvcp::cSuccess, KyGvcp::cReadRegisterAck, lOther);
    lForeign.Add32(0xBADBAD);
    const Packet lShort = Packet::Acknowledge(KyGvcp::cSuccess, KyGvcp::cReadRegisterAck, aRequest);
    const Packet lCode = Packet::Acknowledge(KyGvcp::cAccessDenied, KyGvcp::cEventAck, aRequest);
    for (const Packet& lPacket : {lForeign, lShort, lCode})
    {
        EXPECT_EQ(mSocket.SendTo(aFrom, lPacket.GetBytes()), SocketResult::Done);
    }
    EXPECT_EQ(mSocket.SendTo(aFrom, lForeign.GetBytes().first(5)), SocketResult::Done);
}

void ScriptedDevice::Handle(KyGvcp::Bytes aPacket, const Endpoint& aFrom)
{
    const auto lCommand = KyGvcp::ParseCommand(aPacket);
    std::unique_lock<std::mutex> lLock(mLock);
    if (!lCommand || mFrozen)
    {
        return;
    }
    mCommands.push_back(
        {lCommand->mCode, lCommand->mRequestID, {lCommand->mPayload.begin(), lCommand->mPayload.end()}});
    const Command lCopy = mCommands.back();
    mChanged.notify_all();
    if (lCommand->mRequestID == mLastRequest && aFrom == mLastPeer)
    {
        static_cast<void>(mSocket.SendTo(aFrom, mLastAnswer));
        return;
    }
    const Answer lAnswer = mScript ? mScript(lCopy) : Answer();
    const auto lAckCode = static_cast<uint16_t>(lCommand->mCode + 1);
    if (lAnswer.mWhat == Answer::Vanish)
    {
        mFrozen = true;
        return;
    }
    if (lAnswer.mWhat == Answer::Slow)
    {
        lLock.unlock();
        std::this_thread::sleep_for(std::chrono::milliseconds(lAnswer.mTime));
        lLock.lock();
    }
    if (lAnswer.mWhat == Answer::Pending || lAnswer.mWhat == Answer::Promise)
    {
        Packet lPending = Packet::Acknowledge(KyGvcp::cSuccess, KyGvcp::cPendingAck, lCommand->mRequestID);
        lPending.Add16(0).Add16(lAnswer.mTime);
        static_cast<void>(mSocket.SendTo(aFrom, lPending.GetBytes()));
        if (lAnswer.mWhat == Answer::Promise)
        {
            return;
        }
        lLock.unlock();
        std::this_thread::sleep_for(std::chrono::milliseconds(lAnswer.mTime / 2));
        lLock.lock();
    }
    if (lAnswer.mWhat == Answer::Garbage)
    {
        SendGarbage(lCommand->mRequestID, aFrom);
    }
    const Packet lResult = lAnswer.mWhat == Answer::Refuse
                               ? Packet::Acknowledge(lAnswer.mStatus, lAckCode, lCommand->mRequestID)
                               : Execute(*lCommand, aFrom);
    const KyGvcp::Bytes lBytes = lResult.GetBytes();
    mLastRequest = lCommand->mRequestID;
    mLastPeer = aFrom;
    mLastAnswer.assign(lBytes.begin(), lBytes.end());
    if (lAnswer.mWhat != Answer::Silence && (lCommand->mFlags & KyGvcp::cAcknowledgeWanted) != 0)
    {
        static_cast<void>(mSocket.SendTo(aFrom, lBytes));
    }
}

Packet ScriptedDevice::Write(const CommandView& aCommand, const Endpoint& aFrom)
{
    const auto lAckCode = static_cast<uint16_t>(aCommand.mCode + 1);
    Reader lReader(aCommand.mPayload);
    const uint32_t lAddress = lReader.Take32();
    const KyGvcp::Bytes lData = lReader.GetRest();
    const bool lFree = !mOwner && (!mStrict || lAddress == KyGvcp::cControlPrivilegeRegister);
    if (!lFree && !(mOwner == aFrom))
    {
        return Packet::Acknowledge(KyGvcp::cAccessDenied, lAckCode, aCommand.mRequestID);
    }
    if (lAddress == KyGvcp::cControlPrivilegeRegister)
    {
        mOwner = lData.back() != 0 ? std::optional<Endpoint>(aFrom) : std::nullopt;
    }
    if (lAddress >= cWindow)
    {
        mWindow.emplace_back(lAddress, Bytes(lData.begin(), lData.end()));
    }
    for (size_t lIndex = 0; lAddress < cWindow && lIndex < lData.size(); ++lIndex)
    {
        mMemory[lAddress + static_cast<uint32_t>(lIndex)] = lData[lIndex];
    }
    Packet lAnswer = Packet::Acknowledge(KyGvcp::cSuccess, lAckCode, aCommand.mRequestID);
    lAnswer.Add16(0).Add16(static_cast<uint16_t>(lData.size()));
    return lAnswer;
}

Packet ScriptedDevice::Execute(const CommandView& aCommand, const Endpoint& aFrom)
{
    if (aCommand.mCode == KyGvcp::cWriteRegister || aCommand.mCode == KyGvcp::cWriteMemory)
    {
        return Write(aCommand, aFrom);
    }
    const auto lAckCode = static_cast<uint16_t>(aCommand.mCode + 1);
    Packet lAnswer = Packet::Acknowledge(KyGvcp::cSuccess, lAckCode, aCommand.mRequestID);
    Reader lReader(aCommand.mPayload);
    const uint32_t lAddress = lReader.Take32();
    uint32_t lCount = 4;
    if (aCommand.mCode == KyGvcp::cReadMemory)
    {
        lReader.Take16();
        lCount = lReader.Take16();
        lAnswer.Add32(lAddress);
    }
    if (aCommand.mCode == KyGvcp::cDiscovery)
    {
        lCount = KyGvcp::cDiscoverySize;
    }
    for (uint32_t lIndex = 0; lIndex < lCount; ++lIndex)
    {
        const uint8_t lByte = mMemory[lAddress + lIndex];
        lAnswer.Add({&lByte, 1});
    }
    return lAnswer;
}

} // namespace KyTest
