#include "KySerial/EngineTest.h"
#include "Support/VirtualSlot.h"

#include "BulkIPEngine.h"
#include "BulkWithI2C.h"
#include "IRegisterSerialPort.h"

#include <type_traits>

using namespace KyTest;
using namespace KySerialLib;

namespace
{

class TestBulk : public BulkWithI2C
{
public:
    bool IsOpened() override { return false; }
    KyResult Write(const uint8_t* /*aBuffer*/, uint32_t /*aSize*/, uint32_t& /*aBytesWritten*/) override
    {
        return KyResult();
    }
    KyResult Open(IKyDeviceAdapter* /*aDevice*/, KyDeviceSerial /*aPort*/) override { return KyResult(); }

    // The four flags, in their order.
    std::string GetFlags() const
    {
        std::string lText;
        for (const bool lFlag : {mI2CFastMode, mI2CStop, mI2CFlag3, mI2CTransfer})
        {
            lText += lFlag ? '1' : '0';
        }
        return lText;
    }
};

TEST(BulkWithI2CTest, StoresEachFlagAndNothingElse)
{
    TestBulk lBulk;
    std::string lFlags = "0000";
    EXPECT_EQ(lBulk.GetFlags(), lFlags);
    for (const bool lValue : {true, false})
    {
        size_t lFlag = 0;
        for (const auto& lSet : {&BulkWithI2C::SetI2CFastMode, &BulkWithI2C::SetI2CStop,
                                 &BulkWithI2C::SetI2CFlag3, &BulkWithI2C::SetI2CTransfer})
        {
            (lBulk.*lSet)(lValue);
            lFlags[lFlag++] = lValue ? '1' : '0';
            EXPECT_EQ(lBulk.GetFlags(), lFlags);
        }
    }
}

TEST(BulkWithI2CTest, IsTheBaseOfBothBulkEngines)
{
    EXPECT_TRUE((std::is_base_of_v<BulkWithI2C, BulkIPEngine>));
    EXPECT_TRUE((std::is_base_of_v<BulkWithI2C, IRegisterSerialPort>));
    EXPECT_TRUE((std::is_base_of_v<DeviceSerialPort, BulkWithI2C>));
    EXPECT_TRUE(std::is_abstract_v<BulkWithI2C>);
    EXPECT_EQ(GetVirtualSlot(&BulkWithI2C::SetI2CFastMode), -1);
    EXPECT_EQ(GetVirtualSlot(&BulkWithI2C::SetI2CTransfer), -1);
}

} // namespace
