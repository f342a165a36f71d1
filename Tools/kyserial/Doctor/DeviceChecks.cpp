#include "kyserial/Doctor/DeviceChecks.h"

#include "kyserial/Device/PortName.h"
#include "kyserial/Device/PortSurvey.h"

#include <KyGigE/Controller.h>
#include <KyGvcp/Protocol.h>

#include <algorithm>
#include <chrono>

namespace KySerialTool
{

namespace
{

class QuietSink : public IKyDeviceEventSink
{
public:
    void NotifyEvent(uint16_t, uint16_t, uint64_t, uint64_t, const void*, uint32_t) override {}
    void NotifyFeatureInvalidated(const KyString*) override {}
};

constexpr uint32_t cEventSourceKnown = 0x80000000U; // of KyGvcp::cMessageCapabilityRegister

std::string MillisecondsText(std::chrono::microseconds aTime)
{
    const auto lTenths = (aTime.count() + 50) / 100;
    return std::to_string(lTenths / 10) + '.' + std::to_string(lTenths % 10) + " ms";
}

/// Where the application in control is, as the device sees it; 0: it does not say so.
uint32_t ApplicationOf(IKyDeviceAdapter& aAdapter)
{
    uint32_t lAddress = 0;
    return aAdapter.ReadRegister(KyGvcp::cPrimaryAddressRegister, lAddress).IsOK() ? lAddress : 0;
}

} // namespace

CheckFinding CheckControl(const DeviceWay& aWay, bool& aBusy, bool& aClosed)
{
    const std::string lName = "control";
    KyGigE::Controller lController;
    aBusy = false;
    aClosed = false;
    // Reading needs no control, so the check disturbs nobody.
    const std::string lError = KyGigE::FindController(*aWay.mFound, lController);
    if (!lError.empty())
    {
        return {lName, Verdict::Failed, lError, "switch the device off and on"};
    }
    if (!lController.mControlled)
    {
        return {lName, Verdict::Ok, "no other application controls the device"};
    }
    aBusy = true;
    // Exclusive access closes the device to readers too, so the checks after this one cannot run.
    aClosed = lController.mExclusive;
    const std::string lWhere = lController.mAddress.empty() ? std::string()
                                                            : " (" + lController.mAddress + ':' +
                                                                  std::to_string(lController.mPort) + ')';
    return {lName, Verdict::Warning,
            "another application" + lWhere + (aClosed ? " has exclusive access" : " controls the device"),
            "its ports can be opened when that one has ended, or by way of it: one 'kyserial serve' shares "
            "all ports"};
}

CheckFinding CheckHeartbeat(Device& aDevice)
{
    constexpr int cCommands = 20;
    const std::string lName = "heartbeat";
    IKyDeviceAdapter& lAdapter = aDevice.GetAdapter();
    uint32_t lTimeout = 0;
    uint32_t lConfiguration = 0;
    // Commands that were repeated before this check are not counted.
    const uint64_t lRepeatsBefore = aDevice.GetRepeatedCommands();
    std::chrono::microseconds lSlowest{0};
    for (int lCommand = 0; lCommand < cCommands; ++lCommand)
    {
        const auto lBegin = std::chrono::steady_clock::now();
        // Twenty reads of one register: a way that loses packets now and then shows itself by a repeat.
        const KyResult lResult = lAdapter.ReadRegister(KyGvcp::cHeartbeatRegister, lTimeout);
        // A command without an answer ends the connection, so this comes before the result.
        if (!lAdapter.IsConnected())
        {
            return {lName, Verdict::Failed, ResultText(lResult),
                    "look at the cable and at switches on the way"};
        }
        if (!lResult.IsOK())
        {
            return {lName, Verdict::Warning, "the device does not say its time-out: " + ResultText(lResult)};
        }
        lSlowest = std::max(lSlowest, std::chrono::duration_cast<std::chrono::microseconds>(
                                          std::chrono::steady_clock::now() - lBegin));
    }
    const uint64_t lRepeats = aDevice.GetRepeatedCommands() - lRepeatsBefore;
    if (lRepeats != 0)
    {
        return {lName, Verdict::Warning,
                std::to_string(lRepeats) + " of " + std::to_string(cCommands) +
                    " commands had to be sent again",
                "look at the cable, at switches, and at what else uses this network"};
    }
    if (lAdapter.ReadRegister(KyGvcp::cConfigurationRegister, lConfiguration).IsOK() &&
        (lConfiguration & KyGvcp::cHeartbeatDisabled) != 0)
    {
        return {lName, Verdict::Warning,
                "switched off in the device: it stays with an application that crashes",
                "switch it on (GevGVCPHeartbeatDisable), or switch the device off and on"};
    }
    return {lName, Verdict::Ok,
            std::to_string(lTimeout) + " ms; the slowest of " + std::to_string(cCommands) +
                " commands took " + MillisecondsText(lSlowest)};
}

CheckFinding CheckDescription(Device& aDevice)
{
    const std::string lName = "description";
    const std::string lProblem = aDevice.GetDescriptionProblem();
    if (!lProblem.empty())
    {
        return {lName, Verdict::Failed, lProblem,
                "ports that need features are missing; ask the device's maker for newer firmware"};
    }
    return {lName, Verdict::Ok, std::to_string(aDevice.ReadFeatures().size()) + " features"};
}

CheckFinding CheckPorts(Device& aDevice)
{
    const std::string lName = "ports";
    const uint64_t lGeneration = aDevice.GetGeneration();
    std::string lPorts;
    for (const PortFinding& lFinding : SurveyPorts(aDevice.GetAdapter()))
    {
        lPorts += lFinding.mSupported ? (lPorts.empty() ? "" : " ") + PortName(lFinding.mPort) : "";
    }
    // A loss that is over again shows in the generation alone. Ports that were asked for meanwhile look as if
    // they were missing.
    if (!aDevice.GetAdapter().IsConnected() || aDevice.GetGeneration() != lGeneration)
    {
        return {lName, Verdict::Failed, "the connection to the device was lost",
                "look at the cable and at switches on the way"};
    }
    return lPorts.empty() ? CheckFinding{lName, Verdict::Failed, "the device offers no serial port",
                                         "look whether it is a model with serial ports"}
                          : CheckFinding{lName, Verdict::Ok, lPorts};
}

CheckFinding CheckEvents(Device& aDevice, uint32_t aOwn, bool aBusy)
{
    const std::string lName = "events";
    IKyDeviceAdapter& lAdapter = aDevice.GetAdapter();
    uint32_t lChannels = 0;
    if (!lAdapter.ReadRegister(KyGvcp::cMessageChannelCountRegister, lChannels).IsOK() || lChannels == 0)
    {
        return {lName, Verdict::Failed, "the device has no message channel, so no port can receive",
                "look whether the device's firmware is the newest"};
    }
    if (aBusy)
    {
        return {lName, Verdict::Warning, "not checked: they go to the application that controls the device"};
    }
    uint32_t lAddress = 0;
    uint32_t lPort = 0;
    if (!lAdapter.ReadRegister(KyGvcp::cMessagePortRegister, lPort).IsOK() || lPort == 0 ||
        !lAdapter.ReadRegister(KyGvcp::cMessageAddressRegister, lAddress).IsOK() || lAddress != aOwn)
    {
        return {lName, Verdict::Failed, "the device does not keep the address that events are to go to",
                "switch the device off and on"};
    }
    // The device keeps the sender's address of the command that took control. Behind a router that translates, it is
    // the router's.
    const uint32_t lSeen = ApplicationOf(lAdapter);
    if (lSeen != 0 && lSeen != aOwn)
    {
        return {lName, Verdict::Failed,
                "the device sees this computer as " + KyGvcp::AddressText(lSeen) + ", and sends events to " +
                    KyGvcp::AddressText(aOwn),
                "a router on the way translates addresses: events do not come back through it"};
    }
    uint32_t lCapability = 0;
    uint32_t lSource = 0;
    // The source port is optional in GigE Vision, so the register is asked for only where the capability says that it
    // is there.
    const bool lSaysSource = lAdapter.ReadRegister(KyGvcp::cMessageCapabilityRegister, lCapability).IsOK() &&
                             (lCapability & cEventSourceKnown) != 0 &&
                             lAdapter.ReadRegister(KyGvcp::cMessageSourcePortRegister, lSource).IsOK() &&
                             lSource != 0;
    const std::string lTarget =
        "they go to UDP port " + std::to_string(lPort) + " of " + KyGvcp::AddressText(aOwn);
    return lSaysSource
               ? CheckFinding{lName, Verdict::Ok, lTarget + ", from port " + std::to_string(lSource)}
               : CheckFinding{lName, Verdict::Warning, lTarget + "; the device does not say from which port",
                              "a firewall has to let in UDP from the device's address"};
}

CheckFinding CheckEventSink(Device& aDevice)
{
    QuietSink lSink;
    const KyResult lResult = aDevice.GetAdapter().RegisterEventSink(&lSink);
    if (!lResult.IsOK())
    {
        return {"events", Verdict::Failed, ResultText(lResult)};
    }
    static_cast<void>(aDevice.GetAdapter().UnregisterEventSink(&lSink)); // it was registered
    return {"events", Verdict::Ok, "the device delivers them inside this program"};
}

} // namespace KySerialTool
