#pragma once

#include "Bridge.h"
#include "KyPlatform/HostSerialPort.h"

namespace KySerialLib
{

/// Joins a device port to a serial port of the host, so that a program that talks to COM5 talks to the
/// device.
///
/// Order of calls: OpenDevicePort(), OpenCOMPort(), Start(); SetSerialPortConfiguration() any time after
/// that. The destructor ends the threads, closes the host port and restores the device's settings.
///
/// Bytes from the host are passed on once its line has been quiet for 10 ms, or 16384 of them are there.
/// Under traffic without pauses only the second happens: every 1.4 s at 115200 bit/s.
class BridgeCOM final : public Bridge
{
public:
    BridgeCOM() = default;
    ~BridgeCOM() override;

    /// The base's rate; while it has none, the configuration's.
    uint32_t GetBaudRate() const override;
    /// All of them.
    bool IsBaudRateSupported(uint32_t aBaudRate) const override;
    KyPlatform::WorkerThread::Routine GetUpThreadRoutine() const override { return &UpThread; }
    KyPlatform::WorkerThread::Routine GetDownThreadRoutine() const override { return &DownThread; }

    /// Checks the name of a host port and keeps it.
    /// \param aName  "COM" in any case and one or two digits, or a path where the system has them; null is
    ///         refused.
    /// \param aPath  Receives what the system calls the port; unchanged on failure.
    /// \return OK; BAD_PARAMETER: aName is not formed like that.
    KyResult ParseCOMPort(const char* aName, KyString& aPath);

    /// Opens a host port and gives it and the device these settings.
    /// \return OK. BAD_PARAMETER: name or configuration. FAILURE: the system refused. The host port is closed
    ///         then.
    KyResult OpenCOMPort(const char* aName, const KySerialPortConfiguration& aConfiguration);

    /// Gives the host port, and then the device, other settings; also while bytes are relayed.
    /// \return OK. BAD_PARAMETER: the configuration is not valid. FAILURE: the host port refused. The
    ///         settings are as before then.
    KyResult SetSerialPortConfiguration(const KySerialPortConfiguration& aConfiguration);

    /// A configuration as host line settings. Values that no valid configuration has are broken assertions
    /// and become 9600 bit/s, no parity, 8 data bits, one stop bit.
    static KyPlatform::HostLine ToHostLine(const KySerialPortConfiguration& aConfiguration);

    /// The name as ParseCOMPort() got it.
    const KyString& GetSerialPort() const { return mSerialPort; }

private:
    static uint32_t UpThread(void* aBridge);
    static uint32_t DownThread(void* aBridge);
    void RelayUp();
    void RelayDown();
    void WriteToHost(const uint8_t* aData, uint32_t aSize);
    KySerialPortConfiguration Complete(const KySerialPortConfiguration& aConfiguration);
    KyResult CloseAfter(KyResult aFailure);

    KyString mSerialPort;
    KyPlatform::HostSerialPort mHostPort;
};

} // namespace KySerialLib
