#include "Adapters/GigE/Client/ControlChannel.h"

#include <JxUtilsLib/LockScope.h>
#include <JxUtilsLib/Thread.h>

#include <algorithm>
#include <string>
#include <utility>

namespace KyGigE
{

using JxUtilsLib::LockScope;
using KyGvcp::Bytes;
using KyGvcp::Packet;
using KyGvcp::Reader;
using KyGvcp::SocketResult;
using KyPlatform::Deadline;

namespace
{

constexpr uint32_t cWindow = 0x80000000U;

/// Packets that are read after the time for an answer is over. On a busy computer the answer has come in time and
/// this thread has not; a device that sends without end must not keep the caller.
constexpr unsigned cLatePackets = 64;

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

ControlChannel::ControlChannel(const ControlTimes& aTimes, std::shared_ptr<const std::atomic<bool>> aCancel)
    : mTimes(aTimes), mCancel(std::move(aCancel))
{
}

KyResult ControlChannel::Open(const KyGvcp::Endpoint& aDevice, uint32_t aLocal, uint32_t aInterface)
{
    const LockScope lScope(mLock);
    // Connected: only the device's packets come in, and where the system reports it, a host without a listener ends the wait
    // at once.
    if (!mSocket.Open({aLocal, 0}, false, aInterface) || !mSocket.Connect(aDevice))
    {
        mSocket.Close();
        return {KyResult::FAILURE, "No network socket for the device could be opened."};
    }
    return {};
}

void ControlChannel::Begin()
{
    const LockScope lScope(mLock);
    // Under the lock, so that the answer to the command that runs does not count for the new connection.
    ++mConnection;
    mShut = false;
}

void ControlChannel::SetPatience(uint32_t aMilliseconds)
{
    // The device's own word, limited: a device that asks for an hour does not get it.
    mPatience = std::min(aMilliseconds, mTimes.mPending);
}

// Waits, and looks meanwhile whether all is over. \return False: it is.
bool ControlChannel::Pause(const Deadline& aUntil) const
{
    while (!IsOver())
    {
        const uint32_t lLeft = aUntil.GetRemaining(cSlice);
        if (lLeft == 0)
        {
            return true;
        }
        JxUtilsLib::Thread::Sleep(lLeft);
    }
    return false;
}

// Asks until the device does the command or refuses it for good. aPayload, aAnswer bytes at the least, points
// into mIn.
KyResult ControlChannel::Execute(Packet aCommand, uint64_t aConnection, uint16_t aCode, size_t aAnswer,
                                 Bytes& aPayload)
{
    mCode = aCode;
    mAnswer = aAnswer;
    mLatest = std::min(Deadline(mTimes.mPending), mEnd.load());
    for (uint32_t lTry = 1;; ++lTry)
    {
        if (IsRefused(aConnection))
        {
            return NotConnected();
        }
        // A busy device answers at once. The pause keeps the attempts as far apart as those at a silent device.
        const Deadline lNext(mTimes.mTimeout);
        KyResult lResult = Ask(aCommand, aPayload);
        if (lResult.GetCode() != KyGvcp::cBusy || lTry >= mTimes.mAttempts || !Pause(lNext))
        {
            return lResult;
        }
        ++mRepeats;
        // Under the old identifier the device would repeat the answer that it has stored: that it is busy.
        aCommand.SetRequestID(NextRequest());
    }
}

// Sends a command until it is answered.
KyResult ControlChannel::Ask(const Packet& aCommand, Bytes& aPayload)
{
    // What the device may need in silence, and the time that the packets need.
    const Deadline lPatience(uint64_t{mPatience} + mTimes.mTimeout);
    bool lRefused = false;
    for (uint32_t lAttempt = 1; lAttempt <= mTimes.mAttempts; ++lAttempt)
    {
        mRepeats += lAttempt > 1 ? 1 : 0;
        const bool lRefusedBefore = lRefused;
        const Deadline lEnd(mTimes.mTimeout);
        lRefused = mSocket.Send(aCommand.GetBytes()) != SocketResult::Done;
        KyResult lResult(KyResult::TIMED_OUT);
        if (!lRefused)
        {
            // Only the last attempt waits for a device that is silent while it works. The earlier ones repeat a
            // packet that got lost.
            const bool lLast = lAttempt == mTimes.mAttempts;
            lResult = WaitForAnswer(lLast ? std::max(lEnd, lPatience) : lEnd, aPayload, lRefused);
        }
        if (lResult.GetCode() != KyResult::TIMED_OUT)
        {
            return lResult;
        }
        if (IsOver())
        {
            return NotConnected();
        }
        if (lRefused && lRefusedBefore)
        {
            break; // one refusal may be an old one, of a packet sent before the device came back
        }
    }
    // Each further command would block as long in vain. The connection is over, and the next one opens the channel again.
    mShut = true;
    return {KyResult::NO_CONNECTION, "The device does not answer."};
}

// \return TIMED_OUT: nothing came, or all is over. aRefused: the other host says that nobody listens.
KyResult ControlChannel::WaitForAnswer(Deadline aEnd, Bytes& aPayload, bool& aRefused)
{
    for (unsigned lLate = 0;;)
    {
        size_t lReceived = 0;
        // In slices, so that a cancelled connection does not hold its caller for a whole time-out.
        const std::chrono::milliseconds lTime(aEnd.GetRemaining(cSlice));
        const SocketResult lState = mSocket.Receive(mIn, lReceived, nullptr, lTime);
        KyResult lResult;
        if (lState == SocketResult::Done && TakeAnswer(lReceived, aEnd, aPayload, lResult))
        {
            return lResult;
        }
        aRefused = lState == SocketResult::Refused || lState == SocketResult::Failed;
        const bool lTimeIsOver = aEnd.IsOver();
        // A packet that is not the answer may have the answer right after it, so the queue is read on for a while.
        const bool lMayReadOn = lState == SocketResult::Done && (!lTimeIsOver || ++lLate <= cLatePackets);
        if (aRefused || IsOver() || (lTimeIsOver && !lMayReadOn))
        {
            return KyResult(KyResult::TIMED_OUT);
        }
    }
}

// Whether a packet ends the command. One that belongs to an earlier command, or to none, does not.
bool ControlChannel::TakeAnswer(size_t aReceived, Deadline& aEnd, Bytes& aPayload, KyResult& aResult)
{
    const auto lAnswer = KyGvcp::ParseAcknowledge(Bytes(mIn).first(aReceived));
    // An answer to an earlier attempt or an earlier command: this command still waits.
    if (!lAnswer || lAnswer->mRequestID != mRequest)
    {
        return false;
    }
    if (lAnswer->mCode == KyGvcp::cPendingAck)
    {
        Reader lReader(lAnswer->mPayload);
        lReader.Take16(); // reserved
        const Deadline lMore(lReader.Take16());
        // The announced time lengthens the wait and never shortens it, and all announcements together end at
        // mLatest.
        aEnd = std::min(std::max(aEnd, lMore), mLatest);
        return false;
    }
    // An acknowledge has the code of its command plus one.
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

KyResult ControlChannel::Discover(std::array<uint8_t, KyGvcp::cDiscoverySize>& aRegisters)
{
    const LockScope lScope(mLock);
    Bytes lPayload;
    KyResult lResult = Execute(KyGvcp::MakeDiscovery(NextRequest(), false), cPresent, KyGvcp::cDiscovery,
                               aRegisters.size(), lPayload);
    if (lResult.IsOK())
    {
        std::copy_n(lPayload.begin(), aRegisters.size(), aRegisters.begin());
    }
    return lResult;
}

KyResult ControlChannel::ReadRegister(uint32_t aAddress, uint32_t& aValue, uint64_t aConnection)
{
    aValue = 0;
    const LockScope lScope(mLock);
    Bytes lPayload;
    KyResult lResult = Execute(KyGvcp::MakeReadRegister(NextRequest(), aAddress), aConnection,
                               KyGvcp::cReadRegister, 4, lPayload);
    if (lResult.IsOK())
    {
        aValue = Reader(lPayload).Take32();
    }
    return lResult;
}

KyResult ControlChannel::WriteRegister(uint32_t aAddress, uint32_t aValue, uint64_t aConnection)
{
    const LockScope lScope(mLock);
    Bytes lPayload;
    return Execute(KyGvcp::MakeWriteRegister(NextRequest(), aAddress, aValue), aConnection,
                   KyGvcp::cWriteRegister, 0, lPayload);
}

void ControlChannel::SendRegister(uint32_t aAddress, uint32_t aValue)
{
    const LockScope lScope(mLock);
    const Packet lCommand =
        // Without the flag that asks for an acknowledge.
        Packet::Command(KyGvcp::cWriteRegister, 0, NextRequest()).Add32(aAddress).Add32(aValue);
    static_cast<void>(mSocket.Send(lCommand.GetBytes())); // ignored: nobody waits for it
}

KyResult ControlChannel::ReadBlock(uint32_t aAddress, uint8_t* aBuffer, size_t aSize, uint64_t aConnection)
{
    constexpr size_t cAddress = 4; // comes before the data
    // Devices read memory in whole words only. The bytes that are too many are dropped here.
    const auto lAsked = static_cast<uint16_t>((aSize + 3) & ~size_t{3});
    const LockScope lScope(mLock);
    Bytes lPayload;
    KyResult lResult = Execute(KyGvcp::MakeReadMemory(NextRequest(), aAddress, lAsked), aConnection,
                               KyGvcp::cReadMemory, cAddress + aSize, lPayload);
    if (lResult.IsOK())
    {
        std::copy_n(lPayload.begin() + cAddress, aSize, aBuffer);
    }
    return lResult;
}

KyResult ControlChannel::ReadMemory(uint32_t aAddress, uint8_t* aBuffer, uint64_t aSize, uint64_t aConnection)
{
    // All packets belong to the connection of the first.
    const uint64_t lConnection = aConnection != cPresent ? aConnection : GetConnection();
    for (uint64_t lDone = 0; lDone < aSize;)
    {
        const size_t lSize = static_cast<size_t>(std::min<uint64_t>(aSize - lDone, KyGvcp::cMaxBlock));
        KyResult lResult =
            ReadBlock(aAddress + static_cast<uint32_t>(lDone), aBuffer + lDone, lSize, lConnection);
        if (!lResult.IsOK())
        {
            return lResult;
        }
        lDone += lSize;
    }
    return {};
}

KyResult ControlChannel::WriteBlock(uint32_t aAddress, const uint8_t* aBuffer, size_t aSize,
                                    uint64_t aConnection)
{
    const LockScope lScope(mLock);
    Bytes lPayload;
    return Execute(KyGvcp::MakeWriteMemory(NextRequest(), aAddress, Bytes(aBuffer, aSize)), aConnection,
                   KyGvcp::cWriteMemory, 0, lPayload);
}

KyResult ControlChannel::WriteMemory(uint32_t aAddress, const uint8_t* aBuffer, uint64_t aSize,
                                     uint64_t aConnection)
{
    if (aBuffer == nullptr || aSize == 0)
    {
        return {KyGvcp::cInvalidParameter, "There is nothing to write."};
    }
    const uint64_t lConnection = aConnection != cPresent ? aConnection : GetConnection();
    for (uint64_t lDone = 0; lDone < aSize;)
    {
        const size_t lSize = static_cast<size_t>(std::min<uint64_t>(aSize - lDone, KyGvcp::cMaxBlock));
        // The transmit window is one address that takes a stream of bytes. In other memory the packets lie side by
        // side.
        const bool lWindow = (aAddress & cWindow) != 0;
        KyResult lResult = WriteBlock(lWindow ? aAddress : aAddress + static_cast<uint32_t>(lDone),
                                      aBuffer + lDone, lSize, lConnection);
        if (!lResult.IsOK())
        {
            return lResult;
        }
        lDone += lSize;
    }
    return {};
}

} // namespace KyGigE
