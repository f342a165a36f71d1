#include "Simulator/Network/GvcpServer.h"

#include <algorithm>

namespace KySimulator
{

using namespace KyGvcp;

namespace
{

/// How much longer than needed an announced time is: the acknowledge has to arrive within it.
constexpr std::chrono::milliseconds cPendingMargin{100};

constexpr size_t cRegisterBytes = 4;

bool Equal(Bytes aOne, Bytes aOther)
{
    return std::equal(aOne.begin(), aOne.end(), aOther.begin(), aOther.end());
}

Packet Refusal(Status aStatus, const CommandView& aCommand)
{
    return Packet::Acknowledge(static_cast<uint16_t>(aStatus), static_cast<uint16_t>(aCommand.mCode + 1),
                               aCommand.mRequestID);
}

Packet Success(const CommandView& aCommand)
{
    return Refusal(Status::Ok, aCommand);
}

Packet BadLength(const CommandView& aCommand)
{
    return Refusal(static_cast<Status>(cInvalidHeader), aCommand);
}

} // namespace

GvcpServer::GvcpServer(RegisterMap& aRegisters, NetworkFaults& aFaults, Host& aHost)
    : mRegisters(aRegisters), mFaults(aFaults), mHost(aHost)
{
}

bool GvcpServer::IsControlled() const
{
    return !(mController == Endpoint());
}

bool GvcpServer::IsController(const Endpoint& aFrom) const
{
    return IsControlled() && mController == aFrom;
}

bool GvcpServer::MayRead(const Endpoint& aFrom, uint32_t aAddress, size_t aCount) const
{
    const uint32_t lPrivilege = mRegisters.GetBootstrap().Get(cControlPrivilegeRegister);
    // Under exclusive access others may still read the privilege itself: that is how they see that the camera is
    // taken.
    return (lPrivilege & cExclusiveAccess) == 0 || IsController(aFrom) ||
           (aAddress == cControlPrivilegeRegister && aCount <= cRegisterBytes);
}

void GvcpServer::Handle(const Endpoint& aFrom, Bytes aPacket, Time aNow)
{
    const auto lCommand = ParseCommand(aPacket);
    // Odd codes are acknowledges, and 0 is no request number. A device is silent about what is no command: an
    // answer to an answer would never end.
    if (!lCommand.has_value() || lCommand->mRequestID == 0 || lCommand->mCode % 2 != 0)
    {
        ++mCounters.mIgnored;
        return;
    }
    // Any command of the controller shows that it lives, also one that waits or is answered from memory.
    if (IsController(aFrom))
    {
        mHeard = aNow;
    }
    // Discovery and the forced address are answered at once, even while a slow command is at work: a client that
    // looks for the camera must find it.
    if (lCommand->mCode == cDiscovery)
    {
        Discover(aFrom, *lCommand);
    }
    else if (lCommand->mCode == cForceAddress)
    {
        ForceAddress(aFrom, *lCommand);
    }
    else if (mWork.has_value())
    {
        Defer(aFrom, aPacket, aNow);
    }
    else
    {
        Take(aFrom, aPacket, aNow);
    }
}

void GvcpServer::Discover(const Endpoint& aFrom, const CommandView& aCommand)
{
    ++mCounters.mCommands;
    Buffer lData;
    static_cast<void>(mRegisters.GetBootstrap().ReadMemory(0, cDiscoverySize, lData)); // ignored: they exist
    Packet lPacket = Success(aCommand);
    mHost.SendAcknowledge(aFrom, lPacket.Add(lData).GetBytes());
}

/// The command reaches every device of a network; only the one that it names reacts. A camera that somebody
/// controls stays where it is: its application would lose it.
void GvcpServer::ForceAddress(const Endpoint& aFrom, const CommandView& aCommand)
{
    Reader lReader(aCommand.mPayload);
    // Each address of the command stands after three reserved words.
    const auto lSkip = [&lReader](size_t aWords) { static_cast<void>(lReader.Take(aWords * 4)); };
    const uint32_t lMacHigh = lReader.Take32() & 0xFFFFU;
    const uint32_t lMacLow = lReader.Take32();
    ForcedAddress lNew;
    lSkip(3);
    lNew.mAddress = lReader.Take32();
    lSkip(3);
    lNew.mMask = lReader.Take32();
    lSkip(3);
    lNew.mGateway = lReader.Take32();
    const BootstrapRegisters& lRegisters = mRegisters.GetBootstrap();
    if (!lReader.IsGood() || lMacHigh != (lRegisters.Get(cMacHighRegister) & 0xFFFFU) ||
        lMacLow != lRegisters.Get(cMacLowRegister))
    {
        ++mCounters.mIgnored;
        return;
    }
    ++mCounters.mCommands;
    const Status lStatus = IsControlled()       ? Status::AccessDenied
                           : mHost.MoveTo(lNew) ? Status::Ok
                                                : Status::InvalidParameter;
    mCounters.mRefused += lStatus != Status::Ok ? 1U : 0U;
    if ((aCommand.mFlags & cAcknowledgeWanted) != 0)
    {
        mHost.SendAcknowledge(aFrom, Refusal(lStatus, aCommand).GetBytes());
    }
}

void GvcpServer::Announce(const Waiting& aWork, Time aNow)
{
    const auto lCommand = ParseCommand(aWork.mPacket);
    const bool lEnabled = (mRegisters.GetBootstrap().Get(cConfigurationRegister) & cPendingAckEnabled) != 0;
    // The client has to switch announcements on; one that does not know them takes them for wrong answers.
    if (!lCommand.has_value() || (lCommand->mFlags & cAcknowledgeWanted) == 0 || !lEnabled || aWork.mSilent)
    {
        return;
    }
    ++mCounters.mPending;
    const auto lTime = std::chrono::ceil<std::chrono::milliseconds>(aWork.mDue - aNow) + cPendingMargin;
    // The field has 16 bits. A client that runs out of time repeats the command and gets another announcement.
    const auto lMilliseconds = std::clamp<std::chrono::milliseconds::rep>(lTime.count(), 0, UINT16_MAX);
    Packet lPacket = Packet::Acknowledge(cSuccess, cPendingAck, lCommand->mRequestID);
    mHost.SendAcknowledge(aWork.mFrom,
                          lPacket.Add16(0).Add16(static_cast<uint16_t>(lMilliseconds)).GetBytes());
}

void GvcpServer::Defer(const Endpoint& aFrom, Bytes aPacket, Time aNow)
{
    const auto lSame = [&](const Waiting& aWaiting)
    { return aWaiting.mFrom == aFrom && Equal(aWaiting.mPacket, aPacket); };
    // A repetition of the command at work: the client has missed the announcement.
    if (lSame(*mWork))
    {
        Announce(*mWork, aNow);
    }
    // A command that finds the queue full is lost like a datagram, and its client repeats it. One that waits
    // already is not executed twice.
    else if (mQueue.size() < cQueue && std::none_of(mQueue.begin(), mQueue.end(), lSame))
    {
        mQueue.push_back({aFrom, {aPacket.begin(), aPacket.end()}});
    }
}

void GvcpServer::Take(const Endpoint& aFrom, Bytes aPacket, Time aNow)
{
    // First, before any fault: a repeated command must not be executed twice, and its answer is known already.
    if (Replay(aFrom, aPacket))
    {
        return;
    }
    if (mFaults.TakeBusy())
    {
        // Not remembered: a repetition may find the camera free.
        ++mCounters.mBusy;
        mHost.SendAcknowledge(aFrom, Refusal(Status::Busy, *ParseCommand(aPacket)).GetBytes());
        return;
    }
    const Time lSlow = mFaults.TakeSlow();
    const Time lSilent = mFaults.TakeSilent();
    if (lSlow > Time(0) || lSilent > Time(0))
    {
        mWork = Waiting{
            aFrom, {aPacket.begin(), aPacket.end()}, aNow + std::max(lSlow, lSilent), lSilent > lSlow};
        Announce(*mWork, aNow);
        return;
    }
    Execute(aFrom, aPacket, aNow);
}

bool GvcpServer::Replay(const Endpoint& aFrom, Bytes aPacket)
{
    const auto lKnown =
        std::find_if(mMemory.begin(), mMemory.end(),
                     [&](const Application& aApplication) { return aApplication.mFrom == aFrom; });
    if (lKnown == mMemory.end())
    {
        return false;
    }
    // Several writes may be under way at once, and each must be recognised. Of reads only the last one is kept.
    const auto lWrite = lKnown->mWrites.find(ParseCommand(aPacket)->mRequestID);
    const Remembered& lFound = lWrite != lKnown->mWrites.end() ? lWrite->second : lKnown->mLast;
    // The number alone does not make a repetition: clients start again at 1.
    if (!Equal(lFound.mCommand, aPacket))
    {
        return false;
    }
    ++mCounters.mRepeated;
    mHost.SendAcknowledge(aFrom, lFound.mAcknowledge);
    return true;
}

void GvcpServer::Remember(const Endpoint& aFrom, Bytes aPacket, Bytes aAcknowledge)
{
    const auto lKnown =
        std::find_if(mMemory.begin(), mMemory.end(),
                     [&](const Application& aApplication) { return aApplication.mFrom == aFrom; });
    // The application that has been silent for longest is forgotten; the list is kept in that order.
    if (lKnown == mMemory.end() && mMemory.size() >= cMemory)
    {
        mMemory.pop_front();
    }
    if (lKnown == mMemory.end())
    {
        mMemory.push_back({aFrom, {}, {}, {}});
    }
    else if (&*lKnown != &mMemory.back())
    {
        std::rotate(lKnown, lKnown + 1, mMemory.end());
    }
    Application& lApplication = mMemory.back();
    const Remembered lNew{{aPacket.begin(), aPacket.end()}, {aAcknowledge.begin(), aAcknowledge.end()}};
    const CommandView lCommand = *ParseCommand(aPacket);
    if (lCommand.mCode == cReadRegister || lCommand.mCode == cReadMemory)
    {
        lApplication.mLast = lNew;
        lApplication.mWrites.erase(lCommand.mRequestID); // an old one of that number
        return;
    }
    if (lApplication.mWrites.insert_or_assign(lCommand.mRequestID, lNew).second)
    {
        lApplication.mOrder.push_back(lCommand.mRequestID);
    }
    // The oldest goes: a client repeats a command within seconds or not at all.
    if (lApplication.mOrder.size() > cRememberedWrites)
    {
        lApplication.mWrites.erase(lApplication.mOrder.front());
        lApplication.mOrder.pop_front();
    }
}

void GvcpServer::Execute(const Endpoint& aFrom, Bytes aPacket, Time aNow)
{
    ++mCounters.mCommands;
    const CommandView lCommand = *ParseCommand(aPacket);
    // The heartbeat begins with the command that takes the control; later ones renew it where they are heard.
    const bool lControlled = IsControlled();
    const Packet lAnswer = Answer(aFrom, lCommand);
    if (IsControlled() && !lControlled)
    {
        mHeard = aNow;
    }
    const auto lStatus = ParseAcknowledge(lAnswer.GetBytes());
    mCounters.mRefused += lStatus.has_value() && lStatus->mStatus != cSuccess ? 1U : 0U;
    // A client that wants no acknowledge cannot notice a loss, so it repeats nothing that had to be
    // remembered.
    if ((lCommand.mFlags & cAcknowledgeWanted) != 0)
    {
        Remember(aFrom, aPacket, lAnswer.GetBytes());
        mHost.SendAcknowledge(aFrom, lAnswer.GetBytes());
    }
}

void GvcpServer::Step(Time aNow)
{
    // A slow command does not cost its sender the control: the camera is at work for it.
    if (HeartbeatDue() <= aNow && !mWork.has_value())
    {
        ++mCounters.mExpired;
        ReleaseControl();
    }
    if (!mWork.has_value() || mWork->mDue > aNow)
    {
        return;
    }
    const Waiting lWork = std::move(*mWork);
    mWork.reset();
    Execute(lWork.mFrom, lWork.mPacket, aNow);
    // Each command may be a slow one again, which makes the rest wait.
    while (!mQueue.empty() && !mWork.has_value())
    {
        const Waiting lNext = std::move(mQueue.front());
        mQueue.pop_front();
        Take(lNext.mFrom, lNext.mPacket, aNow);
    }
}

Time GvcpServer::HeartbeatDue() const
{
    const uint32_t lHeartbeat = mRegisters.GetBootstrap().Get(cHeartbeatRegister);
    return IsControlled() ? mHeard + std::chrono::milliseconds(lHeartbeat) : cNever;
}

Time GvcpServer::NextDue() const
{
    // While a command is at work the heartbeat does not run out, so it orders no timer.
    return mWork.has_value() ? mWork->mDue : HeartbeatDue();
}

void GvcpServer::Restart()
{
    mWork.reset();
    mQueue.clear();
    // After a restart the camera knows none of its former applications.
    mMemory.clear();
    ReleaseControl();
}

void GvcpServer::ReleaseControl()
{
    BootstrapRegisters& lRegisters = mRegisters.GetBootstrap();
    mController = {};
    // The message channel belongs to the controller: its address goes with the control.
    for (const uint32_t lRegister : {cControlPrivilegeRegister, cPrimaryPortRegister, cPrimaryAddressRegister,
                                     cMessagePortRegister, cMessageAddressRegister})
    {
        lRegisters.Set(lRegister, 0);
    }
    mHost.OnChannelChanged(GetChannel());
}

ChannelSettings GvcpServer::GetChannel() const
{
    const BootstrapRegisters& lRegisters = mRegisters.GetBootstrap();
    const Endpoint lPeer{lRegisters.Get(cMessageAddressRegister),
                         static_cast<uint16_t>(lRegisters.Get(cMessagePortRegister) & 0xFFFFU)};
    // An application writes port and address one after the other. The channel is open when it has both.
    const bool lOpen = lPeer.mAddress != 0 && lPeer.mPort != 0;
    return {lOpen ? lPeer : Endpoint(), lRegisters.Get(cMessageTimeoutRegister),
            lRegisters.Get(cMessageRetriesRegister), lRegisters.GetTimestampStart()};
}

Packet GvcpServer::Answer(const Endpoint& aFrom, const CommandView& aCommand)
{
    // Looked at once for every command: the functions below take the payload for what the header says.
    if (!aCommand.mLengthFits)
    {
        return BadLength(aCommand);
    }
    switch (aCommand.mCode)
    {
    case cReadRegister:
        return ReadRegisters(aFrom, aCommand);
    case cWriteRegister:
        return WriteRegisters(aFrom, aCommand);
    case cReadMemory:
        return ReadMemory(aFrom, aCommand);
    case cWriteMemory:
        return WriteMemory(aFrom, aCommand);
    default:
        return Refusal(Status::NotImplemented, aCommand);
    }
}

Packet GvcpServer::ReadRegisters(const Endpoint& aFrom, const CommandView& aCommand)
{
    Reader lReader(aCommand.mPayload);
    if (lReader.GetRest().empty() || lReader.GetRest().size() % 4 != 0 ||
        lReader.GetRest().size() > cMaxPayload)
    {
        return BadLength(aCommand);
    }
    Packet lAnswer = Success(aCommand);
    while (!lReader.GetRest().empty())
    {
        const uint32_t lAddress = lReader.Take32();
        uint32_t lValue = 0;
        const Status lStatus = MayRead(aFrom, lAddress, cRegisterBytes)
                                   ? mRegisters.ReadRegister(lAddress, lValue).mStatus
                                   : Status::AccessDenied;
        // One register that cannot be read refuses the whole command: the acknowledge has one status for all
        // of them.
        if (lStatus != Status::Ok)
        {
            return Refusal(lStatus, aCommand);
        }
        lAnswer.Add32(lValue);
    }
    return lAnswer;
}

Packet GvcpServer::WriteRegisters(const Endpoint& aFrom, const CommandView& aCommand)
{
    Reader lReader(aCommand.mPayload);
    if (lReader.GetRest().empty() || lReader.GetRest().size() % 8 != 0 ||
        lReader.GetRest().size() > cMaxPayload)
    {
        return BadLength(aCommand);
    }
    uint16_t lDone = 0;
    Status lStatus = Status::Ok;
    while (!lReader.GetRest().empty() && lStatus == Status::Ok)
    {
        const uint32_t lAddress = lReader.Take32();
        lStatus = WriteWord(aFrom, lAddress, lReader.Take32());
        lDone = static_cast<uint16_t>(lDone + (lStatus == Status::Ok ? 1 : 0));
    }
    return Refusal(lStatus, aCommand).Add16(0).Add16(lDone); // a refusal names the place where it stopped
}

Packet GvcpServer::ReadMemory(const Endpoint& aFrom, const CommandView& aCommand)
{
    if (aCommand.mPayload.size() != 8)
    {
        return BadLength(aCommand);
    }
    Reader lReader(aCommand.mPayload);
    const uint32_t lAddress = lReader.Take32();
    static_cast<void>(lReader.Take16()); // reserved
    const size_t lCount = lReader.Take16();
    Buffer lData;
    const Status lStatus = MayRead(aFrom, lAddress, lCount)
                               ? mRegisters.ReadMemory(lAddress, lCount, lData).mStatus
                               : Status::AccessDenied;
    // The answer repeats the address: clients that read in pieces tell them apart by it.
    return lStatus == Status::Ok ? Success(aCommand).Add32(lAddress).Add(lData) : Refusal(lStatus, aCommand);
}

Packet GvcpServer::WriteMemory(const Endpoint& aFrom, const CommandView& aCommand)
{
    Reader lReader(aCommand.mPayload);
    const uint32_t lAddress = lReader.Take32();
    const Bytes lData = lReader.GetRest();
    if (!lReader.IsGood() || lData.size() > cMaxBlock)
    {
        return BadLength(aCommand);
    }
    Status lStatus = Status::AccessDenied;
    // Blocks are messages, texts and the transmit window: they are taken whole. Everything else is registers side
    // by side.
    if (!mRegisters.IsBlock(lAddress))
    {
        lStatus = WriteWords(aFrom, lAddress, lData);
    }
    else if (IsController(aFrom))
    {
        lStatus = mRegisters.WriteBlock(lAddress, lData).mStatus;
    }
    return lStatus == Status::Ok ? Success(aCommand).Add16(0).Add16(static_cast<uint16_t>(lData.size()))
                                 : Refusal(lStatus, aCommand);
}

Status GvcpServer::WriteWords(const Endpoint& aFrom, uint32_t aAddress, Bytes aData)
{
    if (aData.empty() || aData.size() % 4 != 0)
    {
        return Status::InvalidParameter; // registers are written whole
    }
    Reader lReader(aData);
    Status lStatus = Status::Ok;
    for (uint32_t lAddress = aAddress; !lReader.GetRest().empty() && lStatus == Status::Ok; lAddress += 4)
    {
        lStatus = WriteWord(aFrom, lAddress, lReader.Take32());
    }
    return lStatus;
}

Status GvcpServer::WriteWord(const Endpoint& aFrom, uint32_t aAddress, uint32_t aValue)
{
    if (aAddress == cControlPrivilegeRegister)
    {
        return SetPrivilege(aFrom, aValue);
    }
    if (!IsController(aFrom))
    {
        return Status::AccessDenied;
    }
    const Status lStatus = mRegisters.WriteRegister(aAddress, aValue).mStatus;
    // The time stamp counts from its last reset, and events carry it, so the channel has to hear of that as well.
    const bool lChannel = aAddress >= cMessagePortRegister && aAddress <= cMessageSourcePortRegister;
    if (lStatus == Status::Ok && (lChannel || aAddress == cTimestampControlRegister))
    {
        mHost.OnChannelChanged(GetChannel());
    }
    return lStatus;
}

Status GvcpServer::SetPrivilege(const Endpoint& aFrom, uint32_t aValue)
{
    // The controller may change its own privilege. Others wait until it gives the control up.
    if (IsControlled() && !IsController(aFrom))
    {
        return Status::AccessDenied;
    }
    // The other bits are those of the control switchover, which this device does not have.
    const uint32_t lPrivilege = aValue & (cExclusiveAccess | cControlAccess);
    // Giving the control up by a write of 0 is what an application does that ends.
    if (lPrivilege == 0)
    {
        ReleaseControl();
        return Status::Ok;
    }
    BootstrapRegisters& lRegisters = mRegisters.GetBootstrap();
    mController = aFrom;
    lRegisters.Set(cControlPrivilegeRegister, lPrivilege);
    // Others read from these registers which application has the camera.
    lRegisters.Set(cPrimaryPortRegister, aFrom.mPort);
    lRegisters.Set(cPrimaryAddressRegister, aFrom.mAddress);
    return Status::Ok;
}

} // namespace KySimulator
