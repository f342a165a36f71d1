#include "KySerial/FeatureEngineTest.h"

#include <algorithm>
#include <cstring>
#include <limits>

using namespace KyTest;
using namespace KySerialLib;

namespace
{

constexpr char cWriteAndRead[] = "KySerialLib::IRegisterSerialPort::WriteAndRead";
constexpr char cTransmitSPI[] = "KySerialLib::IRegisterSerialPort::TransmitSPI";
constexpr char cSPIAssert[] = "aSize + (aSize%4) + 12 <= mDownstreamBufferLength";

LogLine Sending(size_t aSize)
{
    return {PriorityInfo, cWriteAndRead,
            "IRegisterSerialPort::Write sending " + std::to_string(aSize) + " bytes of data"};
}

// A word in network byte order, or as it stands in this machine's memory.
Bytes Word(uint32_t aValue, bool aHostOrder)
{
    Bytes lBytes = Words({aValue});
    std::reverse(lBytes.begin(), lBytes.end());
    if (aHostOrder)
    {
        std::memcpy(lBytes.data(), &aValue, 4);
    }
    return lBytes;
}

// A message to the device without what fills its last word: flags, the number of bytes, and these.
Bytes Message(const Bytes& aBytes, uint32_t aFlags = 0, bool aHostOrder = false)
{
    const auto lSize = static_cast<uint32_t>(aBytes.size());
    return Together({Word(aFlags, aHostOrder), Word(lSize, aHostOrder), aBytes});
}

// A message of an SPI transfer: its options come before the data, and zeros fill the last word.
Bytes SPIMessage(const Bytes& aOptions, const Bytes& aData, bool aHostOrder = false)
{
    return Together({Message(Together({aOptions, aData}), 0, aHostOrder), Bytes((4 - aData.size() % 4) % 4)});
}

class FeatureWriteTest : public EngineTest
{
protected:
    explicit FeatureWriteTest(bool aSPI) : mEngine(aSPI) {}

    void SetUp() override
    {
        ASSERT_THAT(mEngine.Open(&mDevice, KyDeviceSerialBulk0), IsOK());
        mDevice.OnCall(Slot::PostWrite, [this] { mMessages.push_back(mDevice.GetContent(cDownstream)); });
        Forget();
    }

    // Closes and opens with another byte order.
    void UseHostByteOrder()
    {
        EXPECT_THAT(mEngine.Close(), IsOK());
        mDevice.SetAnswer(Slot::IsGigEVision, false);
        mDevice.SetAnswer(Slot::IsAlternateTransport, true);
        ASSERT_THAT(mEngine.Open(&mDevice, KyDeviceSerialBulk0), IsOK());
        Forget();
    }

    KyResult Write(const Bytes& aBytes) { return WriteTo(mEngine, aBytes, mWritten); }

    // The messages that the device has got since the last call.
    std::vector<Bytes> TakeMessages() { return std::exchange(mMessages, {}); }

    // Writes to features with room for 1 to 32 bytes after the header, and expects a message like this of each part.
    // Each engine has no buffer from before: the sanitizer sees any byte beyond.
    void FillEveryLength(size_t aHeader, bool aSPI, Bytes (*aMessage)(const Bytes& aBytes))
    {
        const Bytes lAll = Count(40);
        EXPECT_THAT(mEngine.Close(), IsOK());
        for (size_t lPayload = 1; lPayload <= 32; ++lPayload)
        {
            SCOPED_TRACE(lPayload);
            IRegisterSerialPort lEngine(aSPI);
            ASSERT_THAT(lEngine.Open(&mDevice, KyDeviceSerialBulk0), IsOK());
            mDevice.SetLength(cDownstream, static_cast<int64_t>(lPayload + aHeader));
            EXPECT_THAT(WriteTo(lEngine, lAll, mWritten), IsOK());
            EXPECT_THAT(lEngine.Close(), IsOK());
            EXPECT_EQ(mWritten, 40U);
            size_t lSent = 0;
            for (Bytes lMessage : TakeMessages())
            {
                const size_t lSize = std::min(lPayload, 40 - lSent);
                const Bytes lExpected = aMessage(Part(lAll, lSent, lSize));
                ASSERT_EQ(lMessage.size(), (lExpected.size() + 3) / 4 * 4);
                lMessage.resize(lExpected.size());
                EXPECT_EQ(lMessage, lExpected);
                lSent += lSize;
            }
            EXPECT_EQ(lSent, 40U);
        }
    }

    std::vector<Bytes> mMessages;
    uint32_t mWritten = 0xDEAD;
    IRegisterSerialPort mEngine;
};

class IRegisterSerialPortWriteTest : public FeatureWriteTest
{
protected:
    IRegisterSerialPortWriteTest() : FeatureWriteTest(false) {}
};

class IRegisterSerialPortSPITest : public FeatureWriteTest
{
protected:
    IRegisterSerialPortSPITest() : FeatureWriteTest(true) {}

    KyResult Transfer(const Bytes& aBytes, uint32_t aReadSize, bool aSimultaneous, bool aFinal)
    {
        return mEngine.WriteAndRead(aBytes.data(), static_cast<uint32_t>(aBytes.size()), mWritten, aReadSize,
                                    aSimultaneous, aFinal);
    }
};

TEST_F(IRegisterSerialPortWriteTest, WritesAMessageIntoTheDownstreamFeature)
{
    EXPECT_THAT(Write({1, 2, 3, 4}), IsOK());
    EXPECT_EQ(mWritten, 4U);
    EXPECT_EQ(WithoutByteOrder(mDevice.TakeCalls()),
              (Calls{"IsConnected", "GetRegisterLength(Bulk0DownstreamData)",
                     "SetRegisterData(Bulk0DownstreamData, [00 00 00 00 00 00 00 04 01 02 03 04])",
                     "PostWrite(1000)"}));
    EXPECT_EQ(TakeLogOf("IRegisterSerialPort"), (Lines{Sending(4)}));
}

TEST_F(IRegisterSerialPortWriteTest, WritesToTheFeatureOfItsPort)
{
    EXPECT_THAT(mEngine.Close(), IsOK());
    ASSERT_THAT(mEngine.Open(&mDevice, KyDeviceSerialBulk7), IsOK());
    Forget();
    EXPECT_THAT(Write(Count(4)), IsOK());
    EXPECT_EQ(WithoutByteOrder(mDevice.TakeCalls())[2],
              "SetRegisterData(Bulk7DownstreamData, [00 00 00 00 00 00 00 04 00 01 02 03])");
}

TEST_F(IRegisterSerialPortWriteTest, CarriesTheControlFlagsInTheHeader)
{
    for (uint32_t lFlags = 0; lFlags < 16; ++lFlags)
    {
        mEngine.SetI2CFastMode((lFlags & 8) != 0);
        mEngine.SetI2CStop((lFlags & 4) != 0);
        mEngine.SetI2CFlag3((lFlags & 2) != 0);
        mEngine.SetI2CTransfer((lFlags & 1) != 0);
        EXPECT_THAT(Write(Count(4)), IsOK());
        EXPECT_EQ(TakeMessages(), std::vector<Bytes>{Message(Count(4), lFlags << 28)});
    }
}

TEST_F(IRegisterSerialPortWriteTest, UsesHostByteOrderOverTheOtherTransport)
{
    UseHostByteOrder();
    mEngine.SetI2CStop(true);
    EXPECT_THAT(Write(Count(260)), IsOK());
    EXPECT_EQ(TakeMessages(), std::vector<Bytes>{Message(Count(260), 0x40000000, true)});
}

TEST_F(IRegisterSerialPortWriteTest, PadsToWordsWithWhatTheBufferHeld)
{
    EXPECT_THAT(Write({0xA1, 0xA2, 0xA3, 0xA4, 0xA5, 0xA6, 0xA7, 0xA8}), IsOK());
    EXPECT_THAT(Write({0xB1, 0xB2, 0xB3}), IsOK());
    EXPECT_THAT(Write({0xC1}), IsOK());
    const std::vector<Bytes> lMessages = TakeMessages();
    ASSERT_EQ(lMessages.size(), 3U);
    EXPECT_EQ(lMessages[1], (Bytes{0, 0, 0, 0, 0, 0, 0, 3, 0xB1, 0xB2, 0xB3, 0xA4}));
    EXPECT_EQ(lMessages[2], (Bytes{0, 0, 0, 0, 0, 0, 0, 1, 0xC1, 0xB2, 0xB3, 0xA4}));
}

TEST_F(IRegisterSerialPortWriteTest, SplitsLongWrites)
{
    for (const int64_t lLength : {int64_t{520}, int64_t{521}, int64_t{1024}, int64_t{1} << 31,
                                  int64_t{1} << 40, std::numeric_limits<int64_t>::max()})
    {
        SCOPED_TRACE(lLength);
        mDevice.SetLength(cDownstream, lLength);
        const Bytes lAll = Count(1000);
        EXPECT_THAT(Write(lAll), IsOK());
        EXPECT_EQ(mWritten, 1000U);
        EXPECT_EQ(TakeMessages(),
                  (std::vector<Bytes>{Message(Part(lAll, 0, 512)), Message(Part(lAll, 512, 488))}));
        EXPECT_EQ(TakeLog(), (Lines{Sending(1000)}));
    }
}

TEST_F(IRegisterSerialPortWriteTest, FillsFeaturesOfEveryLength)
{
    FillEveryLength(8, false, [](const Bytes& aBytes) { return Message(aBytes); });
}

TEST_F(IRegisterSerialPortWriteTest, RefusesAFeatureWithoutRoomAfterTheHeader)
{
    for (const int64_t lLength : {8, 7, 4, 1, 0, -1, -1000})
    {
        SCOPED_TRACE(lLength);
        mDevice.SetLength(cDownstream, lLength);
        const std::string lText = "IRegisterSerialPort::Write length allowed " + std::to_string(lLength) +
                                  " is less than or equal to 8 header bytes!";
        EXPECT_THAT(Write({1}), IsResult(KyResult::BUFFER_TOO_SMALL, lText.c_str()));
        EXPECT_EQ(mWritten, 0U);
        EXPECT_EQ(TakeLog(), (Lines{Sending(1), {PriorityError, cWriteAndRead, lText}}));
        EXPECT_EQ(mDevice.TakeCalls(), (Calls{"IsConnected", "GetRegisterLength(Bulk0DownstreamData)"}));
        EXPECT_THAT(Write({}), IsResult(KyResult::BUFFER_TOO_SMALL, lText.c_str())); // of nothing, too
        Forget();
    }
    DisableEveryPriority();
    for (const int64_t lLength : {std::numeric_limits<int64_t>::min(), -(int64_t{1} << 32) + 100})
    {
        mDevice.SetLength(cDownstream, lLength);
        EXPECT_EQ(Write({1}).GetCode(), KyResult::BUFFER_TOO_SMALL);
    }
    EXPECT_EQ(mDevice.GetCallCount(Slot::SetRegisterData), 0);
    EXPECT_EQ(TakeLog(), Lines());
}

TEST_F(IRegisterSerialPortWriteTest, PassesOnALengthThatCannotBeRead)
{
    mDevice.Fail(Slot::GetRegisterLength, KyResult(0x2222, "no length"));
    EXPECT_THAT(Write({1}), IsResult(0x2222, "no length"));
    EXPECT_EQ(mWritten, 0U);
    EXPECT_EQ(TakeLog(), (Lines{Sending(1),
                                {PriorityError, cWriteAndRead,
                                 "IRegisterSerialPort::Write Downstream get register failed"}}));
    EXPECT_EQ(mDevice.TakeCalls(), (Calls{"IsConnected", "GetRegisterLength(Bulk0DownstreamData)"}));
    DisableEveryPriority();
    EXPECT_THAT(Write({1}), IsResult(0x2222, "no length"));
    EXPECT_EQ(TakeLog(), Lines());
}

TEST_F(IRegisterSerialPortWriteTest, PassesOnARefusedMessage)
{
    mDevice.FailCall(Slot::SetRegisterData, 2, KyResult(0x2223, "busy"));
    EXPECT_THAT(Write(Count(1500)), IsResult(0x2223, "busy"));
    EXPECT_EQ(mWritten, 512U);
    EXPECT_EQ(mDevice.GetCallCount(Slot::SetRegisterData), 2);
    EXPECT_EQ(mDevice.GetCallCount(Slot::PostWrite), 1);
    EXPECT_EQ(TakeLog(), (Lines{Sending(1500)}));
}

TEST_F(IRegisterSerialPortWriteTest, IgnoresWhatPostWriteSays)
{
    mDevice.Fail(Slot::PostWrite);
    EXPECT_THAT(Write(Count(600)), IsOK());
    EXPECT_EQ(mDevice.GetCallCount(Slot::PostWrite), 2);
}

TEST_F(IRegisterSerialPortWriteTest, LooksAtTransferOptionsForSPIOnly)
{
    EXPECT_THAT(mEngine.WriteAndRead(Count(4).data(), 4, mWritten, 9, true, true), IsOK());
    EXPECT_THAT(mEngine.WriteAndRead(nullptr, 0, mWritten, 9, true, true), IsOK());
    EXPECT_EQ(mWritten, 0U);
    EXPECT_EQ(TakeMessages(), std::vector<Bytes>{Message(Count(4))});
    EXPECT_EQ(TakeLog(), (Lines{Sending(4), Sending(0)}));
}

TEST_F(IRegisterSerialPortSPITest, WritesThenReads)
{
    const Bytes lBytes{0xA0, 0xA1, 0xA2, 0xA3, 0xA4};
    EXPECT_THAT(Transfer(lBytes, 7, false, true), IsOK());
    EXPECT_EQ(mWritten, 5U);
    EXPECT_EQ(TakeMessages(), std::vector<Bytes>{SPIMessage({5, 7, 0, 1}, lBytes)});
    EXPECT_EQ(
        WithoutByteOrder(mDevice.TakeCalls()),
        (Calls{"IsConnected", "GetRegisterLength(Bulk0DownstreamData)",
               "SetRegisterData(Bulk0DownstreamData, [00 00 00 00 00 00 00 09 05 07 00 01 a0 a1 a2 a3 a4 "
               "00 00 00])",
               "PostWrite(1000)"}));
    EXPECT_EQ(TakeLog(), (Lines{Sending(5)}));
}

TEST_F(IRegisterSerialPortSPITest, ReadsWhileItWrites)
{
    for (const bool lFinal : {false, true})
    {
        EXPECT_THAT(Transfer(Count(5), 5, true, lFinal), IsOK());
        EXPECT_EQ(TakeMessages(),
                  std::vector<Bytes>{SPIMessage({0, 0, 5, static_cast<uint8_t>(lFinal)}, Count(5))});
    }
    EXPECT_EQ(TakeLog(), (Lines{Sending(5), Sending(5)}));
}

TEST_F(IRegisterSerialPortSPITest, WarnsWhenReadAndWriteSizesDiffer)
{
    EXPECT_THAT(Transfer(Count(4), 9, true, false), IsOK());
    EXPECT_EQ(
        TakeLogOf("IRegisterSerialPort"),
        (Lines{Sending(4), {PriorityWarning, cTransmitSPI, "Simultaneous readwrite but read 9 != write 4"}}));
    DisableEveryPriority();
    EXPECT_THAT(Transfer(Count(4), 9, true, false), IsOK());
    EXPECT_EQ(TakeLog(), Lines());
    EXPECT_EQ(TakeMessages(), std::vector<Bytes>(2, SPIMessage({0, 0, 4, 0}, Count(4))));
}

TEST_F(IRegisterSerialPortSPITest, ReadsWithoutWriting)
{
    EXPECT_THAT(mEngine.WriteAndRead(nullptr, 0, mWritten, 200, false, true), IsOK());
    EXPECT_EQ(mWritten, 0U);
    EXPECT_THAT(mEngine.WriteAndRead(nullptr, 0, mWritten, 0, true, false), IsOK());
    EXPECT_EQ(TakeMessages(),
              (std::vector<Bytes>{SPIMessage({0, 200, 0, 1}, {}), SPIMessage({0, 0, 0, 0}, {})}));
    mDevice.Fail(Slot::SetRegisterData, KyResult(0x2224, "no"));
    EXPECT_THAT(mEngine.WriteAndRead(nullptr, 0, mWritten, 200, false, true), IsResult(0x2224, "no"));
}

TEST_F(IRegisterSerialPortSPITest, KeepsTheLowEightBitsOfTheSizes)
{
    EXPECT_THAT(Transfer(Count(300), 0x1FE, false, false), IsOK());
    EXPECT_THAT(Transfer(Count(300), 300, true, false), IsOK());
    EXPECT_EQ(TakeMessages(), (std::vector<Bytes>{SPIMessage({44, 0xFE, 0, 0}, Count(300)),
                                                  SPIMessage({0, 0, 44, 0}, Count(300))}));
}

TEST_F(IRegisterSerialPortSPITest, WritesWithoutOptionsAndControlFlags)
{
    mEngine.SetI2CFastMode(true);
    mEngine.SetI2CStop(true);
    mEngine.SetI2CFlag3(true);
    mEngine.SetI2CTransfer(true);
    EXPECT_THAT(Write({1, 2, 3, 4}), IsOK());
    EXPECT_EQ(TakeMessages(), std::vector<Bytes>{SPIMessage({4, 0, 0, 0}, {1, 2, 3, 4})});
}

TEST_F(IRegisterSerialPortSPITest, UsesHostByteOrderOverTheOtherTransport)
{
    UseHostByteOrder();
    EXPECT_THAT(Transfer(Count(300), 2, false, true), IsOK());
    EXPECT_EQ(TakeMessages(), std::vector<Bytes>{SPIMessage({44, 2, 0, 1}, Count(300), true)});
}

TEST_F(IRegisterSerialPortSPITest, PadsWithZeroBytes)
{
    EXPECT_THAT(Write(Bytes(16, 0xFF)), IsOK());
    EXPECT_THAT(Write({1}), IsOK());
    EXPECT_THAT(Write({1, 2, 3}), IsOK());
    const std::vector<Bytes> lMessages = TakeMessages();
    ASSERT_EQ(lMessages.size(), 3U);
    EXPECT_EQ(lMessages[1], (Bytes{0, 0, 0, 0, 0, 0, 0, 5, 1, 0, 0, 0, 1, 0, 0, 0}));
    EXPECT_EQ(lMessages[2], (Bytes{0, 0, 0, 0, 0, 0, 0, 7, 3, 0, 0, 0, 1, 2, 3, 0}));
}

TEST_F(IRegisterSerialPortSPITest, SplitsLongTransfersIntoEqualOnes)
{
    const Bytes lAll = Count(600);
    EXPECT_THAT(Transfer(lAll, 9, false, true), IsOK());
    EXPECT_EQ(mWritten, 600U);
    EXPECT_EQ(TakeMessages(), (std::vector<Bytes>{SPIMessage({0xFC, 9, 0, 1}, Part(lAll, 0, 508)),
                                                  SPIMessage({92, 9, 0, 1}, Part(lAll, 508, 92))}));
}

TEST_F(IRegisterSerialPortSPITest, RefusesAFeatureWithoutRoomAfterTheHeader)
{
    for (const int64_t lLength : {12, 11, 8, 0, -1})
    {
        mDevice.SetLength(cDownstream, lLength);
        const std::string lText = "IRegisterSerialPort::Write length allowed " + std::to_string(lLength) +
                                  " is less than or equal to 12 header bytes!";
        EXPECT_THAT(Write({1}), IsResult(KyResult::BUFFER_TOO_SMALL, lText.c_str()));
        EXPECT_EQ(mEngine.WriteAndRead(nullptr, 0, mWritten, 4, false, false).GetCode(),
                  KyResult::BUFFER_TOO_SMALL);
    }
    EXPECT_EQ(mDevice.GetCallCount(Slot::SetRegisterData), 0);
}

TEST_F(IRegisterSerialPortSPITest, ChecksItsBufferWithTheRemainderInsteadOfThePadding)
{
    // 3 bytes and their padding fit in 16, but the check counts 3 + 3 + 12.
    mDevice.SetLength(cDownstream, 16);
    EXPECT_THAT(Write({1, 2, 3, 4}), IsOK());
    EXPECT_EQ(mAsserts.Take(), Calls());
    EXPECT_THAT(Write({1, 2, 3}), IsOK());
    EXPECT_EQ(mAsserts.Take(), Broken({cSPIAssert}));
    EXPECT_EQ(TakeMessages().back(), SPIMessage({3, 0, 0, 0}, {1, 2, 3}));
}

TEST_F(IRegisterSerialPortSPITest, FillsFeaturesOfEveryLength)
{
    FillEveryLength(12, true,
                    [](const Bytes& aBytes) {
                        return SPIMessage({static_cast<uint8_t>(aBytes.size()), 0, 0, 0}, aBytes);
                    });
    EXPECT_THAT(mAsserts.Take(), testing::Each(cSPIAssert));
}

} // namespace
