#include "kyserial/Terminal/PortSender.h"

#include "kyserial/Text/Failure.h"

#include <JxUtilsLib/Thread.h>

#include <algorithm>
#include <utility>

namespace KySerialTool
{

namespace
{

constexpr uint32_t cBusyPause = 10; // milliseconds

} // namespace

PortSender::PortSender(BytePort& aPort, TrafficLog& aLog, std::function<bool()> aGiveUp, uint32_t aBusyLimit)
    : mPort(aPort), mLog(aLog), mGiveUp(std::move(aGiveUp)), mBusyLimit(aBusyLimit)
{
}

bool PortSender::Send(const uint8_t* aData, size_t aSize)
{
    size_t lDone = 0;
    while (lDone < aSize)
    {
        if (mGiveUp())
        {
            return false;
        }
        lDone += SendPiece(aData + lDone, static_cast<uint32_t>(std::min<size_t>(aSize - lDone, cPiece)));
    }
    return true;
}

uint32_t PortSender::SendPiece(const uint8_t* aData, uint32_t aSize)
{
    uint32_t lSent = 0;
    const KyResult lResult = mPort.Send(aData, aSize, lSent);
    lSent = std::min(lSent, aSize);
    mSent += lSent;
    mLog.Add(TrafficLog::cSent, aData, lSent);
    const uint64_t lNow = JxUtilsLib::Thread::GetTickCount() + 1; // never 0
    if (lResult.IsOK() || lSent > 0)
    {
        mBusySince = 0;
    }
    const bool lBusy = !lResult.IsOK() && mPort.IsBusy(lResult);
    if (lBusy)
    {
        mBusySince = mBusySince == 0 ? lNow : mBusySince;
    }
    if (!lResult.IsOK() && (!lBusy || lNow - mBusySince > mBusyLimit))
    {
        throw OperationError("sending failed after " + std::to_string(mSent) +
                             " bytes: " + ResultText(lResult));
    }
    if (!lResult.IsOK())
    {
        JxUtilsLib::Thread::Sleep(cBusyPause);
    }
    return lSent;
}

} // namespace KySerialTool
