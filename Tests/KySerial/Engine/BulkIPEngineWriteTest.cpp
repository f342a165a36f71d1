#include "KySerial/EngineTest.h"
#include "Support/TimeOf.h"

#include "BulkIPEngine.h"

#include <limits>
#include <thread>

using namespace KyTest;
using namespace KySerialLib;

namespace
{

constexpr char cBulkWrite[] = "KySerialLib::BulkIPEngine::Write";
constexpr char cNotifyEvent[] = "KySerialLib::BulkIPEngine::NotifyEvent";
constexpr std::chrono::milliseconds cLeast{299}; // for a chunk that is not confirmed
constexpr uint32_t cUart = 1U << 12;
constexpr uint32_t cI2C = 2U << 12;
constexpr uint32_t cTxEmpty = 0x800;
constexpr uint32_t cTxPartial = 0x1000;

class Engine : public BulkIPEngine
{
public:
    using BulkIPEngine::ComputeChunkTimeout;
    using BulkIPEngine::GetI2CTimePerByte;
    using BulkIPEngine::GetUARTTimePerBit;
    using BulkIPEngine::GetUSRTTimePerBit;
    using BulkIPEngine::UpdateTimePerByte;
};

class BulkIPEngineWriteTest : public EngineTest
{
protected:
    void Open(uint32_t aConfig, uint32_t aRate = 0)
    {
        mDevice.SetRegister(0xB898, aConfig);
        mDevice.SetRegister(0xB954, aRate);
        ASSERT_THAT(mEngine.Open(&mDevice, KyDeviceSerialBulk0), IsOK());
        Forget();
    }

    void Reopen(uint32_t aConfig, uint32_t aRate = 0)
    {
        if (mEngine.IsOpened())
        {
            EXPECT_THAT(mEngine.Close(), IsOK());
        }
        Open(aConfig, aRate);
    }

    // The device confirms every chunk, or the first ones of a write, from inside the memory write.
    void Confirm(uint32_t aStatus, int aChunks = std::numeric_limits<int>::max())
    {
        mDevice.OnCall(Slot::WriteMemory,
                       [this, aStatus, aChunks]
                       {
                           if (mDevice.GetCallCount(Slot::WriteMemory) <= aChunks)
                           {
                               mDevice.SendEvent(0x9000, Words({aStatus}));
                           }
                       });
    }

    KyResult Write(const Bytes& aBytes) { return WriteTo(mEngine, aBytes, mWritten); }

    // The calls that send Count(...) in chunks of these sizes.
    static Calls Chunks(const std::vector<size_t>& aSizes, const std::string& aAddress = "0x80000000")
    {
        Calls lCalls{"IsConnected"};
        size_t lSent = 0;
        for (const size_t lSize : aSizes)
        {
            lCalls.push_back("WriteMemory(" + aAddress + ", " +
                             ToText(Count(lSent + lSize).data() + lSent, lSize) + ")");
            lSent += lSize;
        }
        return lCalls;
    }

    // A sentence of the engine for a write that timed out.
    static std::string TimedOut(int aSent)
    {
        return "Timed out waiting for Tx interrupt after sending " + std::to_string(aSent) + " bytes";
    }

    // Writes so many bytes, of which the device gets some and falls silent.
    void ExpectTimeOut(size_t aSize, int aSent)
    {
        EXPECT_THAT(Write(Count(aSize)), IsResult(KyResult::TIMED_OUT, TimedOut(aSent).c_str()));
        EXPECT_EQ(mWritten, static_cast<uint32_t>(aSent));
    }

    uint32_t mWritten = 0xDEAD;
    Engine mEngine;
};

TEST_F(BulkIPEngineWriteTest, SendsLongWritesInChunks)
{
    Open(cUart | 6 << 5);
    Confirm(cTxEmpty | cTxPartial);
    EXPECT_THAT(Write(Count(600)), IsOK());
    EXPECT_EQ(mWritten, 600U);
    EXPECT_EQ(mDevice.TakeCalls(), Chunks({256, 252, 92}));
    const LogLine lEmpty{PriorityDebug, cNotifyEvent, "Tx fifo empty interrupt"};
    const LogLine lPartial{PriorityDebug, cNotifyEvent, "Tx fifo partial empty interrupt"};
    EXPECT_EQ(TakeLog(),
              (Lines{{PriorityInfo, cBulkWrite, "Sending 600 bytes of data over bulk port"},
                     {PriorityDebug, cBulkWrite, "Transmitting 256 byte chunk (0 bytes already sent)"},
                     lEmpty,
                     lPartial,
                     {PriorityDebug, cBulkWrite, "Transmitting 252 byte chunk (256 bytes already sent)"},
                     lEmpty,
                     lPartial,
                     {PriorityDebug, cBulkWrite, "Transmitting 92 byte chunk (508 bytes already sent)"},
                     lEmpty,
                     lPartial}));
}

TEST_F(BulkIPEngineWriteTest, SizesChunksByInterfaceAndThreshold)
{
    struct Case
    {
        uint32_t mConfig;
        size_t mBytes;
        std::vector<size_t> mChunks;
    };
    Confirm(cTxEmpty);
    for (const Case& lCase :
         {Case{cUart, 256, {256}}, Case{cUart, 257, {256, 1}}, Case{cUart, 508, {256, 252}},
          Case{0, 600, {256, 252, 92}}, Case{cI2C, 600, {254, 251, 95}}, Case{cI2C, 254, {254}},
          Case{cI2C, 505, {254, 251}}, Case{cUart | 100U << 24, 600, {256, 152, 152, 40}},
          Case{cI2C | 100U << 24, 600, {254, 151, 151, 44}}, Case{cUart | 251U << 24, 259, {256, 1, 1, 1}},
          // Above 252 the difference wraps around: the second chunk carries all the rest.
          Case{cUart | 253U << 24, 1000, {256, 744}}, Case{cUart | 255U << 24, 1000, {256, 744}},
          Case{cI2C | 252U << 24, 1000, {254, 746}}, Case{cI2C | 255U << 24, 1000, {254, 746}}})
    {
        SCOPED_TRACE(testing::Message() << ToHex(lCase.mConfig) << ' ' << lCase.mBytes);
        Reopen(lCase.mConfig);
        EXPECT_THAT(Write(Count(lCase.mBytes)), IsOK());
        EXPECT_EQ(mWritten, lCase.mBytes);
        EXPECT_EQ(mDevice.TakeCalls(), Chunks(lCase.mChunks));
    }
}

TEST_F(BulkIPEngineWriteTest, EndsAfterAnEmptyChunkWhenTheThresholdLeavesNoRoom)
{
    Confirm(cTxEmpty);
    for (const auto& [lConfig, lFirst] :
         std::vector<std::pair<uint32_t, int>>{{cUart | 252U << 24, 256}, {cI2C | 251U << 24, 254}})
    {
        Reopen(lConfig);
        const size_t lSize = static_cast<size_t>(lFirst);
        EXPECT_THAT(Write(Count(lSize)), IsOK()); // as many as the first chunk takes
        Forget();
        ExpectTimeOut(lSize + 2, lFirst);
        EXPECT_EQ(mDevice.TakeCalls(), Chunks({lSize, 0}));
        EXPECT_EQ(mAsserts.Take(), Broken({"lBytesAllowed"}));
        Lines lLines = TakeLog();
        std::erase(lLines, LogLine{PriorityDebug, cNotifyEvent, "Tx fifo empty interrupt"});
        const std::string lSent = " byte chunk (" + std::to_string(lFirst) + " bytes already sent)";
        ASSERT_EQ(lLines.size(), 4U);
        EXPECT_EQ(lLines[2], (LogLine{PriorityDebug, cBulkWrite, "Transmitting 0" + lSent}));
        EXPECT_EQ(lLines[3], (LogLine{PriorityError, cBulkWrite, TimedOut(lFirst)}));
    }
}

TEST_F(BulkIPEngineWriteTest, WaitsForTheInterruptOfAnEmptyChunkToo)
{
    Open(cUart | 252U << 24);
    Confirm(cTxEmpty, 1);
    EXPECT_GE(TimeOf([this] { ExpectTimeOut(300, 256); }), cLeast);
    EXPECT_EQ(mDevice.TakeCalls(), Chunks({256, 0}));
    EXPECT_EQ(mAsserts.Take(), Broken({"lBytesAllowed"}));
}

TEST_F(BulkIPEngineWriteTest, PassesOnARefusedEmptyChunk)
{
    Open(cUart | 252U << 24);
    Confirm(cTxEmpty);
    mDevice.FailCall(Slot::WriteMemory, 2, KyResult(0x4321, "empty"));
    EXPECT_THAT(Write(Count(300)), IsResult(0x4321, "empty"));
    EXPECT_EQ(mWritten, 256U);
    EXPECT_EQ(mAsserts.Take(), Broken({"lBytesAllowed"}));
}

TEST_F(BulkIPEngineWriteTest, CarriesTheControlFlagsInTheAddress)
{
    Open(cI2C);
    Confirm(cTxEmpty);
    for (uint32_t lFlags = 0; lFlags < 16; ++lFlags)
    {
        mEngine.SetI2CFastMode((lFlags & 1) != 0);
        mEngine.SetI2CStop((lFlags & 2) != 0);
        mEngine.SetI2CFlag3((lFlags & 4) != 0);
        mEngine.SetI2CTransfer((lFlags & 8) != 0);
        EXPECT_THAT(Write(Count(4)), IsOK());
        EXPECT_EQ(mDevice.TakeCalls(), Chunks({4}, ToHex(0x80000000 | lFlags << 9)));
    }
}

TEST_F(BulkIPEngineWriteTest, SendsTheNextChunkOnEitherTxInterrupt)
{
    for (const uint32_t lStatus : {cTxEmpty, cTxPartial})
    {
        Reopen(cUart | 6 << 5);
        mDevice.OnCall(Slot::WriteMemory,
                       [&]
                       {
                           const bool lLast = mDevice.GetCallCount(Slot::WriteMemory) == 2;
                           mDevice.SendEvent(0x9001, Words({lLast ? cTxEmpty : lStatus}));
                       });
        EXPECT_THAT(Write(Count(300)), IsOK());
        EXPECT_EQ(mDevice.TakeCalls(), Chunks({256, 44}));
    }
}

TEST_F(BulkIPEngineWriteTest, TimesOutBeforeTheSecondChunk)
{
    Open(cUart);
    mDevice.SendEvent(0x9000, Words({cTxEmpty | cTxPartial})); // of an earlier chunk: does not count
    Forget();
    EXPECT_GE(TimeOf([this] { ExpectTimeOut(300, 256); }), cLeast);
    EXPECT_EQ(mDevice.TakeCalls(), Chunks({256}));
    EXPECT_EQ(TakeLog(),
              (Lines{{PriorityInfo, cBulkWrite, "Sending 300 bytes of data over bulk port"},
                     {PriorityDebug, cBulkWrite, "Transmitting 256 byte chunk (0 bytes already sent)"},
                     {PriorityError, cBulkWrite, TimedOut(256)}}));
}

TEST_F(BulkIPEngineWriteTest, TimesOutWhenTheFifoDoesNotRunEmpty)
{
    Open(cUart);
    mDevice.SendEvent(0x9000, Words({cTxEmpty}));
    Confirm(cTxPartial); // room is not enough after the last chunk
    EXPECT_GE(TimeOf([this] { ExpectTimeOut(10, 10); }), cLeast);
    DisableEveryPriority();
    ExpectTimeOut(3, 3); // all the same
    EXPECT_EQ(mLog.Take().back(), (LogLine{PriorityError, cBulkWrite, TimedOut(10)}));
}

// Holds the event thread up in the middle of an interrupt that says two things.
class SlowSink final : public JxUtilsLib::LogSink
{
public:
    SlowSink() { JxUtilsLib::Logger::SetSink(this); }
    ~SlowSink() { JxUtilsLib::Logger::SetSink(nullptr); }
    void Write(const JxUtilsLib::LogRecord& aRecord) override
    {
        if (std::string(aRecord.mMessage) == "Tx fifo partial empty interrupt")
        {
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        }
    }
};

TEST_F(BulkIPEngineWriteTest, OneInterruptLetsOneChunkThroughEvenWhenItComesSlowly)
{
    Open(cUart | 6 << 5);
    mEngine.SetI2CTransfer(true); // twice the time, for a busy machine
    const SlowSink lSink;
    std::thread lEvents;
    mDevice.OnCall(Slot::WriteMemory,
                   [&]
                   {
                       if (!lEvents.joinable())
                       {
                           lEvents = std::thread(
                               [this] { mDevice.SendEvent(0x9000, Words({cTxEmpty | cTxPartial})); });
                       }
                   });
    ExpectTimeOut(600, 508);
    lEvents.join();
    EXPECT_EQ(mDevice.TakeCalls(), Chunks({256, 252}, "0x80001000"));
}

TEST_F(BulkIPEngineWriteTest, LooksAtTheLastInterruptWhenThereIsNothingToSend)
{
    Open(cUart);
    EXPECT_TRUE(
        TakesLessThan(std::chrono::milliseconds(100), [this] { ExpectTimeOut(0, 0); })); // does not wait
    Forget();
    ExpectTimeOut(0, 0);
    EXPECT_EQ(mDevice.TakeCalls(), Calls{"IsConnected"});
    EXPECT_EQ(TakeLog(), (Lines{{PriorityInfo, cBulkWrite, "Sending 0 bytes of data over bulk port"},
                                {PriorityError, cBulkWrite, TimedOut(0)}}));
    mDevice.SendEvent(0x9000, Words({cTxPartial}));
    ExpectTimeOut(0, 0);
    mDevice.SendEvent(0x9000, Words({cTxEmpty}));
    EXPECT_THAT(mEngine.Write(nullptr, 0, mWritten), IsOK());
    EXPECT_THAT(mEngine.Write(nullptr, 0, mWritten), IsOK()); // the signal stays
}

TEST_F(BulkIPEngineWriteTest, PassesOnARefusedChunk)
{
    Open(cUart | 6 << 5);
    Confirm(cTxEmpty);
    mDevice.FailCall(Slot::WriteMemory, 2, KyResult(0x4321, "no room"));
    EXPECT_THAT(Write(Count(600)), IsResult(0x4321, "no room"));
    EXPECT_EQ(mWritten, 256U);
    EXPECT_EQ(mDevice.TakeCalls(), Chunks({256, 252}));
    for (const LogLine& lLine : TakeLog())
    {
        EXPECT_LT(lLine.mPriority, PriorityWarning) << lLine;
    }
}

TEST_F(BulkIPEngineWriteTest, TakesTheUartRateFromItsTable)
{
    const double lSpeeds[] = {9600, 14400, 19200, 28800, 38400, 57600, 115200};
    for (uint32_t lIndex = 0; lIndex < 7; ++lIndex)
    {
        Reopen(cUart | lIndex << 5, 2);
        EXPECT_DOUBLE_EQ(mEngine.GetUARTTimePerBit(), 1000.0 / lSpeeds[lIndex]);
    }
}

TEST_F(BulkIPEngineWriteTest, ComputesTheCustomUartRate)
{
    const std::pair<uint32_t, double> lRates[] = {{0, 2083333},          {1, 2083333}, {2, 1041667},
                                                  {0xFFFFFF02, 1041667}, {255, 8170},  {0xFFFFFF00, 2083333}};
    for (const auto& [lRate, lSpeed] : lRates)
    {
        Reopen(cUart | 7 << 5, lRate);
        EXPECT_DOUBLE_EQ(mEngine.GetUARTTimePerBit(), 1000.0 / lSpeed) << lRate;
    }
}

TEST_F(BulkIPEngineWriteTest, TakesTheUsrtRateFromItsDividers)
{
    // 16700000 by 2, 4, 8 ... 256, as whole numbers.
    const double lRates[] = {8350000, 4175000, 2087500, 1043750, 521875, 260937, 130468, 65234};
    for (uint32_t lIndex = 0; lIndex < 8; ++lIndex)
    {
        Reopen(lIndex << 5);
        EXPECT_DOUBLE_EQ(mEngine.GetUSRTTimePerBit(), 1000.0 / lRates[lIndex]);
    }
}

TEST_F(BulkIPEngineWriteTest, TimesChunksByTheLineRate)
{
    struct Case
    {
        uint32_t mConfig;
        uint32_t mSize;
        uint32_t mTimeout;
    };
    for (const Case& lCase :
         {Case{cUart, 256, 300}, Case{cUart, 1, 300}, Case{cUart, 0, 300}, Case{cUart, 484, 300}, // 50.4 ms
          Case{cUart, 485, 302},                                                                  // 50.52 ms
          Case{cUart, 10000, 2284}, Case{cUart | 0x400, 10000, 4366}, Case{cUart | 6 << 5, 100000, 1936},
          Case{0, 10000000, 2596},    // 1197.6 ms
          Case{7 << 5, 100000, 3266}, // 1532.9 ms
          Case{cI2C, 10000, 2000}, Case{cI2C | 0x400, 10000, 3800}, Case{cI2C | 7 << 5, 600, 308},
          Case{cUart, 0xFFFFFFFF, 894785054}})
    {
        SCOPED_TRACE(testing::Message() << ToHex(lCase.mConfig) << ' ' << lCase.mSize);
        Reopen(lCase.mConfig);
        EXPECT_EQ(mEngine.ComputeChunkTimeout(lCase.mSize), lCase.mTimeout);
    }
    EXPECT_DOUBLE_EQ(Engine::GetI2CTimePerByte(), 0.09);
}

TEST_F(BulkIPEngineWriteTest, TimesChunksOfAnUnknownInterfaceByDefault)
{
    EXPECT_EQ(mEngine.ComputeChunkTimeout(100000), 6200U); // 0.03 ms a byte, before the first Open() too
    for (const uint32_t lInterface : {3U, 7U})
    {
        Reopen(lInterface << 12);
        EXPECT_EQ(mEngine.ComputeChunkTimeout(100000), 6200U);
        Reopen(lInterface << 12 | 0x400);
        EXPECT_EQ(mEngine.ComputeChunkTimeout(100000), 12200U);
    }
    EXPECT_EQ(mAsserts.Take(), Broken({"false", "false", "false", "false"}));
}

TEST_F(BulkIPEngineWriteTest, GivesI2CTransfersTwiceTheTimeAndFastOnesAQuarterOfThat)
{
    Open(cI2C);
    mEngine.SetI2CFastMode(true);
    EXPECT_EQ(mEngine.ComputeChunkTimeout(10000), 2000U); // alone it changes nothing
    mEngine.SetI2CTransfer(true);
    EXPECT_EQ(mEngine.ComputeChunkTimeout(10000), 1000U);
    EXPECT_EQ(mEngine.ComputeChunkTimeout(567), 151U); // 51.03 ms: 302, 604, 151
    mEngine.SetI2CFastMode(false);
    EXPECT_EQ(mEngine.ComputeChunkTimeout(10000), 4000U);
    mEngine.SetI2CStop(true);
    mEngine.SetI2CFlag3(true);
    EXPECT_EQ(mEngine.ComputeChunkTimeout(10000), 4000U);
}

TEST_F(BulkIPEngineWriteTest, SeesAChangedConfigurationAtTheNextOpen)
{
    Open(cUart);
    mDevice.SetRegister(0xB898, cUart | 6 << 5);
    EXPECT_EQ(mEngine.ComputeChunkTimeout(10000), 2284U);
    EXPECT_THAT(mEngine.Close(), IsOK());
    ASSERT_THAT(mEngine.Open(&mDevice, KyDeviceSerialBulk0), IsOK());
    EXPECT_EQ(mEngine.ComputeChunkTimeout(10000), 374U);
}

TEST_F(BulkIPEngineWriteTest, ChecksThatTheRateIsAskedOfAnOpenPort)
{
    mEngine.UpdateTimePerByte();
    EXPECT_EQ(TakeLogOf("BulkIPEngine"),
              (Lines{{PriorityFatal, "KySerialLib::BulkIPEngine::UpdateTimePerByte",
                      "Unexpected state: the device should already be available."}}));
    EXPECT_EQ(mAsserts.Take(), Broken({"IsOpened()"}));
}

} // namespace
