// What a program may do from inside a report of its device, and what other threads may do meanwhile.

#include "Check.h"

#include "KySerialC/kyserial.h"
#include "KySimulatorC/kysimulator.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <thread>
#include <utility>

namespace
{

constexpr char cChanged[] = "EventBulk1UpstreamDataBuffer";

// A camera's adapter that runs a step of the test when a port asks for the length of what has come.
class AskedDevice
{
public:
    AskedDevice()
    {
        sInner.mSize = sizeof sInner;
        CHECK_OK(KySimCameraGetAdapter(mCamera.mCamera, &sInner));
        KyAdapter lTable = sInner;
        lTable.mGetIntegerValue = [](void* aContext, const char* aName, int64_t* aValue) -> KyCode
        {
            ++sAsked;
            if (std::this_thread::get_id() == sReporter && sStep)
            {
                const std::function<void()> lStep = std::exchange(sStep, nullptr);
                lStep();
                return KY_FAILURE;
            }
            return sInner.mGetIntegerValue(aContext, aName, aValue);
        };
        lTable.mUnregisterEventSink = [](void*, KyDeviceHandle) -> KyCode
        {
            sIsOutsideAtEnd = !sStepRuns;
            return KY_OK;
        };
        CHECK_OK(KyDeviceCreate(&lTable, &mDevice));
    }
    ~AskedDevice() { EndCamera(mCamera); }
    AskedDevice(const AskedDevice&) = delete;
    AskedDevice& operator=(const AskedDevice&) = delete;

    KyPortHandle Open(int32_t aSerial) const
    {
        KyPortHandle lPort = 0;
        CHECK_OK(KyPortCreate(&lPort));
        CHECK_OK(KyPortOpen(lPort, mDevice, aSerial));
        return lPort;
    }

    // Reports a change, with a step to be run from inside.
    KyCode Report(std::function<void()> aStep) const
    {
        sAsked = 0;
        sStep = std::move(aStep);
        sReporter = std::this_thread::get_id();
        return KyDeviceNotifyFeatureInvalidated(mDevice, cChanged);
    }

    TestCamera mCamera = MakeCamera();
    KyDeviceHandle mDevice = 0;

    static inline std::atomic<bool> sStepRuns{false};
    static inline std::atomic<bool> sIsOutsideAtEnd{false};
    static inline std::atomic<int> sAsked{0};

private:
    static inline KyAdapter sInner;
    static inline std::thread::id sReporter;
    static inline std::function<void()> sStep;
};

void ClosePort(KyPortHandle aPort)
{
    CHECK_OK(KyPortClose(aPort));
    CHECK_OK(KyPortDestroy(aPort));
}

TEST(KyReportsC, ADeviceMayBeEndedFromInsideItsReport)
{
    const AskedDevice lDevice;
    const KyPortHandle lPorts[] = {lDevice.Open(KY_BULK1), lDevice.Open(KY_BULK2)};
    CHECK_OK(lDevice.Report(
        [&]
        {
            ClosePort(lPorts[0]);
            ClosePort(lPorts[1]);
            AskedDevice::sAsked = 0;
            CHECK_OK(KyDeviceDestroy(lDevice.mDevice));
        }));
    EXPECT_EQ(AskedDevice::sAsked, 0); // nor for the other port
    CHECK_CODE(KyDeviceNotifyFeatureInvalidated(lDevice.mDevice, cChanged), KY_INVALID_HANDLE);
}

// The end waits for the report; the report finds the device gone already.
TEST(KyReportsC, ADeviceThatIsEndingIsNotToBeHadFromInsideItsReport)
{
    const AskedDevice lDevice;
    const KyPortHandle lPort = lDevice.Open(KY_BULK1);
    std::atomic<bool> lHasEnded{false};
    std::thread lEnd;
    CHECK_OK(lDevice.Report(
        [&]
        {
            CHECK_OK(KyPortClose(lPort));
            lEnd = std::thread(
                [&]
                {
                    KyCode lCode = KY_WRONG_STATE;
                    while (lCode == KY_WRONG_STATE) // the other thread is asking
                    {
                        lCode = KyDeviceDestroy(lDevice.mDevice);
                    }
                    CHECK_OK(lCode);
                    lHasEnded = true;
                });
            char lText[16];
            uint32_t lSize = sizeof lText;
            while (KyDeviceGetFeature(lDevice.mDevice, "BulkMode", lText, &lSize) == KY_OK)
            {
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
            }
            CHECK_CODE(KyDeviceGetFeature(lDevice.mDevice, "BulkMode", lText, &lSize), KY_INVALID_HANDLE);
            CHECK_CODE(KyPortOpen(lPort, lDevice.mDevice, KY_BULK1), KY_INVALID_HANDLE);
            CHECK_CODE(KyDeviceDestroy(lDevice.mDevice), KY_INVALID_HANDLE);
            EXPECT_STREQ(KyGetLastText(), "The device is in use, or being destroyed already.");
            EXPECT_FALSE(lHasEnded);
        }));
    lEnd.join();
    EXPECT_TRUE(lHasEnded);
    CHECK_OK(KyPortDestroy(lPort));
}

TEST(KyReportsC, ClosingAPortWaitsForTheReportThatItIsIn)
{
    const AskedDevice lDevice;
    const KyPortHandle lPort = lDevice.Open(KY_BULK1);
    std::thread lCloser;
    CHECK_OK(lDevice.Report(
        [&]
        {
            AskedDevice::sStepRuns = true;
            lCloser = std::thread([&] { ClosePort(lPort); });
            std::this_thread::sleep_for(std::chrono::milliseconds(30)); // time to come too early
            AskedDevice::sStepRuns = false;
        }));
    lCloser.join();
    EXPECT_TRUE(AskedDevice::sIsOutsideAtEnd);
    CHECK_OK(KyDeviceDestroy(lDevice.mDevice));
}

} // namespace
