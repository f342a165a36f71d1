#include "BridgeCLDLL.h"

#include "BridgePacer.h"
#include "JxUtilsLib/Assert.h"
#include "JxUtilsLib/Thread.h"
#include "LogResult.h"
#include "OutOfMemory.h"
#include "clserzmo/BaudRateMask.h"

#include <algorithm>
#include <array>
#include <string>

namespace KySerialLib
{

namespace
{

constexpr char cSourceFile[] = "Libraries/KySerial/BridgeCLDLL";

constexpr uint32_t cBufferSize = 16384;
constexpr uint32_t cFifoSize = 1024;
constexpr uint32_t cDeviceReadTimeout = 1000; // ms; a stop ends the read itself
constexpr uint32_t cReadTimeout = 100;        // ms; how late a stop may be noticed
constexpr uint32_t cNoPortPause = 5;          // ms
constexpr uint32_t cNoFifo = 0xFFFFFFFFU;     // a thread's result
constexpr uint32_t cForever = 0xFFFFFFFFU;    // ms

// A field that other processes read or write at any time.
std::atomic_ref<uint32_t> Shared(uint32_t& aField)
{
    return std::atomic_ref<uint32_t>(aField);
}

} // namespace

BridgeCLDLL::BridgeCLDLL() : mSharedRegistry(true) {}

BridgeCLDLL::~BridgeCLDLL()
{
    // The threads use the FIFOs and the registry's entry, so they end before these go.
    StopThreads();
    CloseSharedMem();
    Release();
}

uint32_t BridgeCLDLL::GetBaudRate() const
{
    const uint32_t lBaudRate = Bridge::GetBaudRate();
    return lBaudRate != 0 ? lBaudRate : mHardCodedBaudRate.load();
}

bool BridgeCLDLL::IsBaudRateSupported(uint32_t aBaudRate) const
{
    uint32_t lMask = 0;
    return BaudRateToMask(aBaudRate, lMask);
}

std::unique_ptr<SharedFifo> BridgeCLDLL::MakeFifo(const char* aStem) const
{
    const std::string lName = aStem + std::to_string(Shared(mSharedRegistryEntry->mServerId).load());
    auto lFifo = std::make_unique<SharedFifo>(lName, mSharedRegistry.GetPrefix(*mSharedRegistryEntry),
                                              cFifoSize, true);
    return lFifo->IsValid() ? std::move(lFifo) : nullptr;
}

KyResult BridgeCLDLL::CloseAfter(KyResult aFailure)
{
    CloseSharedMem();
    return aFailure;
}

KyResult BridgeCLDLL::OpenSharedMem(const char* aName)
{
    static constexpr char cFunction[] = "KySerialLib::BridgeCLDLL::OpenSharedMem";
    mName = KyString(aName);
    const std::string lName = mName.GetAscii();
    if (!mSharedRegistry.AcquireServer(lName, mServerSemaphore, mClientSemaphore))
    {
        mClientSemaphore.Close(); // an open semaphore would make a dead server of that name look alive
        mSharedRegistry.Sweep();
        LogObstacle();
        return KY_LOG_RESULT(
            *mLogger, KyResult::FAILURE, cFunction,
            "Unable to create server. A server with the same name is probably already active.");
    }
    if (!mSharedRegistry.Find(lName, mSharedRegistryEntry))
    {
        return CloseAfter(
            KY_LOG_RESULT(*mLogger, KyResult::FAILURE, cFunction, "Could not find bridge in registry."));
    }
    mDownFifo = MakeFifo("KySerialBridgeDownFifo");
    if (mDownFifo == nullptr)
    {
        LogObstacle();
        return CloseAfter(
            KY_LOG_RESULT(*mLogger, KyResult::FAILURE, cFunction, "Could not create downstream FIFO."));
    }
    mUpFifo = MakeFifo("KySerialBridgeUpFifo");
    if (mUpFifo == nullptr)
    {
        LogObstacle();
        return CloseAfter(
            KY_LOG_RESULT(*mLogger, KyResult::FAILURE, cFunction, "Could not create upstream FIFO."));
    }
    // Clients look for the mark of a server that serves, so FIFOs and rates come before the mark.
    OfferBaudRates();
    static_cast<void>(ConfigurePort()); // ignored: what the device refuses is in the log
    // Ignored: without the mark clients do not see the server until it is started again.
    static_cast<void>(mSharedRegistry.SetServerActive(lName, true));
    mSharedRegistry.Sweep();
    return KyResult(KyResult::OK);
}

// The result names the likely reason. When the system refuses what a server needs, it is the wrong one, so the
// real one is logged.
void BridgeCLDLL::LogObstacle() const
{
    const std::string lObstacle = mSharedRegistry.GetObstacle();
    if (!lObstacle.empty())
    {
        KY_LOG(*mLogger, JxUtilsLib::PriorityError, "KySerialLib::BridgeCLDLL::OpenSharedMem",
               "The registry of servers cannot be used: %s", lObstacle.c_str());
    }
}

void BridgeCLDLL::OfferBaudRates()
{
    // Entries are never freed: a former server of this name has left its rates here.
    Shared(mSharedRegistryEntry->mSupportedBaudRates) = 0;
    static_cast<void>(RefreshSupportedBaudRates()); // ignored: without rates there is a fallback
    uint32_t lOffered = 0;
    for (uint32_t lIndex = 0; lIndex < GetSupportedBaudRateCount(); ++lIndex)
    {
        uint32_t lMask = 0;
        static_cast<void>(
            BaudRateToMask(GetSupportedBaudRate(lIndex), lMask)); // a rate without a bit adds none
        lOffered |= lMask;
    }
    // Clients set only rates that are offered. Without any they could set none, so one is offered.
    if (lOffered == 0)
    {
        KY_LOG(*mLogger, JxUtilsLib::PriorityWarning, "KySerialLib::BridgeCLDLL::OpenSharedMem",
               "Could not retrieve port speeds supported by device. Offering 9600 for the time being.");
        mHardCodedBaudRate = 9600;
        lOffered = 1;
    }
    Shared(mSharedRegistryEntry->mSupportedBaudRates) = lOffered;
}

void BridgeCLDLL::CloseSharedMem()
{
    mDownFifo = nullptr;
    mUpFifo = nullptr;
    mSharedRegistryEntry = nullptr;
    // The name is given back last, since another process may be its server from then on.
    if (mServerSemaphore.IsValid() && mClientSemaphore.IsValid())
    {
        SharedRegistry::ReleaseServer(mServerSemaphore, mClientSemaphore);
    }
}

KyResult BridgeCLDLL::SetHardCodedBaudRate(uint32_t aBaudRate)
{
    static constexpr char cFunction[] = "KySerialLib::BridgeCLDLL::SetHardCodedBaudRate";
    if (!IsBaudRateSupported(aBaudRate))
    {
        return KY_LOG_RESULT(*mLogger, KyResult::BAD_PARAMETER, cFunction,
                             "Invalid or unsupported baud rate.");
    }
    JX_ASSERT(mSharedRegistryEntry != 0);
    if (mSharedRegistryEntry == nullptr)
    {
        return KyResult(KyResult::OK);
    }
    uint32_t lMask = 0;
    // GCOVR_EXCL_START: the rates that passed the check above are those that have a bit
    if (!BaudRateToMask(aBaudRate, lMask))
    {
        return KY_LOG_RESULT(*mLogger, KyResult::BAD_PARAMETER, cFunction,
                             "Could not convert baud rate value to Camera Link baud rate bitmask.");
    }
    // GCOVR_EXCL_STOP
    mHardCodedBaudRate = aBaudRate;
    Shared(mSharedRegistryEntry->mSupportedBaudRates) = lMask;
    return KyResult(KyResult::OK);
}

uint32_t BridgeCLDLL::UpThread(void* aBridge)
{
    auto* const lThis = static_cast<BridgeCLDLL*>(static_cast<Bridge*>(aBridge));
    if (lThis->mUpFifo == nullptr)
    {
        return cNoFifo;
    }
    lThis->RelayUp();
    return 0;
}

uint32_t BridgeCLDLL::DownThread(void* aBridge)
{
    auto* const lThis = static_cast<BridgeCLDLL*>(static_cast<Bridge*>(aBridge));
    if (lThis->mDownFifo == nullptr)
    {
        return cNoFifo;
    }
    lThis->RelayDown();
    return 0;
}

void BridgeCLDLL::RelayUp()
{
    std::array<uint8_t, cBufferSize> lBuffer;
    while (!mStop)
    {
        uint32_t lRead = 0;
        if (!HasDevicePort())
        {
            JxUtilsLib::Thread::Sleep(cNoPortPause);
            continue;
        }
        if (!ReadFromDevice(lBuffer.data(), cBufferSize, lRead, cDeviceReadTimeout))
        {
            continue;
        }
        // These bytes count as received before the wait for room, whatever becomes of them.
        mStatistics.mBytesReceivedFromDevice += lRead;
        uint32_t lWritten = 0;
        // The write has no time limit: a client that reads nothing for a while
        // loses no bytes. A stop ends it.
        const bool lWasWritten = mUpFifo->Write(lBuffer.data(), lRead, lWritten, cForever, &mStop);
        const uint64_t lCut = CountDelivery(lRead, lWritten);
        const uint64_t lCounted = mStatistics.mBytesReceivedFromDevice;
        mStatistics.mBytesReceivedFromDevice -= std::min(lCut, lCounted); // less: reset meanwhile
        if ((!lWasWritten || lWritten < lRead) && !mStop)
        {
            ++mStatistics.mTransferErrors;
            KY_LOG(*mLogger, JxUtilsLib::PriorityError, "KySerialLib::BridgeCLDLL::UpThread",
                   "Error writting data from KyDevice to shared memory FIFO.");
        }
    }
}

// The device runs at the rate that the client has asked for last.
void BridgeCLDLL::FollowClient()
{
    KySerialPortConfiguration lConfiguration = GetConfiguration();
    lConfiguration.mBaudRate = 0; // the request names no rate
    static_cast<void>(
        MaskToBaudRate(Shared(mSharedRegistryEntry->mRequestedBaudRate), lConfiguration.mBaudRate));
    SetConfiguration(lConfiguration);
    if (IsDropping())
    {
        return; // the device gets the rate when it is back
    }
    const uint32_t lBefore = Bridge::GetBaudRate();
    // Ignored: a refusal is in the log, and the bytes go out at the rate that the device has.
    static_cast<void>(CatchOutOfMemory([this] { return SyncBaudRate(true); }));
    if (Bridge::GetBaudRate() != lBefore)
    {
        ReportSettings();
    }
}

void BridgeCLDLL::RelayDown()
{
    std::array<uint8_t, cBufferSize> lBuffer;
    BridgePacer lPacer;
    while (!mStop)
    {
        uint32_t lRead = 0;
        lPacer.Begin();
        if (!mDownFifo->Read(lBuffer.data(), cBufferSize, lRead, cReadTimeout, &mStop) || lRead == 0)
        {
            // A FIFO that another process has damaged refuses at once, so the thread pauses between its tries.
            static_cast<void>(mStopEvent.Wait(lPacer.GetDelay())); // ignored: the loop looks at the flag
            // A client that is dead sends nothing, so its place is looked at when nothing comes.
            static_cast<void>(
                mSharedRegistry.FreeDeadClient(mClientSemaphore)); // ignored: mostly the client lives
            continue;
        }
        lPacer.Reset();
        FollowClient();
        if (!WriteToDevice(lBuffer.data(), lRead))
        {
            ++mStatistics.mTransferErrors;
            KY_LOG(*mLogger, JxUtilsLib::PriorityError, "KySerialLib::BridgeCLDLL::DownThread",
                   "Error writting data from the shared memory FIFO To the KyDevice.");
        }
    }
}

} // namespace KySerialLib
