#include <KyGigE/Controller.h>

#include "Adapters/GigE/Client/FindInterface.h"
#include "Adapters/GigE/Client/OpenChannel.h"
#include "Adapters/GigE/TextWithMemory.h"

namespace KyGigE
{

KyResult OpenChannel(const FoundDevice& aDevice, ControlChannel& aChannel)
{
    const uint32_t lAddress = KyGvcp::ParseAddress(aDevice.mAddress).value_or(0);
    OwnSide lOwn;
    if (!aDevice.mInterface.empty() && !FindInterface(aDevice.mInterface, lAddress, lOwn).empty())
    {
        lOwn = {}; // the interface has gone meanwhile; the routes may know another way
    }
    KyResult lResult = aChannel.Open({lAddress, aDevice.mPort}, lOwn.mAddress, lOwn.mInterface);
    // A channel is shut until a connection begins. This one has no connection: it asks single questions.
    aChannel.SetShut(!lResult.IsOK());
    return lResult;
}

std::string FindController(const FoundDevice& aDevice, Controller& aController)
{
    return TextWithMemory(
        cOutOfMemory,
        [&]() -> std::string
        {
            ControlChannel lChannel{ControlTimes()};
            uint32_t lPrivilege = 0;
            KyResult lResult = OpenChannel(aDevice, lChannel);
            lResult = lResult.IsOK() ? lChannel.ReadRegister(KyGvcp::cControlPrivilegeRegister, lPrivilege)
                                     : lResult;
            // Exclusive access lets others read this one register at the most.
            const bool lIsRefused = lResult.GetCode() == KyGvcp::cAccessDenied;
            if (!lResult.IsOK() && !lIsRefused)
            {
                return "the device " + aDevice.mAddress + ": " + lResult.GetDescription().GetAscii();
            }
            Controller lFound;
            lFound.mExclusive = lIsRefused || (lPrivilege & KyGvcp::cExclusiveAccess) != 0;
            lFound.mControlled = lFound.mExclusive || (lPrivilege & KyGvcp::cControlAccess) != 0;
            uint32_t lAddress = 0;
            uint32_t lPort = 0;
            // Devices of older versions have no such registers, and leave both empty.
            if (lFound.mControlled &&
                lChannel.ReadRegister(KyGvcp::cPrimaryAddressRegister, lAddress).IsOK() && lAddress != 0 &&
                lChannel.ReadRegister(KyGvcp::cPrimaryPortRegister, lPort).IsOK())
            {
                lFound.mAddress = KyGvcp::AddressText(lAddress);
                lFound.mPort = static_cast<uint16_t>(lPort);
            }
            aController = lFound;
            return {};
        });
}

} // namespace KyGigE
