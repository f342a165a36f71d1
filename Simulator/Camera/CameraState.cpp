#include "Simulator/Camera/CameraState.h"

#include <algorithm>
#include <utility>

namespace KySimulator
{

CameraState::CameraState(const CameraConfiguration& aConfiguration)
    : mConfiguration(aConfiguration)
    , mFeatures(MakeFeatureTable(aConfiguration))
    , mBulkSelector(aConfiguration.FirstFeaturePort())
    , mEventSelector(mBulkSelector)
    , mUserID(aConfiguration.mUserID)
{
    const LinePort::Limits lLimits{mConfiguration.mUartReceiveFifo, mConfiguration.mWireLimit};
    // A port that the camera does not have stays a null pointer; every access asks for it first.
    for (size_t lUart = 0; lUart < mConfiguration.mUartCount; ++lUart)
    {
        mUarts[lUart] = std::make_unique<UartPort>(*this, lUart, lLimits, mConfiguration.mUnlimitedLineRate);
    }
    for (size_t lBulk = 0; lBulk < cBulkCount; ++lBulk)
    {
        // Bulk port 0 may have no features: applications drive it through its registers then.
        if (mConfiguration.mBulk[lBulk].mFeatures || (lBulk == 0 && HasBulkRegisters()))
        {
            mBulks[lBulk] = std::make_unique<BulkPort>(*this, lBulk, mConfiguration);
        }
    }
}

void CameraState::Step(Time aNow)
{
    const Time lPeriod = mConfiguration.mCollects;
    // A device that looks at its lines once in a period hands on everything of a period together.
    const Time lNow = lPeriod > Time(0) ? aNow / lPeriod * lPeriod : aNow;
    mNow = std::max(mNow, lNow); // an application's own clock may go back
    for (size_t lPort = 0; lPort < cPortCount; ++lPort)
    {
        if (LinePort* const lLine = Find(static_cast<Port>(lPort)))
        {
            lLine->Step();
        }
    }
}

Time CameraState::NextDue() const
{
    Time lNext = cNever;
    for (const auto& lUart : mUarts)
    {
        lNext = std::min(lNext, lUart != nullptr ? lUart->NextDue() : cNever);
    }
    for (const auto& lBulk : mBulks)
    {
        lNext = std::min(lNext, lBulk != nullptr ? lBulk->NextDue() : cNever);
    }
    const Time lPeriod = mConfiguration.mCollects;
    if (lNext == cNever || lPeriod <= Time(0))
    {
        return lNext;
    }
    return (lNext + lPeriod - Time(1)) / lPeriod * lPeriod; // the next step at or after it
}

std::vector<Output> CameraState::TakeOutputs()
{
    // Left empty, so that each output is posted once.
    return std::exchange(mOutputs, {});
}

LinePort* CameraState::Find(Port aPort)
{
    if (aPort == Port::Uart0 || aPort == Port::Uart1)
    {
        return mUarts[static_cast<size_t>(aPort)].get();
    }
    return FindBulk(aPort);
}

BulkPort* CameraState::FindBulk(Port aPort)
{
    return IsPort(aPort) && aPort >= Port::Bulk0 ? mBulks[static_cast<size_t>(aPort) - cUartCount].get()
                                                 : nullptr;
}

void CameraState::RaiseInterrupt(uint16_t aId, uint32_t aStatus, const std::vector<uint8_t>& aData)
{
    // The status word is little-endian on every transport, unlike the headers of messages.
    DeviceEvent lEvent{aId, mNow, {}};
    lEvent.mData.reserve(4 + aData.size());
    for (uint32_t lShift = 0; lShift < 32; lShift += 8)
    {
        lEvent.mData.push_back(static_cast<uint8_t>((aStatus >> lShift) & 0xFFU));
    }
    lEvent.mData.insert(lEvent.mData.end(), aData.begin(), aData.end());
    mOutputs.emplace_back(std::move(lEvent));
}

void CameraState::RaiseUpstream(size_t aBulk, const std::vector<uint8_t>& aData)
{
    mOutputs.emplace_back(DeviceEvent{static_cast<uint16_t>(cUpstreamEvent + aBulk), mNow, aData});
}

void CameraState::DeliverToPeer(Port aPort, std::vector<uint8_t> aData)
{
    const Socket& lSocket = mSockets[static_cast<size_t>(aPort)];
    if (lSocket.mPeer != nullptr)
    {
        mOutputs.emplace_back(PeerNews{lSocket.mPeer, std::move(aData)});
    }
}

void CameraState::Plug(Port aPort, std::shared_ptr<SerialPeer> aPeer,
                       const std::shared_ptr<SerialLine>& aLine)
{
    Socket& lSocket = mSockets[static_cast<size_t>(aPort)];
    if (lSocket.mPeer != nullptr)
    {
        // First: the new peer may be the same object.
        mOutputs.emplace_back(PeerNews{lSocket.mPeer, std::monostate()});
    }
    lSocket = {std::move(aPeer), aLine};
    if (lSocket.mPeer != nullptr)
    {
        mOutputs.emplace_back(PeerNews{lSocket.mPeer, aLine});
    }
}

void CameraState::ArriveFrom(const SerialLine* aLine, Port aPort, const uint8_t* aData, size_t aSize,
                             Time aDelay)
{
    LinePort* const lPort = Find(aPort);
    // A peer may keep its line after it was unplugged; what it sends then is lost.
    if (lPort != nullptr && mSockets[static_cast<size_t>(aPort)].mLine.get() == aLine && aData != nullptr)
    {
        lPort->Inject(aData, aSize, aDelay);
    }
}

} // namespace KySimulator
