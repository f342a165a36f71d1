// What every engine owes when bytes are written to the device and come from it.

#include "KySerial/Engine/EngineKinds.h"
#include "Support/TimeOf.h"
#include "Support/WaitFor.h"

#include <algorithm>
#include <atomic>
#include <thread>

using namespace KyTest;
using namespace KySerialLib;

namespace
{

using std::chrono::milliseconds;

using EngineTransferTest = EngineKindTest;
// What the engines owe that drive registers: their writers wait for interrupts, and their bytes come in events.
using RegisterTransferTest = EngineKindTest;

// A UART takes bytes, a bulk port chunks of 256 and then 252 bytes.
constexpr uint32_t cFirstChunk = 256;

TEST_P(EngineTransferTest, DoesNotWriteWithoutAConnectedDevice)
{
    const std::string lFunction = GetFunction(HasRegisters() ? "Write" : "WriteAndRead");
    ExpectFailure(Write({1}), KyResult::NO_CONNECTION, lFunction, cNull, "DeviceChecks");
    ASSERT_THAT(Open(), IsOK());
    Forget();
    mDevice.SetAnswer(Slot::IsConnected, false);
    ExpectFailure(Write({1}), KyResult::NO_CONNECTION, lFunction, cDisconnected);
    EXPECT_EQ(mWritten, 0U);
    EXPECT_EQ(mDevice.TakeCalls(), Calls{"IsConnected"});
}

TEST_P(EngineTransferTest, RefusesANullBuffer)
{
    ASSERT_THAT(Open(), IsOK());
    Forget();
    EXPECT_EQ(mEngine->Write(nullptr, 3, mWritten).GetCode(), KyResult::BAD_PARAMETER);
    EXPECT_EQ(mWritten, 0U);
    EXPECT_EQ(mDevice.TakeCalls(), Calls{"IsConnected"});
}

TEST_P(RegisterTransferTest, EndsAWriteBetweenTwoPiecesWithoutAFailure)
{
    ASSERT_THAT(Open(), IsOK());
    int lPieces = 0;
    OnPiece(
        [&]
        {
            mEngine->EndWrites(++lPieces == 2);
            Confirm();
        });
    const Bytes lBytes = Count(1000);
    EXPECT_THAT(Write(lBytes), IsOK());
    EXPECT_EQ(mWritten, IsUart() ? 2U : 508U);
    EXPECT_THAT(Write(lBytes), IsOK()); // still in force
    EXPECT_EQ(mWritten, 0U);
    mEngine->EndWrites(false);
    EXPECT_THAT(Write(lBytes), IsOK());
    EXPECT_EQ(mWritten, 1000U);
    OnPiece({});
}

// The interrupt never comes: neither that with room for the next piece, nor that for the last one. The piece counts,
// as the device has it.
TEST_P(RegisterTransferTest, EndsAWriteThatWaitsForAnInterrupt)
{
    ASSERT_THAT(Open(), IsOK());
    for (const uint32_t lSize : {1000U, 200U, 1U})
    {
        mEngine->EndWrites(false);
        std::atomic<bool> lSent{false};
        OnPiece([&] { lSent = true; });
        std::thread lEnd(
            [&]
            {
                EXPECT_TRUE(WaitFor([&] { return lSent.load(); }));
                mEngine->EndWrites(true);
            });
        EXPECT_THAT(Write(Count(lSize)), IsOK());
        lEnd.join();
        EXPECT_EQ(mWritten, std::min(lSize, IsUart() ? 1U : cFirstChunk));
    }
    OnPiece({});
}

TEST_P(RegisterTransferTest, WaitsForInterruptsFromTheEventThread)
{
    ASSERT_THAT(Open(), IsOK());
    if (auto* const lBulk = dynamic_cast<BulkWithI2C*>(mEngine.get()))
    {
        lBulk->SetI2CTransfer(true); // twice the time, for a busy machine
    }
    std::vector<std::thread> lEvents;
    const auto lConfirm = [this]
    {
        std::this_thread::sleep_for(milliseconds(20));
        Confirm();
    };
    OnPiece([&] { lEvents.emplace_back(lConfirm); });
    const Bytes lBytes = Count(IsUart() ? 2 : 300); // two pieces
    EXPECT_GE(TimeOf([&] { EXPECT_THAT(Write(lBytes), IsOK()); }), milliseconds(39));
    EXPECT_EQ(lEvents.size(), 2U);
    for (std::thread& lThread : lEvents)
    {
        lThread.join();
    }
    OnPiece({});
}

TEST_P(EngineTransferTest, TakesAnEventThatComesWhileItsSinkIsBeingRegistered)
{
    Offer({0x41, 0x42});
    mDevice.OnCall(Slot::RegisterEventSink, [this] { Notify(); });
    EXPECT_THAT(Open(), IsOK());
    EXPECT_EQ(ReadAll(*mEngine), (Bytes{0x41, 0x42}));
    EXPECT_THAT(mEngine->Close(), IsOK());
}

TEST_P(EngineTransferTest, KeepsTheNewestOfTooMany)
{
    ASSERT_THAT(Open(), IsOK());
    Offer({1, 2, 3, 4, 5});
    for (const uint32_t lSize : {4U, 0U, 1U})
    {
        EXPECT_THAT(mEngine->SetRxBufferSize(lSize), IsOK());
        Notify();
        EXPECT_EQ(ReadAll(*mEngine), lSize == 4 ? (Bytes{3, 4, 5}) : Bytes());
    }
}

TEST_P(RegisterTransferTest, TakesEventsOfEveryLength)
{
    ASSERT_THAT(Open(), IsOK());
    Forget();
    for (size_t lLength = 0; lLength <= 64; ++lLength)
    {
        SCOPED_TRACE(lLength);
        Bytes lData(lLength, 0x5A); // of exactly this size on the heap: the sanitizer sees any byte beyond
        const Bytes lStatus = Words({0x403});
        std::copy_n(lStatus.begin(), std::min<size_t>(lLength, 4), lData.begin());
        mDevice.SendEvent(0x9000, lData);
        const size_t lBytes = lLength < 4 ? 0 : lLength - 4;
        EXPECT_EQ(ReadAll(*mEngine), Bytes(IsUart() ? lBytes / 4 : lBytes, 0x5A));
        EXPECT_EQ(TakeLog(), lLength < 4 ? Lines() : ReceivedLine(lBytes));
    }
    mDevice.SendEvent(0x9000, nullptr, 0);
    EXPECT_EQ(GetReady(*mEngine), 0U);
    EXPECT_EQ(TakeLog(), Lines());
    EXPECT_EQ(mDevice.TakeCalls(), Calls());
}

TEST_P(RegisterTransferTest, TakesUnalignedData)
{
    ASSERT_THAT(Open(), IsOK());
    Offer({0x11, 0x22, 0x33});
    mEvent.insert(mEvent.begin(), 0xEE);
    mDevice.SendEvent(0x9000, mEvent.data() + 1, static_cast<uint32_t>(mEvent.size() - 1));
    EXPECT_EQ(ReadAll(*mEngine), (Bytes{0x11, 0x22, 0x33}));
}

// An engine without registers takes no event at all: its bytes come through features.
TEST_P(EngineTransferTest, TakesEventsOfItsIdentifiersOnly)
{
    ASSERT_THAT(Open(), IsOK());
    Offer({7});
    Forget();
    for (const int lID : {0, 0x8FFF, 0x9000, 0x9001, 0x9002, 0xFFFF, 0x0090})
    {
        SCOPED_TRACE(lID);
        const bool lMine = HasRegisters() && (lID == 0x9000 || (lID == 0x9001 && !IsUart()));
        mDevice.SendEvent(static_cast<uint16_t>(lID), mEvent);
        EXPECT_EQ(ReadAll(*mEngine), lMine ? Bytes{7} : Bytes());
        EXPECT_EQ(TakeLog(), lMine ? ReceivedLine(1) : Lines());
    }
    EXPECT_EQ(mDevice.TakeCalls(), Calls());
}

// A bulk port keeps the bytes of such an event, a UART knows by its port which of them are its own.
TEST_P(RegisterTransferTest, ChecksThatEventsComeToAnOpenPort)
{
    Offer({0x41});
    for (const KyDeviceSerial lPort : {KyDeviceSerialInvalid, mPort, IsUart() ? KyDeviceSerialUart1 : mPort})
    {
        SCOPED_TRACE(lPort);
        if (lPort != KyDeviceSerialInvalid)
        {
            ASSERT_THAT(mEngine->Open(&mDevice, lPort), IsOK());
            ASSERT_THAT(mEngine->Close(), IsOK());
        }
        Notify();
        EXPECT_EQ(mAsserts.Take(), Broken({"mDevice != NULL"}));
        EXPECT_EQ(ReadAll(*mEngine), IsUart() ? Bytes() : Bytes{0x41});
        mEngine->NotifyEvent(0x1234, 0, 0, 0, nullptr, 0);
        EXPECT_EQ(mAsserts.Take(), Broken({"mDevice != NULL"}));
    }
}

KY_ALL_ENGINES(EngineTransferTest);
KY_REGISTER_ENGINES(RegisterTransferTest);

} // namespace
