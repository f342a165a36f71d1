#include "kyserial/PtyRelay.h"

#include "kyserial/Failure.h"

#include <array>

namespace KySerialTool
{

using KyPlatform::HostTransfer;
using KyPlatform::HostTransferResult;
using KyPlatform::PseudoTerminal;

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
    mToUser = std::thread([this] { Relay(mBridge, mUser, &mUnread); });
    mToBridge = std::thread([this] { Relay(mUser, mBridge, nullptr); });
}

PtyRelay::~PtyRelay()
{
    static_cast<void>(mStop.Set()); // cannot fail for an event that is ours
    mToUser.join();
    mToBridge.join();
}

void PtyRelay::Relay(PseudoTerminal& aFrom, PseudoTerminal& aTo, std::atomic<uint64_t>* aDropped)
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
            static_cast<void>(mStop.Wait(cPause)); // the next read tells whether it is over
            continue;
        }
        const HostTransferResult lWrite = aTo.Write(lBuffer.data(), lRead.mBytes, mStop);
        if (aDropped != nullptr)
        {
            *aDropped += lRead.mBytes - lWrite.mBytes;
        }
    }
}

} // namespace KySerialTool
