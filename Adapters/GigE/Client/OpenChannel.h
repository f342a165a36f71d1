#pragma once

#include "Adapters/GigE/Client/ControlChannel.h"

#include <KyGigE/Discovery.h>

namespace KyGigE
{

/// Opens a control channel to a device that a search has found, by the interface that it was found on.
/// \return As ControlChannel::Open(). The channel is not shut after OK.
KyResult OpenChannel(const FoundDevice& aDevice, ControlChannel& aChannel);

} // namespace KyGigE
