#include "kyserial/Bus/SpiBus.h"

#include "Simulator/Camera/Faults.h"
#include "Simulator/Camera/SimulatedDeviceAdapter.h"
#include "kyserial/Options/Options.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

namespace
{

using namespace KySerialTool;
using namespace KySimulator;

using Steps = std::vector<SpiStep>;
using SpiBytes = std::vector<uint8_t>;

TEST(SplitSpiTransferTest, SmallTransfersAreOneStep)
{
    EXPECT_EQ((Steps{{1, 3}}), SplitSpiTransfer(1, 3, false, 255));
    EXPECT_EQ((Steps{{255, 255}}), SplitSpiTransfer(255, 255, false, 255));
    EXPECT_EQ((Steps{{0, 5}}), SplitSpiTransfer(0, 5, false, 255));
    EXPECT_EQ((Steps{{5, 5}}), SplitSpiTransfer(5, 0, true, 255));
}

TEST(SplitSpiTransferTest, WritesComeBeforeReads)
{
    EXPECT_EQ((Steps{{255, 0}, {5, 255}, {0, 45}}), SplitSpiTransfer(260, 300, false, 255));
    EXPECT_EQ((Steps{{10, 0}, {10, 0}}), SplitSpiTransfer(20, 0, false, 10));
}

TEST(SplitSpiTransferTest, SimultaneousStepsReadWhatTheyWrite)
{
    EXPECT_EQ((Steps{{255, 255}, {1, 1}}), SplitSpiTransfer(256, 0, true, 255));
}

/// Answers each byte with the next number.
class CountingDevice final : public SpiDevice
{
public:
    void OnSelect(Time /*aNow*/) override { mNext = 1; }
    uint8_t OnExchange(uint8_t /*aByte*/, Time /*aNow*/) override { return mNext++; }
    void OnRelease(Time /*aNow*/) override {}

private:
    uint8_t mNext = 0;
};

class SpiBusTest : public testing::Test
{
protected:
    /// \param aDownstream  Length of the feature that messages are written to.
    void Make(uint32_t aDownstream)
    {
        ApplyLogOptions(CommonOptions()); // opening a bus breaks an assertion of the library
        CameraConfiguration lConfiguration;
        lConfiguration.mUnlimitedLineRate = true;
        lConfiguration.mDownstreamLength = aDownstream;
        mCamera = std::make_shared<CameraModel>(lConfiguration);
        mCamera->PlugSpi(Port::Bulk3, mWires);
        mAdapter = std::make_unique<SimulatedDeviceAdapter>(mCamera);
        mBus = std::make_unique<SpiBus>(*mAdapter, KyDeviceSerialBulk3);
    }

    const std::shared_ptr<SpiBusPeer> mWires =
        std::make_shared<SpiBusPeer>(std::make_shared<CountingDevice>());
    std::shared_ptr<CameraModel> mCamera;
    std::unique_ptr<SimulatedDeviceAdapter> mAdapter;
    std::unique_ptr<SpiBus> mBus;
};

TEST_F(SpiBusTest, AWriteComesBeforeItsRead)
{
    Make(1024);
    EXPECT_EQ((SpiBytes{3, 4, 5}), mBus->Transfer({0x9F, 0}, 3));
    const std::vector<SpiTransfer> lTransfers = mWires->GetTransfers();
    ASSERT_EQ(1U, lTransfers.size());
    EXPECT_EQ((SpiBytes{0x9F, 0, 0, 0, 0}), lTransfers[0].mOut);
    EXPECT_TRUE(lTransfers[0].mReleased);
}

TEST_F(SpiBusTest, ASimultaneousTransferReadsWhatComesWhileItWrites)
{
    Make(1024);
    EXPECT_EQ((SpiBytes{1, 2}), mBus->Transfer({0x9F, 0}, 0, {true, false}));
}

TEST_F(SpiBusTest, AHeldSlaveStaysSelectedForTheNextTransfer)
{
    Make(1024);
    EXPECT_EQ(SpiBytes(), mBus->Transfer({1, 2}, 0, {false, true}));
    EXPECT_TRUE(mWires->IsSelected());
    EXPECT_EQ((SpiBytes{3}), mBus->Transfer({}, 1)) << "the slave goes on counting";
    EXPECT_FALSE(mWires->IsSelected());
}

// A device may take short messages only. The library would split a longer step into messages that each read again.
TEST_F(SpiBusTest, StepsFitTheDevicesMessages)
{
    Make(12 + 8);
    const SpiBytes lRead = mBus->Transfer(SpiBytes(20, 0x55), 20);
    ASSERT_EQ(20U, lRead.size());
    EXPECT_EQ(21, lRead.front());
    EXPECT_EQ(40, lRead.back());
    ASSERT_EQ(1U, mWires->GetTransfers().size()) << "one transfer to the slave";
    EXPECT_EQ(40U, mWires->GetTransfers()[0].mOut.size());
}

TEST_F(SpiBusTest, AFailureNamesThePort)
{
    Make(1024);
    mAdapter->GetFaults().Disconnect();
    try
    {
        mBus->Transfer({1}, 0);
        ADD_FAILURE() << "nothing was thrown";
    }
    catch (const OperationError& lError)
    {
        EXPECT_EQ(0U, std::string(lError.what()).find("bulk3: SPI transfer failed: NO_CONNECTION"))
            << lError.what();
    }
}

} // namespace
