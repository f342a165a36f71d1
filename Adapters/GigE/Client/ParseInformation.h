#pragma once

#include "KyGvcp/Protocol.h"

#include <KyGigE/DeviceInformation.h>

namespace KyGigE
{

/// Takes the first 248 bytes of a device's registers apart, as discovery and memory reads give them. Texts
/// are cut at what cannot be printed.
DeviceInformation ParseInformation(KyGvcp::Bytes aRegisters);

} // namespace KyGigE
