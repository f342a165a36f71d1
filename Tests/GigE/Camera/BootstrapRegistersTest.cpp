#include <Simulator/Network/BootstrapRegisters.h>
#include <Simulator/Time/ManualScheduler.h>

#include <gtest/gtest.h>

namespace
{

using namespace KyGvcp;
using namespace KySimulator;

class BootstrapRegistersTest : public testing::Test
{
protected:
    uint32_t Read(uint32_t aAddress)
    {
        uint32_t lValue = 0;
        EXPECT_TRUE(mRegisters.Read(aAddress, lValue).IsOk()) << std::hex << aAddress;
        return lValue;
    }
    KySimulator::Status Write(uint32_t aAddress, uint32_t aValue)
    {
        return mRegisters.Write(aAddress, aValue).mStatus;
    }

    const std::shared_ptr<ManualScheduler> mClock = std::make_shared<ManualScheduler>();
    CameraModel mCamera{CameraConfiguration(), mClock};
    BootstrapRegisters mRegisters{mCamera};
};

TEST_F(BootstrapRegistersTest, AHeartbeatIsNeverShorterThanTheShortest)
{
    EXPECT_EQ(BootstrapRegisters::cHeartbeat, Read(cHeartbeatRegister));
    EXPECT_EQ(KySimulator::Status::Ok, Write(cHeartbeatRegister, 1));
    EXPECT_EQ(BootstrapRegisters::cShortestHeartbeat, Read(cHeartbeatRegister));
    EXPECT_EQ(KySimulator::Status::Ok, Write(cHeartbeatRegister, 10000));
    EXPECT_EQ(10000U, Read(cHeartbeatRegister));
}

TEST_F(BootstrapRegistersTest, OfAConfigurationOnlyWhatTheDeviceHasIsKept)
{
    EXPECT_EQ(KySimulator::Status::Ok, Write(cInterfaceConfigurationRegister, 0xFFFFFFFF));
    EXPECT_EQ(cLinkLocal | cPersistentIp, Read(cInterfaceConfigurationRegister));
    EXPECT_EQ(KySimulator::Status::Ok, Write(cInterfaceConfigurationRegister, 0));
    EXPECT_EQ(cLinkLocal, Read(cInterfaceConfigurationRegister)); // every device has it
    EXPECT_EQ(KySimulator::Status::Ok, Write(cConfigurationRegister, 0xFFFFFFFF));
    EXPECT_EQ(cPendingAckEnabled, Read(cConfigurationRegister));
}

TEST_F(BootstrapRegistersTest, RefusalsSayWhetherThereIsSuchARegister)
{
    uint32_t lValue = 1;
    EXPECT_EQ(KySimulator::Status::WriteProtect, Write(cVersionRegister, 0));
    EXPECT_EQ(KySimulator::Status::WriteProtect, Write(cVendorRegister, 0));
    EXPECT_EQ(KySimulator::Status::InvalidAddress, Write(0x0AFC, 0));
    EXPECT_EQ(KySimulator::Status::InvalidAddress, mRegisters.Read(0x0AFC, lValue).mStatus);
    EXPECT_EQ(0U, lValue);
}

TEST_F(BootstrapRegistersTest, ATimestampIsLatchedBeforeItBeginsAnew)
{
    constexpr uint32_t cResetAndLatch = 3;
    mClock->Advance(std::chrono::nanoseconds(5000000001)); // more than 32 bits of nanoseconds
    EXPECT_EQ(KySimulator::Status::Ok, Write(cTimestampControlRegister, cResetAndLatch));
    EXPECT_EQ(1U, Read(cTimestampHighRegister));
    EXPECT_EQ(5000000001U - 0x100000000U, Read(cTimestampLowRegister));
    mClock->Advance(std::chrono::nanoseconds(7));
    EXPECT_EQ(5000000001U - 0x100000000U, Read(cTimestampLowRegister)) << "only a latch moves it";
    EXPECT_EQ(KySimulator::Status::Ok, Write(cTimestampControlRegister, 2));
    EXPECT_EQ(0U, Read(cTimestampHighRegister));
    EXPECT_EQ(7U, Read(cTimestampLowRegister));
}

TEST_F(BootstrapRegistersTest, TheUsersNameIsOfTheCameraAndNoLongerThanItsPlace)
{
    const std::string lName = "Left eye";
    const std::vector<uint8_t> lBytes(lName.begin(), lName.end());
    EXPECT_TRUE(mRegisters.WriteText(cUserNameRegister, lBytes).IsOk());
    std::string lText;
    EXPECT_TRUE(mCamera.GetText("DeviceUserID", lText).IsOk());
    EXPECT_EQ(lName, lText);
    EXPECT_EQ(0x4C656674U, Read(cUserNameRegister)); // "Left"
    EXPECT_EQ(KySimulator::Status::InvalidAddress,
              mRegisters.WriteText(cUserNameRegister, std::vector<uint8_t>(cShortTextSize + 1, 'x')).mStatus);
    EXPECT_EQ(KySimulator::Status::InvalidAddress, mRegisters.WriteText(cVendorRegister, lBytes).mStatus);
}

TEST_F(BootstrapRegistersTest, MemoryIsReadToItsEndAndNoFurther)
{
    constexpr uint32_t cSize = 0x0B20;
    std::vector<uint8_t> lData;
    EXPECT_TRUE(mRegisters.ReadMemory(cSize - 4, 4, lData).IsOk());
    EXPECT_EQ(4U, lData.size());
    EXPECT_EQ(KySimulator::Status::InvalidAddress, mRegisters.ReadMemory(cSize - 4, 5, lData).mStatus);
    EXPECT_TRUE(lData.empty());
    EXPECT_EQ(KySimulator::Status::InvalidAddress, mRegisters.ReadMemory(0xFFFFFFFC, 8, lData).mStatus);
}

} // namespace
