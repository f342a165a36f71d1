#include "kyserial/Serve/Tcp/TcpHostState.h"

#include <JxUtilsLib/LockScope.h>

namespace KySerialTool
{

using JxUtilsLib::LockScope;

void TcpHost::State::TakeCommand(const ClientPtr& aClient, ComPortCommand aCommand, const std::string& aValue)
{
    const LockScope lScope(mMutex);
    // A value that is cut short would be another number.
    if (aValue.size() < ComPortValueSize(aCommand))
    {
        ++mCounts.mFaults;
        return;
    }
    const uint32_t lValue = ComPortValue(aCommand, aValue);
    switch (aCommand)
    {
    case ComPortCommand::Signature:
        // An empty signature is the question. One with a text is the client's own, and wants no answer.
        aClient->mOutput.AddAnswer(aValue.empty() ? Telnet::Answer(aCommand, "kyserial") : std::string());
        break;
    case ComPortCommand::SetDataSize:
        // Whatever is asked for: cameras have no other.
        aClient->mOutput.AddAnswer(Confirmation(aCommand, 8));
        break;
    case ComPortCommand::SetControl:
        aClient->mOutput.AddAnswer(ControlAnswer(lValue, aClient->mControls));
        break;
    case ComPortCommand::PurgeData:
        Purge(*aClient, lValue);
        break;
    case ComPortCommand::Suspend:
    case ComPortCommand::Resume:
        aClient->mPaused = aCommand == ComPortCommand::Suspend;
        break;
    case ComPortCommand::SetLineStateMask:
    case ComPortCommand::SetModemStateMask:
        aClient->mOutput.AddAnswer(Confirmation(aCommand, lValue));
        break;
    case ComPortCommand::NotifyLineState:
    case ComPortCommand::NotifyModemState:
        break; // of the server
    default:
        Obey(aClient, aCommand, lValue);
        break;
    }
}

// A request of a client that may only read is answered with what is, and changes nothing.
void TcpHost::State::Obey(const ClientPtr& aClient, ComPortCommand aCommand, uint32_t aValue)
{
    ClientQueue::Request lRequest{aClient, aCommand, aValue, {}};
    if (!ToBridgeRequest(aCommand, aValue, lRequest.mRequest))
    {
        return;
    }
    if (!IsWriter(*aClient))
    {
        aClient->mOutput.AddAnswer(LineAnswer(aCommand, mLine, 0));
        return;
    }
    mQueue.Add(lRequest);
    mForDevice.NotifyAll();
}

// Confirmed in any case: the standard has no refusal.
void TcpHost::State::Purge(TcpClient& aClient, uint32_t aWhat)
{
    const bool lMay = IsWriter(aClient) && aWhat <= 3;
    if (lMay && (aWhat & 1) != 0) // from the device
    {
        KySerialBridgeRequest lRequest;
        lRequest.mClearsReceived = true;
        mQueue.Add({{}, ComPortCommand::PurgeData, aWhat, lRequest});
    }
    if (lMay && (aWhat & 2) != 0) // to the device
    {
        mCounts.mPurged += mQueue.DropBytes();
    }
    aClient.mOutput.AddAnswer(Confirmation(ComPortCommand::PurgeData, aWhat));
    mForDevice.NotifyAll();
}

} // namespace KySerialTool
