#include "Simulator/CameraFixture.h"

#include <Simulator/Peers/SpiFlash.h>

#include <algorithm>

using namespace KySimulator;
using namespace std::chrono_literals;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

class SpiTest : public CameraFixture
{
protected:
    void MakeBus()
    {
        mConfiguration.mBulk[2].mMode = Protocol::Spi;
        Make();
        mCamera->PlugSpi(Port::Bulk2, mBus);
        Notify(2);
    }

    /// One transfer with chip select released at the end; the answer.
    Bytes Transfer(const Bytes& aData, uint8_t aRead = 0, bool aSimultaneous = false, bool aFinal = true)
    {
        EXPECT_EQ(Send(2, SpiMessage(aData, aRead, aSimultaneous, aFinal)), Status::Ok);
        mClock->Advance(100us); // less than the flash is ever busy
        return TakeData(cUpstreamEvent + 2);
    }

    std::shared_ptr<SpiFlash> mFlash = std::make_shared<SpiFlash>();
    std::shared_ptr<SpiBusPeer> mBus = std::make_shared<SpiBusPeer>(mFlash);
};

TEST_F(SpiTest, AWriteThenReadAnswersWithWhatWasRead)
{
    MakeBus();
    EXPECT_THAT(Transfer({0x9F}, 3), ElementsAre(0xEF, 0x30, 0x10));
    const auto lTransfers = mBus->GetTransfers();
    ASSERT_THAT(lTransfers, SizeIs(1));
    EXPECT_THAT(lTransfers[0].mOut, ElementsAre(0x9F, 0, 0, 0));
    EXPECT_THAT(lTransfers[0].mIn, ElementsAre(0xFF, 0xEF, 0x30, 0x10));
    EXPECT_TRUE(lTransfers[0].mReleased);
}

TEST_F(SpiTest, ASimultaneousTransferAnswersEveryByte)
{
    MakeBus();
    EXPECT_THAT(Transfer({0x9F, 0xAA, 0xBB, 0xCC, 0xDD}, 5, true), ElementsAre(0xFF, 0xEF, 0x30, 0x10, 0xFF));
}

TEST_F(SpiTest, AWriteAloneAnswersNothing)
{
    MakeBus();
    EXPECT_THAT(Transfer({0x06}), IsEmpty());
    EXPECT_THAT(mBus->GetTransfers(), SizeIs(1));
}

TEST_F(SpiTest, WithoutTheFinalFlagChipSelectStays)
{
    MakeBus();
    EXPECT_THAT(Transfer({0x9F}, 0, false, false), IsEmpty());
    EXPECT_TRUE(mBus->IsSelected());
    EXPECT_THAT(Transfer({}, 2, false, false), ElementsAre(0xEF, 0x30));
    EXPECT_THAT(Transfer({}, 1), ElementsAre(0x10));
    EXPECT_FALSE(mBus->IsSelected());
    ASSERT_THAT(mBus->GetTransfers(), SizeIs(1));
    EXPECT_THAT(mBus->GetTransfers()[0].mOut, SizeIs(4));
    EXPECT_TRUE(mBus->GetTransfers()[0].mReleased);
}

TEST_F(SpiTest, TheAnswerComesWhenItsBytesHaveBeenClocked)
{
    MakeBus();
    Set("BulkSelector", "Bulk2");
    Set("BulkBaudRate", "Baud115200"); // index 6: 16.7 MHz / 128
    EXPECT_EQ(mCamera->GetByteTime(Port::Bulk2), Time(61317));
    EXPECT_EQ(Send(2, SpiMessage({0x9F}, 3, false, true)), Status::Ok);
    mClock->Advance(Time(61317) * 4 - 1ns);
    EXPECT_THAT(mListener.TakeEvents(), IsEmpty());
    mClock->Advance(1ns);
    EXPECT_THAT(TakeData(cUpstreamEvent + 2), SizeIs(3));
}

TEST_F(SpiTest, LargestTransfersPass)
{
    MakeBus();
    EXPECT_EQ(Send(2, SpiMessage({0x03, 0, 0, 0}, 255, false, true)), Status::Ok);
    mClock->Advance(10ms);
    EXPECT_THAT(TakeData(cUpstreamEvent + 2), SizeIs(255));
    EXPECT_EQ(Send(2, SpiMessage(Bytes(255, 0x05), 255, false, true)), Status::Ok);
    mClock->Advance(10ms);
    EXPECT_THAT(TakeData(cUpstreamEvent + 2), SizeIs(255));
}

TEST_F(SpiTest, AnOpenBusReadsAsOnes)
{
    MakeBus();
    mCamera->PlugSpi(Port::Bulk2, nullptr);
    EXPECT_THAT(Transfer({0x9F}, 2), ElementsAre(0xFF, 0xFF));
}

TEST_F(SpiTest, MessagesWithoutSenseAreRefused)
{
    MakeBus();
    const std::vector<Bytes> lMessages = {
        {0, 0, 0, 0, 0, 0, 0, 3, 0, 0, 0, 0},                // shorter than its control bytes
        {0, 0, 0, 0, 0, 0, 0, 4},                            // they are not there
        {0, 0, 0, 0, 0, 0, 0, 9, 5, 0, 0, 1, 1, 2, 3, 4},    // more data than there is
        {0, 0, 0, 0, 0, 0, 0, 8, 5, 0, 0, 1, 1, 2, 3, 4},    // write size beyond the data
        {0, 0, 0, 0, 0, 0, 0, 8, 3, 0, 0, 1, 1, 2, 3, 4},    // data beyond the write size
        {0, 0, 0, 0, 0, 0, 0, 8, 0, 0, 200, 1, 1, 2, 3, 4},  // simultaneous size beyond the data
        {0, 0, 0, 0, 0, 0, 0, 8, 0, 4, 4, 1, 1, 2, 3, 4},    // a read size besides the simultaneous one
        {0, 0, 0, 0, 0, 0, 0, 8, 4, 0, 0, 2, 1, 2, 3, 4},    // a final flag that is neither 0 nor 1
        {0x10, 0, 0, 0, 0, 0, 0, 8, 4, 0, 0, 1, 1, 2, 3, 4}, // flags of another protocol
    };
    for (const Bytes& lMessage : lMessages)
    {
        EXPECT_EQ(Send(2, lMessage), Status::InvalidParameter) << testing::PrintToString(lMessage);
    }
    EXPECT_THAT(mBus->GetTransfers(), IsEmpty());
    EXPECT_EQ(mCamera->GetCounters(Port::Bulk2).mBadMessages, lMessages.size());
}

TEST_F(SpiTest, AMessageThatOnlyReleasesChipSelectIsFine)
{
    MakeBus();
    EXPECT_THAT(Transfer({}, 0), IsEmpty());
    EXPECT_THAT(mBus->GetTransfers(), IsEmpty());
    Transfer({0x06}, 0, false, false);
    EXPECT_THAT(Transfer({}, 0), IsEmpty());
    EXPECT_FALSE(mBus->IsSelected());
    EXPECT_THAT(Transfer({0x05}, 1), ElementsAre(2)); // the write enable took effect
}

TEST_F(SpiTest, HistoryIsLimitedAndCanBeCleared)
{
    mConfiguration.mUnlimitedLineRate = true;
    MakeBus();
    Transfer({0x9F}, 0, false, false);
    mBus->ClearTransfers();
    EXPECT_THAT(Transfer({}, 1), ElementsAre(0xEF));
    EXPECT_THAT(mBus->GetTransfers(), SizeIs(1));
    for (size_t lCount = 0; lCount < SpiBusPeer::cHistory + 5; ++lCount)
    {
        EXPECT_EQ(Send(2, SpiMessage({0x05}, 1, false, true)), Status::Ok);
    }
    EXPECT_THAT(mBus->GetTransfers(), SizeIs(SpiBusPeer::cHistory));
}

TEST_F(SpiTest, TheFlashProgramsAndReads)
{
    MakeBus();
    Transfer({0x06});
    EXPECT_THAT(Transfer({0x05}, 1), ElementsAre(2));
    Transfer({0x02, 0, 0x12, 0x34, 0xA1, 0xA2});
    EXPECT_THAT(Transfer({0x05}, 2), ElementsAre(1, 1)); // busy, and the enable is used up
    mClock->Advance(1ms);
    EXPECT_THAT(Transfer({0x05}, 1), ElementsAre(0));
    EXPECT_THAT(Transfer({0x03, 0, 0x12, 0x33}, 4), ElementsAre(0xFF, 0xA1, 0xA2, 0xFF));
}

TEST_F(SpiTest, TheFlashOnlyClearsBitsWhenItPrograms)
{
    MakeBus();
    for (const uint8_t lByte : Bytes{0x0F, 0x3C})
    {
        Transfer({0x06});
        Transfer({0x02, 0, 0, 0, lByte});
        mClock->Advance(10ms);
    }
    EXPECT_THAT(Transfer({0x03, 0, 0, 0}, 1), ElementsAre(0x0C));
}

TEST_F(SpiTest, TheFlashNeedsAWriteEnable)
{
    MakeBus();
    Transfer({0x02, 0, 0, 0, 0x11});
    Transfer({0x06});
    Transfer({0x04});
    Transfer({0x02, 0, 0, 0, 0x11});
    Transfer({0x20, 0, 0, 0});
    Transfer({0xC7});
    mClock->Advance(10ms);
    EXPECT_THAT(Transfer({0x05}, 1), ElementsAre(0));
    EXPECT_THAT(mFlash->GetContents(), Each(0xFF));
}

TEST_F(SpiTest, FlashPagesWrapAndAddressesToo)
{
    MakeBus();
    Transfer({0x06});
    Transfer({0x02, 0xFF, 0x01, 0xFE, 1, 2, 3});
    mClock->Advance(10ms);
    EXPECT_THAT(Transfer({0x03, 0, 0x01, 0xFE}, 3), ElementsAre(1, 2, 0xFF));
    EXPECT_THAT(Transfer({0x03, 0, 0x01, 0x00}, 2), ElementsAre(3, 0xFF));
    EXPECT_THAT(Transfer({0x03, 0, 0xFF, 0xFF}, 2), SizeIs(2));
}

TEST_F(SpiTest, ALongProgramKeepsItsLastPage)
{
    MakeBus();
    Transfer({0x06});
    Bytes lData = {0x02, 0, 0, 0xFF};
    Bytes lMore;
    for (int lByte = 0; lByte < 258; ++lByte)
    {
        (lByte < 200 ? lData : lMore).push_back(static_cast<uint8_t>(lByte & 0x7F));
    }
    Transfer(lData, 0, false, false);
    Transfer(lMore);
    const std::vector<uint8_t> lContents = mFlash->GetContents();
    EXPECT_EQ(lContents[0xFF], 0); // byte 256 in place of byte 0
    EXPECT_EQ(lContents[0x00], 1); // byte 257 in place of byte 1
    EXPECT_EQ(lContents[0x01], 2);
    EXPECT_EQ(lContents[0xFE], 255 & 0x7F);
}

TEST_F(SpiTest, TheFlashErasesSectorsAndItself)
{
    MakeBus();
    mFlash->SetContents(std::vector<uint8_t>(70000, 0));
    Transfer({0x06});
    Transfer({0x20, 0, 0x1F, 0xFF});
    EXPECT_THAT(Transfer({0x05}, 1), ElementsAre(1));
    EXPECT_THAT(Transfer({0x03, 0, 0x10, 0}, 1), ElementsAre(0xFF)); // busy: not driven
    EXPECT_THAT(Transfer({0x9F}, 1), ElementsAre(0xFF));
    mClock->Advance(50ms);
    const std::vector<uint8_t> lContents = mFlash->GetContents();
    EXPECT_EQ(std::count(lContents.begin(), lContents.end(), 0xFF), 4096);
    EXPECT_EQ(lContents[0x1000], 0xFF);
    EXPECT_EQ(lContents[0x0FFF], 0);
    EXPECT_EQ(lContents[0x2000], 0);
    Transfer({0x06});
    Transfer({0xC7, 1}); // one byte too many
    EXPECT_THAT(Transfer({0x05}, 1), ElementsAre(2));
    Transfer({0xC7});
    EXPECT_THAT(Transfer({0x05}, 1), ElementsAre(1));
    mClock->Advance(500ms);
    EXPECT_THAT(mFlash->GetContents(), Each(0xFF));
}

TEST_F(SpiTest, TheFlashIgnoresUnknownAndIncompleteCommands)
{
    MakeBus();
    EXPECT_THAT(Transfer({0xAB}, 2), ElementsAre(0xFF, 0xFF));
    Transfer({0x06});
    Transfer({0x02, 0, 0});
    Transfer({0x02, 0, 0, 0});
    Transfer({0x20, 0});
    EXPECT_THAT(Transfer({0x05}, 1), ElementsAre(2)); // nothing began
    EXPECT_THAT(Transfer({0x9F}, 5), ElementsAre(0xEF, 0x30, 0x10, 0xFF, 0xFF));
}
