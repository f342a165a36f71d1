#pragma once

#include "DeviceAdapter.h"
#include "HandleTable.h"

namespace KySerialCLib
{

/// The process's devices. Like every table of handles it is never destroyed: at the process's end nothing is
/// closed, since the application's side of the adapters may be gone by then.
HandleTable<DeviceAdapter>& Devices();

} // namespace KySerialCLib
