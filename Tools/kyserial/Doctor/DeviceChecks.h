#pragma once

#include "kyserial/Device/Device.h"
#include "kyserial/Doctor/Diagnosis.h"
#include "kyserial/Doctor/NetworkChecks.h"

#include <cstdint>

namespace KySerialTool
{

/// Who controls the device. Takes no control. \param aBusy  Receives whether another application does. \param aClosed
/// Receives whether that one has exclusive access, so that this program cannot even read.
CheckFinding CheckControl(const DeviceWay& aWay, bool& aBusy, bool& aClosed);

/// Whether the device watches over its application, and answers each command at once.
CheckFinding CheckHeartbeat(Device& aDevice);

/// Whether the device has features.
CheckFinding CheckDescription(Device& aDevice);

/// Which ports the device offers.
CheckFinding CheckPorts(Device& aDevice);

/// Whether the device sends events, and to this computer. No byte goes to a port's line, so none is awaited.
/// \param aOwn  This computer's address on the way to the device. \param aBusy  Another application has control.
CheckFinding CheckEvents(Device& aDevice, uint32_t aOwn, bool aBusy);

/// The same for a device that is no network's.
CheckFinding CheckEventSink(Device& aDevice);

} // namespace KySerialTool
