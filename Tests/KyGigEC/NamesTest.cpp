// Opening a camera by what it is called: it is searched for at the usual UDP port, by broadcasts on a network of the test's own.

#include "CameraOnNetwork.h"
#include "GigE/NetworkNamespace.h"

using namespace KyTest;

namespace
{

KyCameraOptions LoopbackOptions()
{
    KyCameraOptions lOptions = QuickOptions();
    lOptions.mInterface = "127.0.0.1";
    lOptions.mSearchTime = 300;
    return lOptions;
}

void FindByEachName()
{
    CameraOnNetwork lThere({{0x7F000001, KyGvcp::cControlPort}, true});
    KyCameraSearch lSearch{};
    EXPECT_OK(KyCameraSearchInit(&lSearch));
    lSearch.mAddress = "127.0.0.1";
    lSearch.mTime = cPatience;
    std::vector<std::string> lNames;
    EXPECT_OK(KyCameraFind(
        &lSearch,
        [](void* aContext, const KyFoundCamera* aCamera)
        {
            auto& lInto = *static_cast<std::vector<std::string>*>(aContext);
            lInto = {aCamera->mMac, aCamera->mSerialNumber, aCamera->mModel, "127.0.0.1"};
        },
        &lNames, nullptr));
    ASSERT_EQ(lNames.size(), 4U);
    for (const std::string& lName : lNames)
    {
        ASSERT_NE(lName, "");
        EXPECT_OK(KyCameraClose(Open(lName, LoopbackOptions())));
    }
}

TEST(KyCameraNamesC, ACameraIsFoundByWhatItIsCalled)
{
    NetworkNamespace lNetwork; // beside other interfaces, broadcasts do not stay on the loopback one
    if (!lNetwork.GetError().empty())
    {
        GTEST_SKIP() << lNetwork.GetError();
    }
    lNetwork.Run(FindByEachName);
}

TEST(KyCameraNamesC, NobodyHasTheName)
{
    const QuietLog lQuiet;
    KyCameraHandle lCamera = 7;
    KyCameraOptions lOptions = LoopbackOptions();
    lOptions.mSearchTime = 1;
    EXPECT_CODE(KyCameraOpen("no such camera", &lOptions, &lCamera), KY_NO_CONNECTION);
    EXPECT_EQ(lCamera, 0U);
    EXPECT_NE(std::string(KyGetLastText()).find("\"no such camera\""), std::string::npos) << KyGetLastText();
}

} // namespace
