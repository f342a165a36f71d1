#include "Simulator/CameraFixture.h"

#include <Simulator/Peers/Eeprom24C02.h>
#include <Simulator/Peers/LensController.h>
#include <Simulator/Peers/LoopbackPeer.h>
#include <Simulator/Peers/SpiFlash.h>
#include <Simulator/Peers/TemperatureSensor.h>

#include <random>

using namespace KyDeviceProtocol;
using namespace KySimulator;
using namespace std::chrono_literals;

/// Whatever is thrown at a camera, it stays whole: the sanitizers watch, and afterwards it still works.
class HostileInputTest : public CameraFixture
{
protected:
    void MakeFull()
    {
        mConfiguration.mUnlimitedLineRate = true;
        Make();
        const auto lBus = std::make_shared<I2CBusPeer>();
        lBus->SetDevice(0x50, std::make_shared<Eeprom24C02>());
        lBus->SetDevice(0x48, std::make_shared<TemperatureSensor>());
        for (size_t lBulk = 0; lBulk < cBulkCount; ++lBulk)
        {
            mCamera->Plug(BulkPortOf(lBulk), std::make_shared<LensController>());
            mCamera->PlugI2C(BulkPortOf(lBulk), lBus);
            mCamera->PlugSpi(BulkPortOf(lBulk), std::make_shared<SpiBusPeer>(std::make_shared<SpiFlash>()));
            Notify(lBulk);
        }
        Write(cInterruptEnable, 0x1F0F);
    }

    uint32_t Random(uint32_t aBelow)
    {
        return std::uniform_int_distribution<uint32_t>(0, aBelow - 1)(mRandom);
    }

    Bytes RandomBytes(size_t aSize)
    {
        Bytes lBytes(aSize);
        for (uint8_t& lByte : lBytes)
        {
            lByte = static_cast<uint8_t>(Random(256));
        }
        return lBytes;
    }

    void ExpectThatItWorks()
    {
        Write(cBulk0Configuration, 1U << cInterfaceShift);
        mCamera->Plug(Port::Bulk0, std::make_shared<LoopbackPeer>());
        Write(cInterruptEnable, cBulkReceive);
        mClock->Advance(1h); // whatever the devices were doing
        mListener.TakeEvents();
        const Bytes lBytes = {1, 2, 3};
        EXPECT_TRUE(mCamera->WriteMemory(cTransmitWindow, lBytes.data(), lBytes.size()).IsOk());
        EXPECT_EQ(TakeData(0x9001, 4), lBytes);
    }

    std::mt19937 mRandom{20240229};
};

TEST_F(HostileInputTest, RandomMessagesInEveryMode)
{
    MakeFull();
    for (int lRound = 0; lRound < 3000; ++lRound)
    {
        const size_t lBulk = Random(cBulkCount);
        Set("BulkSelector", "Bulk" + std::to_string(lBulk));
        Set("BulkMode", std::vector<std::string>{"UART", "USRT", "I2C", "SPI"}[Random(4)]);
        Bytes lMessage = RandomBytes(size_t(4) * Random(131)); // up to the feature's length
        if (lMessage.size() >= 8)
        {
            lMessage[0] &= 0xF0U;
            lMessage[1] = lMessage[2] = lMessage[3] = lMessage[4] = lMessage[5] =
                0; // more of them get through
            lMessage[6] &= 0x03U;
        }
        static_cast<void>(Send(lBulk, lMessage)); // any answer will do
        mClock->Advance(1ms);
        mListener.TakeEvents();
    }
    ExpectThatItWorks();
}

TEST_F(HostileInputTest, MessagesOfPlausibleSpiForm)
{
    MakeFull();
    Set("BulkSelector", "Bulk1");
    Set("BulkMode", "SPI");
    uint64_t lTaken = 0;
    for (int lRound = 0; lRound < 3000; ++lRound)
    {
        const Bytes lMessage = SpiMessage(RandomBytes(Random(256)), static_cast<uint8_t>(Random(256)),
                                          Random(2) == 1, Random(2) == 1);
        lTaken += Send(1, lMessage) == Status::Ok ? 1U : 0U;
        mClock->Advance(1ms);
        mListener.TakeEvents();
    }
    EXPECT_GT(lTaken, 2000U);
    ExpectThatItWorks();
}

TEST_F(HostileInputTest, RandomRegisterTraffic)
{
    MakeFull();
    const std::vector<uint32_t> lAddresses = {
        cInterruptEnable,      cUart0Data, cUart1Data,        cBulk0Configuration,
        cFunctionCapabilities, cBulk0Rate, cBulkCapabilities, 0x80001E00};
    for (int lRound = 0; lRound < 10000; ++lRound)
    {
        const uint32_t lAddress =
            lAddresses[Random(static_cast<uint32_t>(lAddresses.size()))] + Random(2) * Random(4);
        uint32_t lValue = 0;
        static_cast<void>(mCamera->ReadRegister(lAddress, lValue)); // any answer will do
        static_cast<void>(mCamera->WriteRegister(lAddress, static_cast<uint32_t>(mRandom())));
        const Bytes lBytes = RandomBytes(Random(400));
        static_cast<void>(
            mCamera->WriteMemory(cTransmitWindow | Random(32) << 9U, lBytes.data(), lBytes.size()));
        mCamera->InjectBytes(static_cast<Port>(Random(12)), lBytes.data(), lBytes.size());
        mListener.TakeEvents();
    }
    ExpectThatItWorks();
}

TEST_F(HostileInputTest, RandomFeatureAccess)
{
    MakeFull();
    const std::vector<std::string> lNames = {"BulkSelector",
                                             "BulkMode",
                                             "BulkBaudRate",
                                             "EventSelector",
                                             "EventNotification",
                                             "Uart0Parity",
                                             "Bulk0DownstreamData",
                                             "EventBulk7UpstreamDataBuffer",
                                             "EventBulk8UpstreamDataLength",
                                             "",
                                             "Bulk"};
    const std::vector<std::string> lValues = {"Bulk7",
                                              "Bulk8",
                                              "SPI",
                                              "On",
                                              "Baud115200",
                                              "",
                                              "Even",
                                              "Bulk3UpstreamData",
                                              std::string(100000, 'x'),
                                              std::string(1, '\0')};
    uint8_t lBuffer[16] = {};
    for (int lRound = 0; lRound < 3000; ++lRound)
    {
        const std::string& lName = lNames[Random(static_cast<uint32_t>(lNames.size()))];
        static_cast<void>(mCamera->SetText(lName, lValues[Random(static_cast<uint32_t>(lValues.size()))]));
        const auto lLength = static_cast<int64_t>(Random(20)) - 4;
        if (lLength <= static_cast<int64_t>(sizeof(lBuffer)))
        {
            static_cast<void>(mCamera->GetRegisterData(lName, lBuffer, lLength));
            static_cast<void>(mCamera->SetRegisterData(lName, lBuffer, lLength));
        }
        std::string lText;
        static_cast<void>(mCamera->GetText(lName, lText));
    }
    ExpectThatItWorks();
}
