#pragma once

#include "KySerial/Bridge/BridgeFixture.h"
#include "KySerial/KySerialBridge.h"
#include "Support/WaitFor.h"
#include "Tests/Support/HostLink.h"

#include <chrono>
#include <string>

namespace KyTest
{

/// Whether a byte comes through a bridge each way, sooner or later.
inline bool RelaysBothWays(HostLink& aLink, ScriptedAdapter& aDevice, const KySerialBridge& aBridge)
{
    const uint64_t lSent = aBridge.GetBytesSentToDevice();
    std::string lGot;
    const auto lComes = [&]
    {
        SendUpstream(aDevice, "!");
        aLink.Write("!");
        lGot += aLink.Read(1, 100);
        // Not more often: the port waits for a pause.
        constexpr std::chrono::milliseconds cPause(200);
        return WaitFor([&] { return aBridge.GetBytesSentToDevice() > lSent; }, cPause) && lGot.ends_with('!');
    };
    return WaitFor(lComes, std::chrono::seconds(20));
}

} // namespace KyTest
