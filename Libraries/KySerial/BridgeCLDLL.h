#pragma once

#include "Bridge.h"
#include "KyPlatform/NamedSemaphore.h"
#include "clserzmo/sharedfifo.h"
#include "clserzmo/sharedregistry.h"

#include <memory>

namespace KySerialLib
{

/// Makes a device port available to Camera Link serial clients in other processes: a named server in the
/// shared registry, with a FIFO in shared memory for each direction.
///
/// Order of calls: OpenDevicePort(), OpenSharedMem(), Start(); SetHardCodedBaudRate() any time after that.
/// The destructor ends the threads, withdraws the server and restores the device's settings.
///
/// Before each block that it passes to the device the bridge sets the device to the rate that the client has
/// asked for in the registry.
class BridgeCLDLL final : public Bridge
{
public:
    /// Opens this process's view of the registry, which may take up to 500 ms.
    BridgeCLDLL();
    ~BridgeCLDLL() override;

    /// The base's rate; while it has none, the hard-coded one.
    uint32_t GetBaudRate() const override;
    /// Only 9600, 19200, 38400, 57600 and 115200: what the interface of the clients has bits for.
    bool IsBaudRateSupported(uint32_t aBaudRate) const override;
    KyPlatform::WorkerThread::Routine GetUpThreadRoutine() const override { return &UpThread; }
    KyPlatform::WorkerThread::Routine GetDownThreadRoutine() const override { return &DownThread; }

    /// Enters the server, makes its FIFOs, and offers the device's rates.
    /// \param aName  Name of the server; 255 characters at most, null is the empty name.
    /// \return OK; FAILURE: the name is taken, or registry or FIFOs cannot be made. Nothing is left open
    /// then.
    KyResult OpenSharedMem(const char* aName);

    /// Withdraws the server. The threads must have ended. Harmless when closed.
    void CloseSharedMem();

    /// Offers the clients only this rate; also while bytes are relayed.
    /// \return OK; BAD_PARAMETER: not one of the five, nothing has changed. Before OpenSharedMem() it is a
    ///         broken assertion, and nothing changes.
    KyResult SetHardCodedBaudRate(uint32_t aBaudRate);
    /// 9600 at first.
    uint32_t GetHardCodedBaudRate() const { return mHardCodedBaudRate; }

    const KyString& GetName() const { return mName; }

private:
    static uint32_t UpThread(void* aBridge);
    static uint32_t DownThread(void* aBridge);
    void RelayUp();
    void RelayDown();
    void FollowClient();
    void LogObstacle() const;
    void OfferBaudRates();
    std::unique_ptr<SharedFifo> MakeFifo(const char* aStem) const;
    KyResult CloseAfter(KyResult aFailure);

    KyString mName;
    SharedRegistry mSharedRegistry;
    SharedRegistryEntry* mSharedRegistryEntry = nullptr; // inside the shared section; null: closed
    KyPlatform::NamedSemaphore mServerSemaphore;
    KyPlatform::NamedSemaphore mClientSemaphore;
    std::unique_ptr<SharedFifo> mUpFifo;   // device to client; null: closed
    std::unique_ptr<SharedFifo> mDownFifo; // client to device; null: closed
    std::atomic<uint32_t> mHardCodedBaudRate{9600};
};

} // namespace KySerialLib
