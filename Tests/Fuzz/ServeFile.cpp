// Whatever stands in a configuration of the service: it is read or its faults are named, and nothing is thrown.

#include "Fuzz/FuzzInput.h"
#include "kyserial/Serve/ServeConfiguration.h"

using namespace KyTest;
using namespace KySerialTool;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* aData, size_t aSize)
{
    const std::string lText(reinterpret_cast<const char*>(aData), aSize);
    std::vector<ConfigurationFault> lFaults;
    const ServeConfiguration lRead = ParseServeConfiguration(lText, lFaults);
    uint32_t lLine = 0;
    for (const ConfigurationFault& lFault : lFaults)
    {
        KY_REQUIRE(!lFault.mText.empty());
        KY_REQUIRE(lFault.mLine >= lLine); // in order
        lLine = lFault.mLine;
    }
    for (const ServedDeviceEntry& lDevice : lRead.mDevices)
    {
        KY_REQUIRE(!lFaults.empty() || (!lDevice.mPorts.empty() && !lDevice.mDevice.empty()));
        for (const ServedPortEntry& lPort : lDevice.mPorts)
        {
            KY_REQUIRE(!lFaults.empty() || (lPort.mBridge.mPort != KyDeviceSerialInvalid &&
                                            lPort.mBridge.mHost.mKind != HostKind::None));
        }
    }
    StepCounter::Count();
    return 0;
}
