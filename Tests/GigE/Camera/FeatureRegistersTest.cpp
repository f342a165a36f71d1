#include <Simulator/Network/FeatureRegisters.h>
#include <Simulator/Time/ManualScheduler.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>

namespace
{

using namespace KySimulator;
using testing::ElementsAre;

class FeatureRegistersTest : public testing::Test
{
protected:
    void Make()
    {
        mCamera = std::make_unique<CameraModel>(mConfiguration, std::make_shared<ManualScheduler>());
        mRegisters = std::make_unique<FeatureRegisters>(*mCamera);
    }
    const FeatureRegister& Find(const std::string& aName) const
    {
        const auto& lList = mRegisters->GetList();
        const auto lFound =
            std::find_if(lList.begin(), lList.end(),
                         [&](const FeatureRegister& aRegister) { return aRegister.mName == aName; });
        EXPECT_NE(lList.end(), lFound) << aName;
        return lFound != lList.end() ? *lFound : lList.front();
    }
    uint32_t Read(uint32_t aAddress) const
    {
        uint32_t lValue = 0;
        EXPECT_TRUE(mRegisters->ReadWord(aAddress, lValue).IsOk()) << std::hex << aAddress;
        return lValue;
    }
    /// The refusal of a read, which must not give a value.
    KySimulator::Status RefusalOf(uint32_t aAddress) const
    {
        uint32_t lValue = 1;
        const KySimulator::Status lStatus = mRegisters->ReadWord(aAddress, lValue).mStatus;
        EXPECT_EQ(0U, lValue);
        return lStatus;
    }

    CameraConfiguration mConfiguration;
    std::unique_ptr<CameraModel> mCamera;
    std::unique_ptr<FeatureRegisters> mRegisters;
};

TEST_F(FeatureRegistersTest, OnlySettingsAndMessagesHaveAnAddress)
{
    Make();
    EXPECT_NE(0U, Find("BulkParity").mAddress);
    EXPECT_EQ(4U, Find("BulkParity").mLength);
    EXPECT_NE(0U, Find("Bulk3DownstreamData").mAddress);
    EXPECT_EQ(mCamera->GetConfiguration().mDownstreamLength, Find("Bulk3DownstreamData").mLength);
    for (const char* const lName : {"DeviceVendorName", "DeviceUserID", "EventBulk3UpstreamDataBuffer",
                                    "EventBulk3UpstreamDataLength", "GevMACAddress"})
    {
        EXPECT_EQ(0U, Find(lName).mAddress) << lName;
    }
    EXPECT_FALSE(mRegisters->Contains(0)) << "features without an address are not found there";
}

TEST_F(FeatureRegistersTest, AWordIsThePositionOfTheEntry)
{
    Make();
    const FeatureRegister& lParity = Find("BulkParity");
    EXPECT_THAT(lParity.mEntries, ElementsAre("None", "Even", "Odd"));
    EXPECT_EQ(0U, Read(lParity.mAddress));
    EXPECT_TRUE(mRegisters->WriteWord(lParity.mAddress, 2).IsOk());
    EXPECT_EQ(2U, Read(lParity.mAddress));
    std::string lText;
    EXPECT_TRUE(mCamera->GetText("BulkParity", lText).IsOk());
    EXPECT_EQ("Odd", lText);
    const Outcome lRefusal = mRegisters->WriteWord(lParity.mAddress, 3);
    EXPECT_EQ(KySimulator::Status::InvalidParameter, lRefusal.mStatus);
    EXPECT_EQ("The feature BulkParity has no such entry.", lRefusal.mText);
    EXPECT_EQ(2U, Read(lParity.mAddress));
}

// The description of the device is one for all ports: the numbers of the modes must not depend on the selected one.
TEST_F(FeatureRegistersTest, ModesKeepTheirNumbersOnAPortThatLacksSome)
{
    mConfiguration.mBulk[0] = {true, false, false, true, false, Protocol::I2C};
    Make();
    const FeatureRegister& lMode = Find("BulkMode");
    EXPECT_THAT(lMode.mEntries, ElementsAre("UART", "USRT", "I2C", "SPI"));
    EXPECT_EQ(2U, Read(lMode.mAddress));
    EXPECT_EQ(1U << 2U, Read(FeatureRegisters::GetModeMaskAddress()));
    EXPECT_EQ(KySimulator::Status::InvalidParameter, mRegisters->WriteWord(lMode.mAddress, 0).mStatus);
}

TEST_F(FeatureRegistersTest, TheMaskOfModesIsThereWithBulkPortsAndCannotBeWritten)
{
    Make();
    const uint32_t lMask = FeatureRegisters::GetModeMaskAddress();
    EXPECT_TRUE(mRegisters->Contains(lMask));
    EXPECT_EQ(KySimulator::Status::WriteProtect, mRegisters->WriteWord(lMask, 1).mStatus);
    for (BulkPortConfiguration& lBulk : mConfiguration.mBulk)
    {
        lBulk.mFeatures = false;
    }
    Make();
    EXPECT_FALSE(mRegisters->Contains(lMask));
    EXPECT_EQ(KySimulator::Status::NotImplemented, RefusalOf(lMask));
}

TEST_F(FeatureRegistersTest, AMessageIsWrittenInOnePieceAndNotRead)
{
    Make();
    const uint32_t lAddress = Find("Bulk3DownstreamData").mAddress;
    EXPECT_TRUE(mRegisters->IsMessage(lAddress));
    EXPECT_FALSE(mRegisters->IsMessage(lAddress + 4)) << "a message begins at its address";
    EXPECT_FALSE(mRegisters->IsMessage(Find("BulkParity").mAddress));
    EXPECT_EQ(KySimulator::Status::AccessDenied, RefusalOf(lAddress));
    EXPECT_EQ(KySimulator::Status::InvalidAddress, mRegisters->WriteWord(lAddress, 1).mStatus);

    const std::vector<uint8_t> lMessage = {0, 0, 0, 0, 0, 0, 0, 1, 'x', 0, 0, 0};
    EXPECT_TRUE(mRegisters->WriteMessage(lAddress, lMessage).IsOk());
    EXPECT_EQ(KySimulator::Status::InvalidParameter, mRegisters->WriteMessage(lAddress, {}).mStatus);
    const std::vector<uint8_t> lLong(mCamera->GetConfiguration().mDownstreamLength + 1);
    EXPECT_EQ(KySimulator::Status::InvalidParameter, mRegisters->WriteMessage(lAddress, lLong).mStatus);
    EXPECT_EQ(KySimulator::Status::InvalidAddress, mRegisters->WriteMessage(lAddress + 4, lMessage).mStatus);
    EXPECT_EQ(KySimulator::Status::InvalidAddress,
              mRegisters->WriteMessage(Find("BulkParity").mAddress, lMessage).mStatus);
}

TEST_F(FeatureRegistersTest, OtherAddressesHaveNothing)
{
    Make();
    const uint32_t lParity = Find("BulkParity").mAddress;
    for (const uint32_t lAddress : {0U, 4U, lParity + 1, lParity + 0x1000, 0xFFFFFFFFU})
    {
        EXPECT_FALSE(mRegisters->Contains(lAddress)) << lAddress;
        EXPECT_EQ(KySimulator::Status::InvalidAddress, RefusalOf(lAddress)) << lAddress;
        EXPECT_EQ(KySimulator::Status::InvalidAddress, mRegisters->WriteWord(lAddress, 0).mStatus)
            << lAddress;
    }
}

} // namespace
