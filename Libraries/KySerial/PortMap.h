#pragma once

#include "JxUtilsLib/Logger.h"
#include "JxUtilsLib/Mutex.h"
#include "KySerial/IKyDeviceAdapter.h"
#include "KySerial/KySerialTypes.h"

#include <list>
#include <map>
#include <memory>
#include <string>

namespace KySerialLib
{

/// The device ports in use in this process: each port of a device has one engine at the most.
///
/// Devices are distinguished by an identifier read from their features, not by adapter: two adapters on one
/// camera share its ports. The same identifier keys the set of devices that are known not to answer the
/// capability register.
///
/// Threads: any. Claims have one lock, the set has another; they are never held together. Identifying a
/// device calls the adapter's feature functions, for a claim or release with the lock of the claims held.
/// Without memory the operations throw std::bad_alloc and have changed nothing.
class PortMap
{
public:
    /// The process-wide map, made on first use and never destroyed: ports that are still open when the
    /// program ends release their claims then.
    static PortMap& GetInstance();

    PortMap();
    virtual ~PortMap();
    PortMap(const PortMap&) = delete;
    PortMap& operator=(const PortMap&) = delete;

    /// Claims a port. \return True: it was free and is the caller's now. False: it is claimed already.
    bool Lock(IKyDeviceAdapter* aDevice, KyDeviceSerial aPort);

    /// Releases a port. \return True: it was claimed and is free now. False: it was not claimed.
    bool Unlock(IKyDeviceAdapter* aDevice, KyDeviceSerial aPort);

    /// The device's identifier: its MAC address as text for GigE Vision, vendor name and serial number for
    /// the other transport, else empty. Features that cannot be read count as "00:11:22:33:44:55", "Unknown"
    /// and "00000000", so devices without distinct identifiers share their claims.
    static std::string GetConnectionID(IKyDeviceAdapter* aDevice);

    /// Remembers, for the life of the process, that the device does not answer the capability register.
    static void MarkUnsupported(IKyDeviceAdapter* aDevice);

    /// Whether MarkUnsupported() was called for the device.
    static bool IsKnownUnsupported(IKyDeviceAdapter* aDevice);

private:
    using PortList = std::list<KyDeviceSerial>;

    PortList* GetPortList(const std::string& aID) JX_REQUIRES(mMutex);

    std::map<std::string, std::unique_ptr<PortList>> mPorts JX_GUARDED_BY(mMutex);
    const std::unique_ptr<JxUtilsLib::Logger> mLogger;
    JxUtilsLib::Mutex mMutex;
};

} // namespace KySerialLib
