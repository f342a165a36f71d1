#pragma once

#include "DeviceAdapter.h"

#include <functional>
#include <memory>
#include <string>

namespace KySerialCLib
{

/// A port or bus that its program has destroyed while the camera was away. It could not be closed, and its claim has
/// to be given back before the port can be opened again.
struct LeftOver
{
    std::shared_ptr<DeviceAdapter> mDevice; ///< What it was opened on; may have been retired since.
    std::string mCamera;                    ///< IdentityOf() the camera when it was opened.
    int32_t mSerial = 0;
    std::function<KyResult()> mClose; ///< Owns the port or bus.
};

/// What distinguishes a camera from others: the same for two devices of one camera. Empty: not known.
std::string IdentityOf(IKyDeviceAdapter& aDevice);

/// Keeps a port or bus until CloseLeftOvers() has closed it, or the process ends. Throws std::bad_alloc; the port or
/// bus is destroyed then, and stays claimed.
void KeepLeftOver(LeftOver aLeftOver);

/// Closes what earlier ports and buses have left open at a port of a camera. Called before the port is opened; one
/// that still cannot be closed is kept. Closing goes through the device that it was opened on, or, when that has ended,
/// through aDevice.
/// \param aCamera  IdentityOf(aDevice).
void CloseLeftOvers(DeviceAdapter& aDevice, const std::string& aCamera, int32_t aSerial);

} // namespace KySerialCLib
