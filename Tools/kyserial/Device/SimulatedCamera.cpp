#include "kyserial/Device/SimulatedCamera.h"

#include "kyserial/Device/PortName.h"
#include "kyserial/Device/PortSettings.h"
#include "kyserial/Text/Failure.h"
#include "kyserial/Text/FileContent.h"

#include "Simulator/Camera/CameraWithDevices.h"
#include "Simulator/Camera/FeatureTable.h"
#include "Simulator/Camera/SimulatedDeviceAdapter.h"

#include <JxUtilsLib/LockScope.h>
#include <JxUtilsLib/Mutex.h>
#include <JxUtilsLib/Thread.h>
#include <JxUtilsLib/ThreadSafety.h>

#include <atomic>
#include <cerrno>
#include <filesystem>
#include <system_error>
#include <vector>

namespace KySerialTool
{

namespace
{

using KySimulator::CameraModel;
using KySimulator::FeatureKind;
using KySimulator::SimulatedDeviceAdapter;

const char* KindText(FeatureKind aKind)
{
    switch (aKind)
    {
    case FeatureKind::Integer:
        return "Integer";
    case FeatureKind::Enumeration:
        return "Enumeration";
    case FeatureKind::String:
        return "String";
    default:
        return "Register";
    }
}

/// A camera whose connection, once cut, comes back after a time; then the camera has lost its settings.
class ReturningAdapter : public SimulatedDeviceAdapter
{
public:
    /// \param aBackAfter  Milliseconds; 0: it stays away.
    ReturningAdapter(const std::shared_ptr<CameraModel>& aCamera, uint32_t aBackAfter)
        : SimulatedDeviceAdapter(aCamera), mCamera(aCamera), mBackAfter(aBackAfter)
    {
        for (const KyDeviceSerial lPort : cPorts)
        {
            mAtPowerUp.emplace_back(lPort);
        }
    }

    /// Takes down what the camera has at power-up.
    void TakeDown()
    {
        for (PortSettings& lSettings : mAtPowerUp)
        {
            lSettings.Read(*this);
        }
        mAtPowerUp.at(KyDeviceSerialBulk0).Read(*this); // the selector, too
    }

    bool IsConnected() override
    {
        const bool lConnected = SimulatedDeviceAdapter::IsConnected();
        if (lConnected || mBackAfter == 0)
        {
            return lConnected;
        }
        const JxUtilsLib::LockScope lScope(mLock);
        const uint64_t lNow = JxUtilsLib::Thread::GetTickCount();
        // The time counts from the first look that finds the camera away: the cut itself happens inside a call.
        mAwaySince = mAwaySince == 0 ? lNow : mAwaySince;
        if (lNow >= mAwaySince + mBackAfter && GetFaults().IsDisconnected())
        {
            ComeBack();
        }
        return !GetFaults().IsDisconnected();
    }

    uint64_t GetGeneration() const { return mGeneration; }

private:
    void ComeBack()
    {
        static_cast<void>(
            GetCamera().WriteRegister(KyDeviceProtocol::cInterruptEnable, 0)); // a camera may lack it
        // All before the connection is back: its users set the ports up at once, and share the port selector.
        SimulatedDeviceAdapter lPowerUp(mCamera);
        for (const PortSettings& lSettings : mAtPowerUp)
        {
            static_cast<void>(lSettings.Write(lPowerUp)); // they were there before
        }
        static_cast<void>(mAtPowerUp.at(KyDeviceSerialBulk0).Write(lPowerUp));
        ++mGeneration; // a reader that sees the camera connected sees the new generation too
        GetFaults().Reconnect();
    }

    const std::shared_ptr<CameraModel> mCamera;
    const uint32_t mBackAfter;
    std::atomic<uint64_t> mGeneration{1};
    std::vector<PortSettings> mAtPowerUp;
    JxUtilsLib::Mutex mLock;
    uint64_t mAwaySince JX_GUARDED_BY(mLock) = 0;
};

} // namespace

struct SimulatedCamera::Parts
{
    explicit Parts(const SimulatorOptions& aOptions)
        : mStateFile(aOptions.mStateFile)
        , mStateIsLost(aOptions.mStateIsLost)
        , mCamera({aOptions.mFast, aOptions.mFeaturesOnly})
        , mAdapter(mCamera.GetCamera(), aOptions.mBackAfter)
    {
    }

    const std::string mStateFile;
    const std::shared_ptr<bool> mStateIsLost;
    KySimulator::CameraWithDevices mCamera;
    ReturningAdapter mAdapter;
};

SimulatedCamera::SimulatedCamera(const SimulatorOptions& aOptions) : mThis(std::make_unique<Parts>(aOptions))
{
    // First: Windows does not open a directory, which then looks like a file that is not there yet.
    std::error_code lUnknown;
    if (std::filesystem::is_directory(aOptions.mStateFile, lUnknown))
    {
        throw OperationError("--sim-state: " + aOptions.mStateFile + " is a directory");
    }
    if (!aOptions.mStateFile.empty() && !mThis->mCamera.LoadState(aOptions.mStateFile))
    {
        throw OperationError("--sim-state: " + aOptions.mStateFile + " was not written by this program");
    }
    if (aOptions.mCutAfter > 0)
    {
        mThis->mAdapter.TakeDown();
        mThis->mAdapter.GetFaults().DisconnectAtCall(aOptions.mCutAfter);
    }
}

SimulatedCamera::~SimulatedCamera()
{
    // A file that cannot be written leaves its reason here; an old one would be reported otherwise.
    errno = 0;
    if (!mThis->mStateFile.empty() && !mThis->mCamera.SaveState(mThis->mStateFile))
    {
        PrintError("--sim-state: cannot write " + mThis->mStateFile + FileFault(mThis->mStateFile));
        *mThis->mStateIsLost = true;
    }
}

uint64_t SimulatedCamera::GetGeneration() const
{
    return mThis->mAdapter.GetGeneration();
}

IKyDeviceAdapter& SimulatedCamera::GetAdapter()
{
    return mThis->mAdapter;
}

std::vector<std::pair<std::string, std::string>> SimulatedCamera::GetFeatures() const
{
    std::vector<std::pair<std::string, std::string>> lFeatures;
    for (const auto& [lName, lFeature] :
         KySimulator::MakeFeatureTable(mThis->mCamera.GetCamera()->GetConfiguration()))
    {
        lFeatures.emplace_back(lName, KindText(lFeature.mKind));
    }
    return lFeatures;
}

} // namespace KySerialTool
