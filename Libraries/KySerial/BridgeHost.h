#pragma once

#include "Bridge.h"
#include "KySerial/IKySerialBridgeHost.h"

namespace KySerialLib
{

/// Joins a device port to a host side that the application brings.
///
/// Order of calls: OpenDevicePort(), UseHost(), Start(). The destructor ends the threads and restores the device's
/// settings. The device keeps the settings that it has, apart from those that the application or its host side asks for.
class BridgeHost final : public Bridge
{
public:
    BridgeHost() { SelectPortFirst(); }
    ~BridgeHost() override;

    /// The base's rate; while it has none, the one that the device had.
    uint32_t GetBaudRate() const override;
    /// All of them.
    bool IsBaudRateSupported(uint32_t aBaudRate) const override;
    KyPlatform::WorkerThread::Routine GetUpThreadRoutine() const override { return &UpThread; }
    KyPlatform::WorkerThread::Routine GetDownThreadRoutine() const override { return &DownThread; }

    /// Takes the host side, and gives the device what is requested.
    /// \param aHost  Open, not owned; must stay until the object is gone.
    /// \return OK. UNSUPPORTED: the selector cannot be set.
    KyResult UseHost(IKySerialBridgeHost& aHost, const KySerialBridgeRequest& aRequest);

private:
    static uint32_t UpThread(void* aBridge);
    static uint32_t DownThread(void* aBridge);
    void EndHostTransfers() noexcept override;
    void RelayUp();
    void RelayDown();
    IKySerialBridgeHost::ReadEnd ReadFromHost(uint8_t* aBuffer, uint32_t& aRead,
                                              KySerialBridgeRequest& aRequest) noexcept;
    uint32_t WriteToHost(const uint8_t* aData, uint32_t aSize) noexcept;
    KyResult Apply(const KySerialBridgeRequest& aRequest);
    KyResult Follow(const KySerialBridgeRequest& aRequest);
    void NotifyHost() noexcept;

    IKySerialBridgeHost* mHost = nullptr; // not owned
};

} // namespace KySerialLib
