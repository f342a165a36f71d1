#include "kyserial/Bridge/PtyRelay.h"

#include "kyserial/Text/Failure.h"

#include <array>
#include <utility>

namespace KySerialTool
{

using KyPlatform::HostTransfer;
using KyPlatform::HostTransferResult;
using KyToolPlatform::PseudoTerminal;

namespace
{

constexpr uint32_t cPiece = 4096;
constexpr uint32_t cPause = 100; // milliseconds after a failure, so that one that stays costs nothing

} // namespace

PtyRelay::PtyRelay()
{
    if (!mBridge.Create() || !mUser.Create() || !mStop.Create())
    {
        throw OperationError("cannot make a pseudo terminal");
    }
    mToUser = std::thread([this] { Relay(mBridge, mUser, mFromBridge); });
    try
    {
        mToBridge = std::thread([this] { Relay(mUser, mBridge, mFromUser); });
    }
    catch (...)
    {
        static_cast<void>(mStop.Set()); // cannot fail for an event that is ours
        mToUser.join();
        throw;
    }
}

PtyRelay::~PtyRelay()
{
    End();
}

void PtyRelay::End()
{
    if (!mToUser.joinable())
    {
        return;
    }
    static_cast<void>(mStop.Set()); // cannot fail for an event that is ours
    mToUser.join();
    mToBridge.join();
    for (const auto& [lTerminal, lWay] : {std::pair(&mUser, &mFromUser), std::pair(&mBridge, &mFromBridge)})
    {
        const uint64_t lLeft = lTerminal->DropWritten();
        lWay->mTaken += lLeft;
        lWay->mStopped += lLeft;
        lTerminal->DropUnread();
    }
}

uint64_t PtyRelay::GetDeliveredToUser() const
{
    const uint64_t lLeft = mUser.GetUnread(); // first: the other one may only grow meanwhile
    return mFromBridge.mGiven - lLeft;
}

void PtyRelay::Relay(PseudoTerminal& aFrom, PseudoTerminal& aTo, Way& aWay)
{
    std::array<uint8_t, cPiece> lBuffer{};
    for (;;)
    {
        const HostTransferResult lRead = aFrom.Read(lBuffer.data(), cPiece, mStop);
        if (lRead.mEnd == HostTransfer::Stopped)
        {
            return;
        }
        if (lRead.mBytes == 0)
        {
            static_cast<void>(mStop.Wait(cPause)); // ignored: after a stop the next read ends the loop
            continue;
        }
        aWay.mTaken += lRead.mBytes;
        const HostTransferResult lWrite = aTo.Write(lBuffer.data(), lRead.mBytes, mStop);
        aWay.mGiven += lWrite.mBytes;
        (lWrite.mEnd == HostTransfer::Stopped ? aWay.mStopped : aWay.mNobody) += lRead.mBytes - lWrite.mBytes;
    }
}

} // namespace KySerialTool
