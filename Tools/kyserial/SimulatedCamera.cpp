#include "kyserial/SimulatedCamera.h"

#include "kyserial/Failure.h"

#include "Simulator/EquippedCamera.h"
#include "Simulator/FeatureTable.h"
#include "Simulator/SimulatedDeviceAdapter.h"

namespace KySerialTool
{

namespace
{

using KySimulator::FeatureKind;

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

} // namespace

struct SimulatedCamera::Parts
{
    explicit Parts(const SimulatorOptions& aOptions)
        : mStateFile(aOptions.mStateFile)
        , mCamera({aOptions.mFast, aOptions.mFeaturesOnly})
        , mAdapter(mCamera.GetCamera())
    {
    }

    const std::string mStateFile;
    KySimulator::EquippedCamera mCamera;
    KySimulator::SimulatedDeviceAdapter mAdapter;
};

SimulatedCamera::SimulatedCamera(const SimulatorOptions& aOptions) : mThis(std::make_unique<Parts>(aOptions))
{
    if (!aOptions.mStateFile.empty() && !mThis->mCamera.LoadState(aOptions.mStateFile))
    {
        throw OperationError("--sim-state: " + aOptions.mStateFile + " was not written by this program");
    }
    if (aOptions.mCutAfter > 0)
    {
        mThis->mAdapter.GetFaults().DisconnectAtCall(aOptions.mCutAfter);
    }
}

SimulatedCamera::~SimulatedCamera()
{
    if (!mThis->mStateFile.empty() && !mThis->mCamera.SaveState(mThis->mStateFile))
    {
        PrintError("--sim-state: cannot write " + mThis->mStateFile);
    }
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
