#include "kyserial/Bridge/PtyHost.h"

#include "kyserial/Text/Failure.h"

#include <JxUtilsLib/LockScope.h>

#include <algorithm>
#include <array>
#include <new>
#include <utility>

namespace KySerialTool
{

using JxUtilsLib::LockScope;
using KyPlatform::HostLine;
using KyPlatform::HostTransfer;
using KyPlatform::HostTransferResult;

namespace
{

constexpr uint32_t cPtyPiece = 4096;
constexpr size_t cMostFromUser = 16384;  // bytes that wait for the device; the rest waits in the terminal
constexpr uint32_t cLookAtUser = 100;    // ms, between two looks at a user's settings
constexpr uint32_t cLookWithoutRoom = 5; // ms, between two looks whether the user has left

} // namespace

PtyHost::PtyHost(const PtyFollows& aFollows) : mFollows(aFollows)
{
    if (!mTerminal.Create() || !mStop.Create())
    {
        throw OperationError("cannot make a pseudo terminal");
    }
    // Last: the thread uses the terminal and the stop event.
    mThread = std::thread([this] { Listen(); });
}

PtyHost::~PtyHost()
{
    Close();
}

void PtyHost::Close()
{
    if (!mThread.joinable())
    {
        return;
    }
    // The thread is woken first: it may wait for a user, for room or for bytes.
    EndTransfers();
    mThread.join();
    // What the user has written and the bridge has not taken is counted as left, so that the account adds up.
    const uint64_t lWritten = mTerminal.DropWritten();
    mTerminal.DropUnread();
    mTaken += lWritten;
    const LockScope lScope(mLock);
    mLeft += lWritten + std::exchange(mWaiting, 0);
    mItems.clear();
}

void PtyHost::EndTransfers() noexcept
{
    const LockScope lScope(mLock);
    mEnded = true;
    static_cast<void>(mStop.Set()); // cannot fail for an event that is ours
    mChanged.NotifyAll();
}

// A user that sends faster than the device takes it waits in the terminal. It may leave meanwhile, and the next one come.
bool PtyHost::WaitForRoom()
{
    for (;;)
    {
        {
            const LockScope lScope(mLock);
            if (mEnded || mWaiting < cMostFromUser)
            {
                return !mEnded;
            }
            mChanged.WaitFor(mLock, cLookWithoutRoom);
        }
        // Otherwise Read() of the terminal does this, and it is not called while there is no room.
        mTerminal.CleanIfLeft();
    }
}

void PtyHost::Listen()
{
    std::array<char, cPtyPiece> lBuffer{};
    while (WaitForRoom())
    {
        const HostTransferResult lRead = mTerminal.Read(lBuffer.data(), cPtyPiece, mStop, cLookAtUser);
        mTaken += lRead.mBytes;
        try
        {
            LookAtLine(); // before the bytes: a program chooses its settings first
            if (lRead.mBytes > 0)
            {
                Queue({{lBuffer.data(), lRead.mBytes}, {}});
            }
        }
        catch (const std::bad_alloc&)
        {
            // Without memory the bytes cannot be queued. They are counted as left, not lost in silence.
            mLeft += lRead.mBytes;
        }
        if (lRead.mEnd == HostTransfer::Refused || lRead.mEnd == HostTransfer::Unsuccessful)
        {
            static_cast<void>(mStop.Wait(cLookAtUser)); // a failure that stays costs nothing
        }
    }
}

void PtyHost::Queue(const Item& aItem)
{
    const LockScope lScope(mLock);
    const bool lIsRequest = aItem.mBytes.empty();
    // Neighbouring bytes become one item. A request keeps its place between the bytes before it and those after it.
    if (!lIsRequest && !mItems.empty() && !mItems.back().mBytes.empty())
    {
        mItems.back().mBytes += aItem.mBytes;
    }
    else
    {
        mItems.push_back(aItem);
    }
    mWaiting += aItem.mBytes.size();
    mChanged.NotifyAll();
}

// What a user changes is asked of the device. Without a user the terminal gets what the device has.
void PtyHost::LookAtLine()
{
    HostLine lLine;
    if (!mTerminal.GetLine(lLine))
    {
        // The next user finds the terminal as it was made, so its first own setting is a change.
        mKnown = mClean;
        const LockScope lScope(mLock);
        if (mDevices.has_value() && mTerminal.SetLine(*mDevices))
        {
            mKnown = mClean = *std::exchange(mDevices, std::nullopt);
        }
        return;
    }
    KySerialBridgeRequest lRequest;
    // What the command line has fixed does not follow the terminal's user.
    if (mFollows.mBaudRate && lLine.mBaudRate != mKnown.mBaudRate)
    {
        lRequest.mBaudRate = lLine.mBaudRate;
    }
    if (mFollows.mStopBits && lLine.mTwoStopBits != mKnown.mTwoStopBits)
    {
        lRequest.mStopBits = lLine.mTwoStopBits ? 2 : 1;
    }
    mKnown = lLine;
    if (lRequest.mBaudRate != 0 || lRequest.mStopBits != 0)
    {
        Queue({{}, lRequest});
    }
}

IKySerialBridgeHost::ReadEnd PtyHost::Read(uint8_t* aBuffer, uint32_t aSize, uint32_t& aRead,
                                           KySerialBridgeRequest& aRequest)
{
    const LockScope lScope(mLock);
    while (!mEnded && mItems.empty())
    {
        mChanged.Wait(mLock);
    }
    // Items that still wait are not handed out any more: Close() counts them as left.
    if (mEnded)
    {
        return ReadEnd::Nothing;
    }
    Item& lItem = mItems.front();
    if (lItem.mBytes.empty())
    {
        aRequest = lItem.mRequest;
        mItems.pop_front();
        return ReadEnd::Request;
    }
    aRead = static_cast<uint32_t>(lItem.mBytes.copy(reinterpret_cast<char*>(aBuffer), aSize));
    lItem.mBytes.erase(0, aRead);
    mWaiting -= aRead;
    if (lItem.mBytes.empty())
    {
        mItems.pop_front();
    }
    mChanged.NotifyAll();
    return ReadEnd::Bytes;
}

uint32_t PtyHost::Write(const uint8_t* aData, uint32_t aSize)
{
    const HostTransferResult lWrite = mTerminal.Write(aData, aSize, mStop);
    if (lWrite.mEnd != HostTransfer::Done)
    {
        return lWrite.mBytes;
    }
    // No user has the terminal open, so the bytes are taken and counted: the bridge must not stop for an absent
    // reader.
    mNobody += aSize - lWrite.mBytes;
    return aSize;
}

bool PtyHost::IsSettled() const
{
    const LockScope lScope(mLock);
    return !mDevices.has_value();
}

// A setting that the device does not say stays as users have found it.
void PtyHost::NotifySettings(const KySerialPortConfiguration& aSettings)
{
    HostLine lLine;
    lLine.mBaudRate = aSettings.mBaudRate != 0 ? aSettings.mBaudRate : lLine.mBaudRate;
    lLine.mTwoStopBits = aSettings.mStopBits == 2;
    const LockScope lScope(mLock);
    mDevices = lLine;
}

} // namespace KySerialTool
