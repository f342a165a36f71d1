#include "BridgeCLDLL.h"
#include "KySerial/BridgeFixture.h"
#include "Tests/Support/PrivateSession.h"

#include <fstream>

using namespace KyTest;
using KySerialLib::BridgeCLDLL;

namespace
{

// The folder of a session belongs to its user; here something else has its name.
class RegistryObstacleTest : public EngineTest
{
protected:
    const PrivateSession mSession;
    const std::string mFolder =
        "/dev/shm/" + mSession.GetToken() + "/Session-" + std::to_string(PrivateSession::cFirstNumber);
};

TEST_F(RegistryObstacleTest, IsNamedInTheLogOfAServerThatCannotBe)
{
    AddSettings(mDevice, "Bulk1");
    std::ofstream(mFolder) << "in the way";
    BridgeCLDLL lBridge;
    ASSERT_THAT(lBridge.OpenDevicePort(&mDevice, KyDeviceSerialBulk1), IsOK());
    Forget();
    EXPECT_FALSE(lBridge.OpenSharedMem("Server").IsOK());
    static_cast<void>(mAsserts.Take()); // of the registry's lock, which a debug build expects to be there
    EXPECT_THAT(mLog.Take(),
                testing::Contains(
                    LogLine{PriorityError, "KySerialLib::BridgeCLDLL::OpenSharedMem",
                            "The registry of servers cannot be used: " + mFolder + " is not a folder."}));
}

} // namespace
