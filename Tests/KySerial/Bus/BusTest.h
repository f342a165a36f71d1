#pragma once

#include "KySerial/FeatureEngineTest.h"

#include "DeviceI2CBus.h"
#include "DeviceSPIBus.h"
#include "KySerial/KyDeviceI2CBus.h"
#include "KySerial/KyDeviceSPIBus.h"

#include <type_traits>

namespace KyTest
{

/// What BulkIPEngine::IsI2CSupported() asks the adapter about bulk port 0.
inline const Calls cAskI2CRegisters = {"IsConnected", "IsKorvoVideoInterface", "IsGigEVision",
                                       "ReadRegister(0xb8fc)", "ReadRegister(0xb95c)"};

/// What IRegisterSerialPort::IsProtocolSupported() asks the adapter.
inline Calls AskProtocol(int aIndex, const std::string& aProtocol)
{
    return Join({{"IsConnected"}, AskSupport(aIndex), {"IsEnumEntryAvailable(BulkMode, " + aProtocol + ")"}});
}

/// A test of a bus: the internal class and the public one that forwards to it pass the same ones.
template<typename Bus>
class BusTest : public EngineTest
{
protected:
    static constexpr bool cIsI2C =
        std::is_same_v<Bus, KySerialLib::DeviceI2CBus> || std::is_same_v<Bus, KyDeviceI2CBus>;
    static constexpr const char* cFile = cIsI2C ? "DeviceI2CBus" : "DeviceSPIBus";
    static constexpr const char* cUnsupported =
        cIsI2C ? "I2C Bus is not supported with this device" : "SPI Bus is not supported with this device";

    // A line of the bus itself.
    static LogLine Failure(const std::string& aFunction, const std::string& aText)
    {
        return {PriorityError, std::string("KySerialLib::") + cFile + "::" + aFunction, aText};
    }

    static std::string NotOpenText(const std::string& aFunction)
    {
        return std::string("KySerialLib::") + cFile + "::" + aFunction +
               (cIsI2C ? " failed. You must first call Open before using this function"
                       : " failed SPI. You must first call Open before using this function");
    }

    // The operation was called without an engine.
    void ExpectNotOpen(const KyResult& aResult, const std::string& aFunction)
    {
        EXPECT_THAT(aResult, IsResult(KyResult::NOT_OPEN, NotOpenText(aFunction).c_str()));
        EXPECT_EQ(TakeLogOf(cFile), (Lines{Failure(aFunction, NotOpenText(aFunction))}));
    }

    KyResult Open(int aPort) { return mBus->Open(&mDevice, static_cast<KyDeviceSerial>(aPort)); }

    // A device whose features without a name are there: the only one that seems to have a bus elsewhere.
    void OfferNamelessFeatures()
    {
        mDevice.SetAvailable(Slot::IsRegisterFeatureAvailable, "", true);
        mDevice.SetAvailable(Slot::IsIntegerFeatureAvailable, "", true);
    }

    uint32_t mGot = 0xDEAD;
    uint8_t mBytes[300] = {};
    std::unique_ptr<Bus> mBus = std::make_unique<Bus>();
};

/// Names the types of a typed suite.
class BusNames
{
public:
    template<typename Bus>
    static std::string GetName(int /*aIndex*/)
    {
        return std::is_base_of_v<KySerialLib::RefCounted, Bus> ? "Internal" : "Public";
    }
};

} // namespace KyTest
