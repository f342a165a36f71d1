// Looking for cameras through the C interface.

#include "CameraOnNetwork.h"

#include <map>
#include <vector>

using namespace KyTest;

namespace
{

using Texts = std::map<std::string, std::string>;

void Collect(void* aContext, const KyFoundCamera* aCamera)
{
    EXPECT_EQ(aCamera->mSize, sizeof(KyFoundCamera));
    static_cast<std::vector<Texts>*>(aContext)->push_back({{"device", aCamera->mDevice},
                                                           {"address", aCamera->mAddress},
                                                           {"port", std::to_string(aCamera->mPort)},
                                                           {"mac", aCamera->mMac},
                                                           {"serial", aCamera->mSerialNumber},
                                                           {"name", aCamera->mUserName},
                                                           {"vendor", aCamera->mVendor},
                                                           {"model", aCamera->mModel},
                                                           {"control", std::to_string(aCamera->mControl)},
                                                           {"controller", aCamera->mController},
                                                           {"of", std::to_string(aCamera->mControllerPort)}});
}

/// A search that asks one camera.
KyCameraSearch SearchFor(CameraOnNetwork& aCamera)
{
    KyCameraSearch lSearch{};
    EXPECT_OK(KyCameraSearchInit(&lSearch));
    lSearch.mAddress = "127.0.0.1";
    lSearch.mPort = aCamera.mCamera.GetEndpoint().mPort;
    lSearch.mTime = cPatience; // the answer ends the search
    return lSearch;
}

TEST(KyCameraFindC, ACameraSaysWhatItIsAndWhoControlsIt)
{
    CameraOnNetwork lThere;
    KyCameraSearch lSearch = SearchFor(lThere);
    std::vector<Texts> lFound;
    uint32_t lCount = 7;
    EXPECT_OK(KyCameraFind(&lSearch, &Collect, &lFound, &lCount));
    EXPECT_EQ(lCount, 1U);
    ASSERT_EQ(lFound.size(), 1U);
    const std::string lPort = std::to_string(lSearch.mPort);
    EXPECT_EQ(lFound[0]["device"], lThere.Name());
    EXPECT_EQ(lFound[0]["address"] + ':' + lFound[0]["port"], "127.0.0.1:" + lPort);
    EXPECT_EQ(lFound[0]["vendor"], "Korvo");
    EXPECT_EQ(lFound[0]["mac"].size(), 17U);
    EXPECT_NE(lFound[0]["serial"], "");
    EXPECT_EQ(lFound[0]["control"], std::to_string(KY_CONTROL_FREE));

    const KyCameraHandle lCamera = Open(lThere.Name());
    lFound.clear();
    EXPECT_OK(KyCameraFind(&lSearch, &Collect, &lFound, nullptr));
    ASSERT_EQ(lFound.size(), 1U);
    EXPECT_EQ(lFound[0]["control"], std::to_string(KY_CONTROL_TAKEN));
    EXPECT_EQ(lFound[0]["controller"] + ':' + lFound[0]["of"],
              KyGvcp::EndpointText(lThere.mCamera.GetController()));
    lSearch.mAskControl = 0;
    lFound.clear();
    EXPECT_OK(KyCameraFind(&lSearch, &Collect, &lFound, nullptr));
    ASSERT_EQ(lFound.size(), 1U);
    EXPECT_EQ(lFound[0]["control"], std::to_string(KY_CONTROL_UNKNOWN));
    EXPECT_OK(KyCameraClose(lCamera));
}

TEST(KyCameraFindC, ItSaysWhatIsWrong)
{
    const QuietLog lQuiet;
    CameraOnNetwork lThere;
    KyCameraSearch lSearch = SearchFor(lThere);
    uint32_t lCount = 7;
    lSearch.mPort = 65536;
    EXPECT_CODE(KyCameraFind(&lSearch, nullptr, nullptr, &lCount), KY_BAD_PARAMETER);
    EXPECT_EQ(lCount, 0U);
    lSearch.mPort = 0;
    EXPECT_CODE(KyCameraFind(&lSearch, nullptr, nullptr, &lCount), KY_BAD_PARAMETER);
    lSearch = SearchFor(lThere);
    lSearch.mInterface = "none7";
    EXPECT_CODE(KyCameraFind(&lSearch, nullptr, nullptr, &lCount), KY_FAILURE);
    EXPECT_NE(std::string(KyGetLastText()).find("none7"), std::string::npos) << KyGetLastText();
    lSearch = SearchFor(lThere);
    lThere.mCamera.Unplug();
    lSearch.mTime = 1;
    EXPECT_OK(KyCameraFind(&lSearch, &Collect, nullptr, &lCount)); // none answers: Collect is not called
    EXPECT_EQ(lCount, 0U);
}

} // namespace
