#include "KyBase/KyPermanent.h"
#include "KySerial/KyDeviceI2CBus.h"
#include "KySerial/KyDeviceSPIBus.h"
#include "KySerial/KyDeviceSerialPort.h"
#include "KySerial/KySerialBridge.h"
#include "Support/PrivateSession.h"
#include "Support/ScriptedAdapter.h"
#include "Support/UniqueName.h"
#include "clserzmo/clser.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>

// A program that ends with something open or kept. Its static objects are made before the library has made
// anything, and so they are destroyed after everything that the library would destroy.

namespace
{

// Ends the program as failed: destructors of static objects have no other way.
void Require(bool aHolds, const char* aWhat)
{
    if (!aHolds)
    {
        std::fprintf(stderr, "not so: %s\n", aWhat);
        std::fflush(stderr);
        std::_Exit(1);
    }
}

KyTest::ScriptedAdapter& Camera()
{
    static KyPermanent<KyTest::ScriptedAdapter> sCamera;
    return sCamera.Get();
}

// The last of all static objects to go.
class Last
{
public:
    Last() = default;
    Last(const Last&) = delete;
    Last& operator=(const Last&) = delete;
    ~Last()
    {
        if (mCheck)
        {
            mCheck();
        }
    }

    std::function<void()> mCheck;
    std::optional<PrivateSession> mSession; // for servers and clients
};

Last gLast;
std::unique_ptr<KyDeviceSerialPort> gPort;
std::unique_ptr<KyDeviceI2CBus> gI2CBus;
std::unique_ptr<KyDeviceSPIBus> gSPIBus;
std::unique_ptr<KySerialBridge> gBridge;

void CheckReleased(KyDeviceSerial aPort)
{
    Require(Camera().GetSinks().empty(), "what was open has withdrawn itself from the camera");
    KyDeviceSerialPort lPort;
    Require(lPort.Open(&Camera(), aPort).IsOK(), "what was open has released its port");
    Require(lPort.Close().IsOK(), "a port opened at the end can be closed");
}

void LeavePort(KyDeviceSerial aPort)
{
    gLast.mCheck = [aPort] { CheckReleased(aPort); };
    gPort = std::make_unique<KyDeviceSerialPort>();
    Require(gPort->Open(&Camera(), aPort).IsOK(), "the port opens");
}

void LeaveI2CBus()
{
    gLast.mCheck = [] { CheckReleased(KyDeviceSerialBulk0); };
    gI2CBus = std::make_unique<KyDeviceI2CBus>();
    Require(gI2CBus->Open(&Camera(), KyDeviceSerialBulk0).IsOK(), "the I2C bus opens");
}

void LeaveSPIBus()
{
    gLast.mCheck = [] { CheckReleased(KyDeviceSerialBulk1); };
    gSPIBus = std::make_unique<KyDeviceSPIBus>();
    Require(gSPIBus->Open(&Camera(), KyDeviceSerialBulk1).IsOK(), "the SPI bus opens");
}

void LeaveBridge()
{
    gLast.mSession.emplace();
    gLast.mCheck = [] { CheckReleased(KyDeviceSerialBulk1); };
    gBridge = std::make_unique<KySerialBridge>();
    const std::string lName = UniqueName("End");
    Require(gBridge->Start(lName.c_str(), &Camera(), KyDeviceSerialBulk1).IsOK(), "the bridge starts");
}

void OpenAtEnd()
{
    const auto lOpenEach = []
    {
        CheckReleased(KyDeviceSerialUart0);
        CheckReleased(KyDeviceSerialBulk0);
        CheckReleased(KyDeviceSerialBulk1);
    };
    gLast.mCheck = lOpenEach;
    lOpenEach(); // makes what ports need, which must still be there at the end
}

void LeaveUnsupportedDevice()
{
    Camera().Fail(KyTest::Slot::ReadRegister);
    const auto lIsSupported = [] { return KyDeviceSerialPort::IsSupported(&Camera(), KyDeviceSerialUart0); };
    gLast.mCheck = [lIsSupported]
    {
        Camera().ClearCounts();
        Require(!lIsSupported(), "the camera does not answer");
        Require(Camera().GetCallCount(KyTest::Slot::ReadRegister) == 0,
                "a camera that did not answer is still known at the end");
    };
    Require(!lIsSupported(), "the camera does not answer");
}

void LeaveCodeTexts()
{
    const char* const lText = KyResult(KyResult::TIMED_OUT);
    const KyString& lKnown = KyResult(KyResult::BAD_PARAMETER).GetCodeString();
    const KyString& lUnknown = KyResult(0x7777).GetCodeString();
    gLast.mCheck = [lText, &lKnown, &lUnknown]
    {
        Require(std::strcmp(lText, "TIMED_OUT") == 0, "the C text of a code is there until the end");
        Require(lKnown == "BAD_PARAMETER", "the text of a code is there until the end");
        Require(lUnknown == "UNKNOWN", "the text of an unknown code is there until the end");
        Require(std::strcmp(KyResult(KyResult::FAILURE), "FAILURE") == 0, "so are the others");
    };
}

// A client's port that one static object has opened and another one closes.
void LeaveClient()
{
    LeaveBridge();
    hSerRef lPort = nullptr;
    Require(clSerialInit(0, &lPort) == CL_ERR_NO_ERR, "the client attaches");
    gLast.mCheck = [lPort]
    {
        clSerialClose(lPort);
        unsigned int lPorts = 99;
        Require(clGetNumSerialPorts(&lPorts) == CL_ERR_NO_ERR && lPorts == 0,
                "the client still sees at the end that the bridge has gone");
    };
}

} // namespace

int main(int aCount, char** aArguments)
{
    const std::map<std::string, std::function<void()>> lShapes = {
        {"Uart", [] { LeavePort(KyDeviceSerialUart0); }},
        {"Bulk0", [] { LeavePort(KyDeviceSerialBulk0); }},
        {"Bulk1", [] { LeavePort(KyDeviceSerialBulk1); }},
        {"I2CBus", LeaveI2CBus},
        {"SPIBus", LeaveSPIBus},
        {"Bridge", LeaveBridge},
        {"OpensAtEnd", OpenAtEnd},
        {"UnsupportedDevice", LeaveUnsupportedDevice},
        {"CodeTexts", LeaveCodeTexts},
        {"Client", LeaveClient},
    };
    const auto lShape = lShapes.find(aCount == 2 ? aArguments[1] : "");
    Require(lShape != lShapes.end(), "the argument names something to leave");
    lShape->second();
    return 0;
}
