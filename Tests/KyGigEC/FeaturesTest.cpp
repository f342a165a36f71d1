// Features of a camera on the network through the C interface.

#include "CameraOnNetwork.h"
#include "GigE/FakeSpace.h"
#include "GigE/ScriptedDevice.h"

#include <map>
#include <vector>

using namespace KyTest;

namespace
{

struct Seen
{
    int32_t mKind = 0;
    int32_t mAccess = 0;
    std::string mTexts{};
};
using Features = std::map<std::string, Seen>;

void Collect(void* aContext, const KyFeature* aFeature)
{
    EXPECT_EQ(aFeature->mSize, sizeof(KyFeature));
    (*static_cast<Features*>(aContext))[aFeature->mName] = {
        aFeature->mKind, aFeature->mAccess,
        std::string(aFeature->mCategory) + '/' + aFeature->mVisibility + '/' + aFeature->mToolTip};
}

std::string Get(KyCameraHandle aCamera, const char* aName)
{
    char lText[64] = "";
    uint32_t lSize = sizeof lText;
    EXPECT_OK(KyCameraGetFeature(aCamera, aName, lText, &lSize));
    return lText;
}

TEST(KyCameraFeaturesC, AreListedReadAndWritten)
{
    CameraOnNetwork lThere;
    const KyCameraHandle lCamera = Open(lThere.Name());
    Features lFeatures;
    uint32_t lCount = 0;
    EXPECT_OK(KyCameraListFeatures(lCamera, &Collect, &lFeatures, &lCount));
    EXPECT_EQ(lCount, lFeatures.size());
    ASSERT_EQ(lFeatures.count("BulkSelector"), 1U);
    EXPECT_EQ(lFeatures["BulkSelector"].mKind, KY_FEATURE_ENUMERATION);
    EXPECT_EQ(lFeatures["BulkSelector"].mAccess, KY_ACCESS_AVAILABLE | KY_ACCESS_READ | KY_ACCESS_WRITE);
    EXPECT_EQ(lFeatures["DeviceVendorName"].mKind, KY_FEATURE_STRING);
    EXPECT_EQ(lFeatures["DeviceVendorName"].mAccess, KY_ACCESS_AVAILABLE | KY_ACCESS_READ);
    EXPECT_OK(KyCameraSetFeature(lCamera, "BulkSelector", "Bulk3"));
    EXPECT_EQ(Get(lCamera, "BulkSelector"), "Bulk3");
    std::vector<std::string> lEntries;
    EXPECT_OK(KyCameraListEntries(
        lCamera, "BulkSelector",
        [](void* aContext, const char* aEntry)
        { static_cast<std::vector<std::string>*>(aContext)->emplace_back(aEntry); },
        &lEntries));
    EXPECT_EQ(lEntries.size(), 8U);
    EXPECT_EQ(lEntries.at(3), "Bulk3");
    EXPECT_OK(KyCameraClose(lCamera));
}

TEST(KyCameraFeaturesC, ATextThatDoesNotFitSaysItsSize)
{
    CameraOnNetwork lThere;
    const KyCameraHandle lCamera = Open(lThere.Name());
    uint32_t lSize = 0;
    EXPECT_CODE(KyCameraGetFeature(lCamera, "DeviceVendorName", nullptr, &lSize), KY_BUFFER_TOO_SMALL);
    EXPECT_EQ(lSize, sizeof "Korvo");
    EXPECT_OK(KyCameraClose(lCamera));
}

TEST(KyCameraFeaturesC, FailuresHaveTheAdaptersCodes)
{
    const QuietLog lQuiet;
    CameraOnNetwork lThere;
    const KyCameraHandle lCamera = Open(lThere.Name());
    const auto lIgnore = [](void*, const char*) { ADD_FAILURE(); };
    const auto lNothing = [](void*, const KyFeature*) { ADD_FAILURE(); };
    char lText[64];
    uint32_t lSize = sizeof lText;
    EXPECT_CODE(KyCameraGetFeature(lCamera, "NoSuchFeature", lText, &lSize), 0x8001);
    EXPECT_CODE(KyCameraSetFeature(lCamera, "NoSuchFeature", "1"), 0x8001);
    EXPECT_CODE(KyCameraSetFeature(lCamera, "BulkSelector", "Bulk9"), 0x8002);
    EXPECT_CODE(KyCameraSetFeature(lCamera, "DeviceVendorName", "Mine"), 0x8004);
    EXPECT_CODE(KyCameraExecute(lCamera, "NoSuchFeature"), 0x8001);
    EXPECT_CODE(KyCameraExecute(lCamera, "BulkSelector"), 0x8002);
    EXPECT_CODE(KyCameraListEntries(lCamera, "NoSuchFeature", lIgnore, nullptr), 0x8001);
    EXPECT_CODE(KyCameraListEntries(lCamera, "DeviceVendorName", lIgnore, nullptr), 0x8002);
    EXPECT_CODE(KyCameraDescribeFeature(lCamera, "NoSuchFeature", lNothing, nullptr), KY_UNSUPPORTED);
    EXPECT_OK(KyCameraClose(lCamera));
}

// Its commands and its unlisted features are what the simulated camera lacks.
TEST(KyCameraFeaturesC, ACommandIsExecutedAndWhatIsNotListedIsDescribed)
{
    ScriptedDevice lDevice(Description(
        "<Category Name=\"Root\"><pFeature>Start</pFeature></Category>"
        "<Command "
        "Name=\"Start\"><ToolTip>Goes.</ToolTip><Visibility>Expert</Visibility><pValue>Hidden</pValue>"
        "<CommandValue>42</CommandValue></Command>" +
        IntReg("Hidden", "0x20000")));
    const KyCameraHandle lCamera = Open("127.0.0.1:" + std::to_string(lDevice.GetPort()));
    Features lFeatures;
    EXPECT_OK(KyCameraListFeatures(lCamera, &Collect, &lFeatures, nullptr));
    EXPECT_EQ(lFeatures.size(), 1U);
    EXPECT_OK(KyCameraDescribeFeature(lCamera, "Start", &Collect, &lFeatures));
    EXPECT_EQ(lFeatures["Start"].mKind, KY_FEATURE_COMMAND);
    EXPECT_NE(lFeatures["Start"].mAccess & KY_ACCESS_WRITE, 0);
    EXPECT_EQ(lFeatures["Start"].mTexts, "Root/Expert/Goes.");
    EXPECT_OK(KyCameraDescribeFeature(lCamera, "Hidden", &Collect, &lFeatures));
    EXPECT_EQ(lFeatures["Hidden"].mKind, KY_FEATURE_INTEGER);
    EXPECT_EQ(lFeatures["Hidden"].mTexts, "//");
    EXPECT_OK(KyCameraExecute(lCamera, "Start"));
    EXPECT_EQ(Get(lCamera, "Hidden"), "42");
    EXPECT_OK(KyCameraClose(lCamera));
}

} // namespace
