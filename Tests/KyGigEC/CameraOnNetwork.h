#pragma once

#include "Support/WaitFor.h"

#include <KyGigEC/kygige.h>
#include <KySerialC/kyserial.h>
#include <Simulator/Camera/CameraModel.h>
#include <Simulator/Network/NetworkCamera.h>
#include <Simulator/Peers/LensController.h>

#include <gtest/gtest.h>

#include <memory>
#include <string>

#define EXPECT_OK(aCall) EXPECT_CODE(aCall, KY_OK)
#define EXPECT_CODE(aCall, aExpected)                                                                        \
    EXPECT_EQ(static_cast<KyCode>(aCall), static_cast<KyCode>(aExpected)) << KyGetLastText()

namespace KyTest
{

/// Time for what is sure to come; only a failing test waits that long.
constexpr uint32_t cPatience = 60000;

/// A simulated camera with a lens on its first UART and on bulk port 1, at a port that the system chooses.
class CameraOnNetwork
{
public:
    explicit CameraOnNetwork(const KySimulator::NetworkPlace& aPlace = {{0x7F000001, 0}, false})
        : mModel(std::make_shared<KySimulator::CameraModel>(Configuration())), mCamera(mModel, aPlace)
    {
        mModel->Plug(KySimulator::Port::Uart0, std::make_shared<KySimulator::LensController>());
        mModel->Plug(KySimulator::Port::Bulk1, std::make_shared<KySimulator::LensController>());
        EXPECT_TRUE(mCamera.Start()) << mCamera.GetError();
    }

    std::string Name() { return "gev://" + KyGvcp::EndpointText(mCamera.GetEndpoint()); }

    const std::shared_ptr<KySimulator::CameraModel> mModel;
    KySimulator::NetworkCamera mCamera;

private:
    static KySimulator::CameraConfiguration Configuration()
    {
        KySimulator::CameraConfiguration lConfiguration;
        lConfiguration.mUnlimitedLineRate = true;
        return lConfiguration;
    }
};

/// Options with which nobody is lost for want of a processor, and a lost camera is noticed soon.
inline KyCameraOptions QuickOptions()
{
    KyCameraOptions lOptions{};
    EXPECT_OK(KyCameraOptionsInit(&lOptions));
    lOptions.mHeartbeatPeriod = 20;
    lOptions.mTimeout = 20;
    lOptions.mAttempts = 100;
    return lOptions;
}

inline KyCameraHandle Open(const std::string& aName, const KyCameraOptions& aOptions = QuickOptions())
{
    KyCameraHandle lCamera = 0;
    EXPECT_OK(KyCameraOpen(aName.c_str(), &aOptions, &lCamera));
    return lCamera;
}

inline KyDeviceHandle DeviceOf(KyCameraHandle aCamera)
{
    KyDeviceHandle lDevice = 0;
    EXPECT_OK(KyCameraGetDevice(aCamera, &lDevice));
    return lDevice;
}

/// What the lens on a port says about itself; empty when it says nothing.
inline std::string AskLens(KyPortHandle aPort)
{
    uint32_t lCount = 0;
    EXPECT_OK(KyPortWrite(aPort, reinterpret_cast<const uint8_t*>("ID?\r\n"), 5, &lCount));
    std::string lAnswer;
    uint8_t lByte = 0;
    while (lAnswer.find('\n') == std::string::npos &&
           KyPortRead(aPort, &lByte, 1, &lCount, cPatience) == KY_OK)
    {
        lAnswer.append(lCount, static_cast<char>(lByte));
    }
    return lAnswer;
}

inline KyCameraState StateOf(KyCameraHandle aCamera)
{
    KyCameraState lState{};
    lState.mSize = sizeof lState;
    EXPECT_OK(KyCameraGetState(aCamera, &lState));
    return lState;
}

inline bool WaitForConnection(KyCameraHandle aCamera, bool aConnected)
{
    return WaitFor([&] { return (StateOf(aCamera).mIsConnected != 0) == aConnected; });
}

/// The library's log is silent while the object lives: for tests of failures.
class QuietLog
{
public:
    QuietLog() { KyLogSetPriority(KY_LOG_FATAL + 1); }
    ~QuietLog() { KyLogSetPriority(KY_LOG_WARNING); }
    QuietLog(const QuietLog&) = delete;
    QuietLog& operator=(const QuietLog&) = delete;
};

} // namespace KyTest
