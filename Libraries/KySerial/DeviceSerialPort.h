#pragma once

#include "DeviceChecks.h"
#include "KySerial/IKyDeviceAdapter.h"
#include "KySerial/KySerialTypes.h"
#include "SerialPort.h"

namespace KySerialLib
{

/// A port engine: a receive side that can be opened on a port of a device.
///
/// Threads: the caller's thread opens and closes; the event thread reads device and port meanwhile.
class DeviceSerialPort : public SerialPort
{
public:
    DeviceSerialPort();
    ~DeviceSerialPort() override;

    /// Claims the port and starts receiving; see the engines.
    virtual KyResult Open(IKyDeviceAdapter* aDevice, KyDeviceSerial aPort) = 0;

    bool IsOpened() override;

protected:
    /// Closes an engine whose device is connected.
    /// \param aFunction  The engine's Close(), for the log.
    /// \param aUndo      Undoes what the engine's Open() has done on the device, and gives the claim back.
    /// \return OK; NO_CONNECTION without a device or with a disconnected one: nothing is undone.
    template<typename Undo>
    KyResult CloseDevice(const char* aFunction, Undo&& aUndo)
    {
        IKyDeviceAdapter* const lDevice = mDevice;
        KyResult lResult = CheckConnected(lDevice, {*mLogger, aFunction});
        if (!lResult.IsOK())
        {
            return lResult;
        }
        aUndo(lDevice);
        mDevice = nullptr;
        mPort = KyDeviceSerialInvalid;
        return SerialPort::Close();
    }

    std::atomic<IKyDeviceAdapter*> mDevice{nullptr}; // not owned; null: closed
    std::atomic<KyDeviceSerial> mPort{KyDeviceSerialInvalid};
};

} // namespace KySerialLib
