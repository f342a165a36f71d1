#include "Adapters/GigE/Client/ControlChannel.h"

#include <JxUtilsLib/LockScope.h>

#include <algorithm>
#include <string>

namespace KyGigE
{

using JxUtilsLib::LockScope;
using KyGvcp::Bytes;
using KyGvcp::Packet;
using KyGvcp::Reader;
using KyGvcp::SocketResult;

namespace
{

constexpr uint32_t cWindow = 0x80000000U;

/// Nobody on an I2C bus acknowledged; devices of this maker have it.
constexpr uint16_t cNoAcknowledge = 0x8F01;

KyResult Refused(uint16_t aStatus)
{
    const std::string lReason =
        aStatus == cNoAcknowledge ? "nobody on the bus acknowledged" : KyGvcp::NameOfStatus(aStatus);
    return {aStatus, KyString(("The device refused: " + lReason + ".").c_str())};
}

} // namespace

KyResult NotConnected()
{
    return {KyResult::NO_CONNECTION, "The device is not currently connected."};
}

ControlChannel::ControlChannel(const ControlTimes& aTimes) : mTimes(aTimes) {}

KyResult ControlChannel::Open(const KyGvcp::Endpoint& aDevice, uint32_t aLocal)
{
    const LockScope lScope(mLock);
    if (!mSocket.Open({aLocal, 0}) || !mSocket.Connect(aDevice))
    {
        mSocket.Close();
        return {KyResult::FAILURE, "No network socket for the device could be opened."};
    }
    return {};
}

// Sends a command until it is answered with aAnswer bytes at the least. aPayload points into mIn.
KyResult ControlChannel::Execute(const Packet& aCommand, uint16_t aCode, size_t aAnswer, Bytes& aPayload)
{
    if (mShut)
    {
        return NotConnected();
    }
    mCode = aCode;
    mAnswer = aAnswer;
    mLatest = Clock::now() + std::chrono::milliseconds(mTimes.mPending);
    bool lRefused = false;
    for (uint32_t lAttempt = 0; lAttempt < mTimes.mAttempts; ++lAttempt)
    {
        mRepeats += lAttempt > 0 ? 1 : 0;
        const bool lRefusedBefore = lRefused;
        lRefused = mSocket.Send(aCommand.GetBytes()) != SocketResult::Done;
        KyResult lResult(KyResult::TIMED_OUT);
        if (!lRefused)
        {
            lResult = WaitForAnswer(aPayload, lRefused);
        }
        if (lResult.GetCode() != KyResult::TIMED_OUT)
        {
            return lResult;
        }
        if (lRefused && lRefusedBefore)
        {
            break; // one refusal may be an old one, of a packet sent before the device came back
        }
    }
    mShut = true;
    return {KyResult::NO_CONNECTION, "The device does not answer."};
}

// \return TIMED_OUT: nothing came. aRefused: the other host says that nobody listens.
KyResult ControlChannel::WaitForAnswer(Bytes& aPayload, bool& aRefused)
{
    Clock::time_point lEnd = Clock::now() + std::chrono::milliseconds(mTimes.mTimeout);
    for (;;)
    {
        size_t lReceived = 0;
        const auto lLeft = std::max(lEnd - Clock::now(), Clock::duration(0));
        const SocketResult lState = mSocket.Receive(mIn, lReceived, nullptr, lLeft);
        KyResult lResult;
        if (lState == SocketResult::Done && TakeAnswer(lReceived, lEnd, aPayload, lResult))
        {
            return lResult;
        }
        aRefused = lState == SocketResult::Refused || lState == SocketResult::Failed;
        if (aRefused || lState == SocketResult::TimedOut || Clock::now() >= lEnd)
        {
            return KyResult(KyResult::TIMED_OUT);
        }
    }
}

// Whether a packet ends the command. One that belongs to an earlier command, or to none, does not.
bool ControlChannel::TakeAnswer(size_t aReceived, Clock::time_point& aEnd, Bytes& aPayload, KyResult& aResult)
{
    const auto lAnswer = KyGvcp::ParseAcknowledge(Bytes(mIn).first(aReceived));
    if (!lAnswer || lAnswer->mRequestID != mRequest)
    {
        return false;
    }
    if (lAnswer->mCode == KyGvcp::cPendingAck)
    {
        Reader lReader(lAnswer->mPayload);
        lReader.Take16();
        const std::chrono::milliseconds lMore(lReader.Take16());
        aEnd = std::min(std::max(aEnd, Clock::now() + lMore), mLatest);
        return false;
    }
    if (lAnswer->mCode != mCode + 1)
    {
        return false;
    }
    if (lAnswer->mStatus != KyGvcp::cSuccess)
    {
        aResult = Refused(lAnswer->mStatus);
        return true;
    }
    aPayload = lAnswer->mPayload;
    return aPayload.size() >= mAnswer; // a short one is damaged; the device answers again when asked again
}

KyResult ControlChannel::ReadRegister(uint32_t aAddress, uint32_t& aValue)
{
    aValue = 0;
    const LockScope lScope(mLock);
    Bytes lPayload;
    KyResult lResult =
        Execute(KyGvcp::MakeReadRegister(NextRequest(), aAddress), KyGvcp::cReadRegister, 4, lPayload);
    if (lResult.IsOK())
    {
        aValue = Reader(lPayload).Take32();
    }
    return lResult;
}

KyResult ControlChannel::WriteRegister(uint32_t aAddress, uint32_t aValue)
{
    const LockScope lScope(mLock);
    Bytes lPayload;
    return Execute(KyGvcp::MakeWriteRegister(NextRequest(), aAddress, aValue), KyGvcp::cWriteRegister, 0,
                   lPayload);
}

KyResult ControlChannel::ReadBlock(uint32_t aAddress, uint8_t* aBuffer, size_t aSize)
{
    constexpr size_t cAddress = 4; // comes before the data
    const auto lAsked = static_cast<uint16_t>((aSize + 3) & ~size_t{3});
    const LockScope lScope(mLock);
    Bytes lPayload;
    KyResult lResult = Execute(KyGvcp::MakeReadMemory(NextRequest(), aAddress, lAsked), KyGvcp::cReadMemory,
                               cAddress + aSize, lPayload);
    if (lResult.IsOK())
    {
        std::copy_n(lPayload.begin() + cAddress, aSize, aBuffer);
    }
    return lResult;
}

KyResult ControlChannel::ReadMemory(uint32_t aAddress, uint8_t* aBuffer, uint64_t aSize)
{
    for (uint64_t lDone = 0; lDone < aSize;)
    {
        const size_t lSize = static_cast<size_t>(std::min<uint64_t>(aSize - lDone, KyGvcp::cMaxBlock));
        KyResult lResult = ReadBlock(aAddress + static_cast<uint32_t>(lDone), aBuffer + lDone, lSize);
        if (!lResult.IsOK())
        {
            return lResult;
        }
        lDone += lSize;
    }
    return {};
}

KyResult ControlChannel::WriteBlock(uint32_t aAddress, const uint8_t* aBuffer, size_t aSize)
{
    const LockScope lScope(mLock);
    Bytes lPayload;
    return Execute(KyGvcp::MakeWriteMemory(NextRequest(), aAddress, Bytes(aBuffer, aSize)),
                   KyGvcp::cWriteMemory, 0, lPayload);
}

KyResult ControlChannel::WriteMemory(uint32_t aAddress, const uint8_t* aBuffer, uint64_t aSize)
{
    if (aBuffer == nullptr || aSize == 0)
    {
        return {KyGvcp::cInvalidParameter, "There is nothing to write."};
    }
    for (uint64_t lDone = 0; lDone < aSize;)
    {
        const size_t lSize = static_cast<size_t>(std::min<uint64_t>(aSize - lDone, KyGvcp::cMaxBlock));
        const bool lWindow = (aAddress & cWindow) != 0;
        KyResult lResult =
            WriteBlock(lWindow ? aAddress : aAddress + static_cast<uint32_t>(lDone), aBuffer + lDone, lSize);
        if (!lResult.IsOK())
        {
            return lResult;
        }
        lDone += lSize;
    }
    return {};
}

} // namespace KyGigE
