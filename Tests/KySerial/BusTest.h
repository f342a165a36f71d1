#pragma once

#include "KySerial/FeatureEngineTest.h"

#include "PortMap.h"

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

/// A test of a bus: the class behind the public shell and the shell itself pass the same ones.
template<typename Bus>
class BusTest : public EngineTest
{
protected:
    KyResult Open(int aPort) { return mBus->Open(&mDevice, static_cast<KyDeviceSerial>(aPort)); }

    bool IsFree(int aPort)
    {
        const KyDeviceSerial lPort = static_cast<KyDeviceSerial>(aPort);
        const bool lFree = KySerialLib::PortMap::GetInstance().Lock(&mDevice, lPort);
        if (lFree)
        {
            EXPECT_TRUE(KySerialLib::PortMap::GetInstance().Unlock(&mDevice, lPort));
        }
        return lFree;
    }

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

} // namespace KyTest
