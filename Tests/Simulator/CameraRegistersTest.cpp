#include "Simulator/CameraFixture.h"

using namespace KyDeviceProtocol;
using namespace KySimulator;

class CameraRegistersTest : public CameraFixture
{
protected:
    Status ReadStatus(uint32_t aAddress)
    {
        uint32_t lValue = 0xDEADBEEF;
        const Status lStatus = mCamera->ReadRegister(aAddress, lValue).mStatus;
        EXPECT_TRUE(lStatus == Status::Ok || lValue == 0);
        return lStatus;
    }

    Status WriteWindow(uint32_t aAddress)
    {
        const uint8_t lByte = 1;
        return mCamera->WriteMemory(aAddress, &lByte, 1).mStatus;
    }
};

TEST_F(CameraRegistersTest, UnknownAddressesAreRefused)
{
    Make();
    for (const uint32_t lAddress : {0x0U, 0xB830U, 0xB83CU, 0xB854U, 0xFFFFFFFCU, 0x80000000U})
    {
        EXPECT_EQ(ReadStatus(lAddress), Status::InvalidAddress) << lAddress;
        EXPECT_EQ(mCamera->WriteRegister(lAddress, 1).mStatus, Status::InvalidAddress) << lAddress;
    }
}

TEST_F(CameraRegistersTest, UnalignedAddressesAreRefused)
{
    Make();
    for (const uint32_t lOffset : {1U, 2U, 3U})
    {
        EXPECT_EQ(ReadStatus(cInterruptEnable + lOffset), Status::BadAlignment);
        EXPECT_EQ(mCamera->WriteRegister(cUart0Data + lOffset, 1).mStatus, Status::BadAlignment);
    }
    EXPECT_TRUE(mCamera->GetWire(Port::Uart0).empty());
}

TEST_F(CameraRegistersTest, TheInterruptEnableRegisterKeepsEveryBit)
{
    Make();
    Write(cInterruptEnable, 0xA5A5FFFF);
    EXPECT_EQ(Read(cInterruptEnable), 0xA5A5FFFFU);
}

TEST_F(CameraRegistersTest, CapabilitiesSayWhatTheCameraHas)
{
    Make();
    EXPECT_EQ(Read(cFunctionCapabilities), 0x80000002U);
    EXPECT_EQ(Read(cBulkCapabilities), 3U);
    EXPECT_EQ(mCamera->WriteRegister(cFunctionCapabilities, 0).mStatus, Status::WriteProtect);
    EXPECT_EQ(mCamera->WriteRegister(cBulkCapabilities, 0).mStatus, Status::WriteProtect);
}

TEST_F(CameraRegistersTest, ABulkPortWithoutI2CSaysSo)
{
    mConfiguration.mBulk[0].mI2C = false;
    Make();
    EXPECT_EQ(Read(cBulkCapabilities), 0U);
}

TEST_F(CameraRegistersTest, CapabilitiesCanBeForged)
{
    mConfiguration.mFunctionCapabilities = 7;
    mConfiguration.mBulkCapabilities = 1;
    Make();
    EXPECT_EQ(Read(cFunctionCapabilities), 7U);
    EXPECT_EQ(Read(cBulkCapabilities), 1U);
}

TEST_F(CameraRegistersTest, CapabilityRegistersCanBeAbsent)
{
    mConfiguration.mCapabilityRegisters = false;
    Make();
    EXPECT_EQ(ReadStatus(cFunctionCapabilities), Status::InvalidAddress);
    EXPECT_EQ(ReadStatus(cBulkCapabilities), Status::InvalidAddress);
    EXPECT_EQ(ReadStatus(cInterruptEnable), Status::Ok);
}

TEST_F(CameraRegistersTest, WithoutBulkRegistersOnlyTheUartsAnswer)
{
    mConfiguration.mBulk0Registers = false;
    Make();
    EXPECT_EQ(ReadStatus(cBulk0Configuration), Status::InvalidAddress);
    EXPECT_EQ(ReadStatus(cBulk0Rate), Status::InvalidAddress);
    EXPECT_EQ(WriteWindow(cTransmitWindow), Status::InvalidAddress);
    EXPECT_EQ(ReadStatus(cUart0Data), Status::Ok);
}

TEST_F(CameraRegistersTest, OtherTransportsAndOtherDevicesHaveNoSerialRegisters)
{
    mConfiguration.mTransport = Transport::Alternate;
    Make();
    EXPECT_EQ(ReadStatus(cInterruptEnable), Status::InvalidAddress);
    EXPECT_EQ(WriteWindow(cTransmitWindow), Status::InvalidAddress);
    mCamera->RemoveListener(&mListener);
    mConfiguration.mTransport = Transport::GigEVision;
    mConfiguration.mVideoInterface = false;
    Make();
    EXPECT_EQ(ReadStatus(cInterruptEnable), Status::InvalidAddress);
    EXPECT_EQ(mCamera->WriteRegister(cUart0Data, 1).mStatus, Status::InvalidAddress);
    EXPECT_EQ(WriteWindow(cTransmitWindow), Status::InvalidAddress);
}

TEST_F(CameraRegistersTest, OnlyTheWindowTakesMemoryWrites)
{
    Make();
    for (const uint32_t lAddress :
         {0x0U, 0x1E00U, cBulk0Configuration, 0x80000001U, 0x80002000U, 0xC0000000U})
    {
        EXPECT_EQ(WriteWindow(lAddress), Status::InvalidAddress) << lAddress;
    }
    EXPECT_EQ(mCamera->WriteMemory(cTransmitWindow, nullptr, 5).mStatus, Status::InvalidParameter);
    const uint8_t lByte = 0;
    EXPECT_EQ(mCamera->WriteMemory(cTransmitWindow, &lByte, 0).mStatus, Status::InvalidParameter);
}

TEST_F(CameraRegistersTest, PortsThatAreNotThereDoNothing)
{
    mConfiguration.mUartCount = 0;
    Make();
    const uint8_t lByte = 1;
    for (const Port lPort :
         {Port::Uart0, static_cast<Port>(-1), static_cast<Port>(10), static_cast<Port>(99)})
    {
        mCamera->InjectBytes(lPort, &lByte, 1);
        mCamera->Plug(lPort, nullptr);
        mCamera->PlugI2C(lPort, nullptr);
        mCamera->PlugSpi(lPort, nullptr);
        mCamera->ClearWire(lPort);
        EXPECT_TRUE(mCamera->GetWire(lPort).empty());
        EXPECT_EQ(mCamera->GetCounters(lPort).mReceived, 0U);
        EXPECT_EQ(mCamera->GetByteTime(lPort), Time(0));
    }
    mCamera->InjectBytes(Port::Bulk0, nullptr, 5);
    EXPECT_EQ(mCamera->GetCounters(Port::Bulk0).mReceived, 0U);
}
