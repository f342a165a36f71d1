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

TEST(BulkWithI2CTest, StartsWithoutFlags)
{
    EXPECT_EQ(TestBulk().GetFlags(), "0000");
}

TEST(BulkWithI2CTest, StoresEachFlagAndNothingElse)
{
    TestBulk lBulk;
    lBulk.SetI2CFastMode(true);
    EXPECT_EQ(lBulk.GetFlags(), "1000");
    lBulk.SetI2CStop(true);
    EXPECT_EQ(lBulk.GetFlags(), "1100");
    lBulk.SetI2CFlag3(true);
    EXPECT_EQ(lBulk.GetFlags(), "1110");
    lBulk.SetI2CTransfer(true);
    EXPECT_EQ(lBulk.GetFlags(), "1111");
    lBulk.SetI2CFastMode(false);
    EXPECT_EQ(lBulk.GetFlags(), "0111");
    lBulk.SetI2CStop(false);
    EXPECT_EQ(lBulk.GetFlags(), "0011");
    lBulk.SetI2CFlag3(false);
    EXPECT_EQ(lBulk.GetFlags(), "0001");
    lBulk.SetI2CTransfer(false);
    EXPECT_EQ(lBulk.GetFlags(), "0000");
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
