#include "BridgeHost.h"

#include "BridgePacer.h"
#include "FeatureSelectorScope.h"
#include "LogResult.h"
#include "OutOfMemory.h"

#include <algorithm>
#include <array>

namespace KySerialLib
{

namespace
{

using ReadEnd = IKySerialBridgeHost::ReadEnd;

constexpr char cSourceFile[] = "Libraries/KySerial/BridgeHost";

constexpr uint32_t cBlockSize = 16384;
constexpr uint32_t cReadTime = 1000; // ms; a stop ends the read itself

} // namespace

BridgeHost::~BridgeHost()
{
    StopThreads();
    Release();
}

uint32_t BridgeHost::GetBaudRate() const
{
    const uint32_t lBaudRate = Bridge::GetBaudRate();
    return lBaudRate != 0 ? lBaudRate : GetConfiguration().mBaudRate;
}

bool BridgeHost::IsBaudRateSupported(uint32_t /*aBaudRate*/) const
{
    return true;
}

KyResult BridgeHost::UseHost(IKySerialBridgeHost& aHost, const KySerialBridgeRequest& aRequest)
{
    mHost = &aHost;
    // What the device has is what it gets back after an absence; where it does not say, the usual settings are.
    KySerialPortConfiguration lSettings = ReadDeviceSettings();
    lSettings.mParity = lSettings.mParity == KyParityEven || lSettings.mParity == KyParityOdd
                            ? lSettings.mParity
                            : KyParityNone;
    lSettings.mStopBits = lSettings.mStopBits == 2 ? 2 : 1;
    SetConfiguration(lSettings);
    // One scope covers all settings, so that no other bridge moves the selector between two of them.
    FeatureSelectorScope lScope(GetDevice());
    KyResult lResult = SetSelector(lScope, "KySerialLib::BridgeHost::UseHost");
    if (!lResult.IsOK())
    {
        return lResult;
    }
    static_cast<void>(
        SyncBulkMode()); // ignored, as the settings below: what the device refuses is in the log
    static_cast<void>(Apply(aRequest));
    ReportSettings();
    static_cast<void>(RefreshSupportedBaudRates()); // ignored: a device that does not say offers no rates
    NotifyHost();
    return KyResult(KyResult::OK);
}

// Sets only what is asked for. What the device refuses stays as it was, also for the next time that it is set up.
KyResult BridgeHost::Apply(const KySerialBridgeRequest& aRequest)
{
    const bool lIsParity = aRequest.mParity >= KyParityNone && aRequest.mParity <= KyParityOdd;
    // The new value enters the configuration first, since the write takes it from there and a device that is
    // away gets it later. A refusal takes it out again.
    const auto lTry = [this](auto KySerialPortConfiguration::*aMember, auto aValue, const auto& aSync)
    {
        KySerialPortConfiguration lSettings = GetConfiguration();
        const auto lFormer = lSettings.*aMember;
        lSettings.*aMember = aValue;
        SetConfiguration(lSettings);
        if (!IsDropping() && !aSync().IsOK()) // a device that is away gets it when it is back
        {
            lSettings.*aMember = lFormer;
            SetConfiguration(lSettings);
        }
    };
    if (aRequest.mSetsParity && lIsParity)
    {
        lTry(&KySerialPortConfiguration::mParity, aRequest.mParity, [this] { return SyncParity(); });
    }
    if (aRequest.mStopBits == 1 || aRequest.mStopBits == 2)
    {
        lTry(&KySerialPortConfiguration::mStopBits, aRequest.mStopBits, [this] { return SyncStopBits(); });
    }
    if (aRequest.mBaudRate != 0)
    {
        lTry(&KySerialPortConfiguration::mBaudRate, aRequest.mBaudRate,
             [this] { return SyncBaudRate(true); });
    }
    return KyResult(KyResult::OK);
}

KyResult BridgeHost::Follow(const KySerialBridgeRequest& aRequest)
{
    if (aRequest.mClearsReceived)
    {
        ClearReceived();
    }
    KyResult lResult = Apply(aRequest);
    ReportSettings();
    return lResult;
}

// A device that is away cannot be asked; it gets the bridge's settings when it is back.
void BridgeHost::NotifyHost() noexcept
{
    try
    {
        mHost->NotifySettings(IsDropping() ? GetConfiguration() : ReadDeviceSettings());
    }
    catch (...) // ignored: what the host side makes of it does not change the bridge
    {
        KY_LOG(*mLogger, JxUtilsLib::PriorityError, "KySerialLib::BridgeHost::NotifyHost",
               "The host side failed when it was given the settings.");
    }
}

void BridgeHost::EndHostTransfers() noexcept
{
    if (mHost != nullptr)
    {
        mHost->EndTransfers();
    }
}

uint32_t BridgeHost::UpThread(void* aBridge)
{
    static_cast<BridgeHost*>(static_cast<Bridge*>(aBridge))->RelayUp();
    return 0;
}

uint32_t BridgeHost::DownThread(void* aBridge)
{
    static_cast<BridgeHost*>(static_cast<Bridge*>(aBridge))->RelayDown();
    return 0;
}

uint32_t BridgeHost::WriteToHost(const uint8_t* aData, uint32_t aSize) noexcept
{
    try
    {
        // A host side that claims to have taken more than it was given has taken all of it.
        return std::min(mHost->Write(aData, aSize), aSize);
    }
    catch (...)
    {
        return 0; // the caller logs what was not taken
    }
}

void BridgeHost::RelayUp()
{
    std::array<uint8_t, cBlockSize> lBuffer;
    while (!mStop)
    {
        uint32_t lRead = 0;
        if (!ReadFromDevice(lBuffer.data(), cBlockSize, lRead, cReadTime))
        {
            continue;
        }
        const uint32_t lWritten = WriteToHost(lBuffer.data(), lRead);
        mStatistics.mBytesReceivedFromDevice += lRead - CountDelivery(lRead, lWritten);
        // A stop cuts the host side off on purpose. One line at the end says what that has cost.
        if (lWritten != lRead && !mStop)
        {
            KY_LOG(*mLogger, JxUtilsLib::PriorityError, "KySerialLib::BridgeHost::UpThread",
                   "The host side took %u of %u bytes.", static_cast<unsigned>(lWritten),
                   static_cast<unsigned>(lRead));
        }
    }
}

ReadEnd BridgeHost::ReadFromHost(uint8_t* aBuffer, uint32_t& aRead, KySerialBridgeRequest& aRequest) noexcept
{
    try
    {
        const ReadEnd lEnd = mHost->Read(aBuffer, cBlockSize, aRead, aRequest);
        // An application's host side may give a wrong count, which must do no harm.
        aRead = lEnd == ReadEnd::Bytes ? std::min(aRead, cBlockSize) : 0;
        return lEnd;
    }
    catch (...)
    {
        aRead = 0;
        return ReadEnd::Nothing;
    }
}

void BridgeHost::RelayDown()
{
    std::array<uint8_t, cBlockSize> lBuffer;
    BridgePacer lPacer;
    while (!mStop)
    {
        uint32_t lRead = 0;
        KySerialBridgeRequest lRequest;
        lPacer.Begin();
        const ReadEnd lEnd = ReadFromHost(lBuffer.data(), lRead, lRequest);
        // A stop puts the former settings back, so a request that comes with it is left alone.
        if (lEnd == ReadEnd::Request && !mStop)
        {
            // Ignored: a refusal is in the log, and the host side hears what the device has.
            static_cast<void>(CatchOutOfMemory([&] { return Follow(lRequest); }));
            NotifyHost();
            continue;
        }
        if (lRead == 0)
        {
            // A host side that is broken may give nothing as fast as it is asked.
            static_cast<void>(mStopEvent.Wait(lPacer.GetDelay())); // ignored: the loop looks at the flag
            continue;
        }
        lPacer.Reset();
        if (!WriteToDevice(lBuffer.data(), lRead))
        {
            KY_LOG(*mLogger, JxUtilsLib::PriorityError, "KySerialLib::BridgeHost::DownThread",
                   "The device did not take all bytes of the host side.");
        }
    }
}

} // namespace KySerialLib
