#include "Camera.h"

namespace KySimulatorCLib
{

using KySimulator::LockScope;
using KySimulator::SimulatedDeviceAdapter;

namespace
{

thread_local int gRunning = 0; // calls and reports that the thread is in

} // namespace

void EventForwarder::NotifyEvent(uint16_t aEventID, uint16_t aChannel, uint64_t aBlockID, uint64_t aTimestamp,
                                 const void* aData, uint32_t aDataLength)
{
    ++gRunning;
    // A device that has ended does not listen any more; nothing else can be wrong.
    static_cast<void>(
        KyDeviceNotifyEvent(mDevice, aEventID, aChannel, aBlockID, aTimestamp, aData, aDataLength));
    --gRunning;
}

void EventForwarder::NotifyFeatureInvalidated(const KyString* aName)
{
    ++gRunning;
    static_cast<void>(KyDeviceNotifyFeatureInvalidated(mDevice, aName->GetAscii())); // as above
    --gRunning;
}

Camera::Camera(const KySimulator::CameraConfiguration& aConfiguration)
    : mModel(std::make_shared<KySimulator::CameraModel>(aConfiguration))
    , mAdapter(std::make_unique<SimulatedDeviceAdapter>(mModel))
{
}

KyResult Camera::ReportTo(KyDeviceHandle aDevice)
{
    EventForwarder* lForwarder = nullptr;
    {
        LockScope lScope(mLock);
        const auto [lEntry, lNew] = mForwarders.try_emplace(aDevice, aDevice);
        if (!lNew)
        {
            return KyResult();
        }
        lForwarder = &lEntry->second;
    }
    KyResult lResult = mAdapter->RegisterEventSink(lForwarder);
    if (!lResult.IsOK())
    {
        LockScope lScope(mLock);
        mForwarders.erase(aDevice);
    }
    return lResult;
}

bool Camera::Enter()
{
    LockScope lScope(mLock);
    mCalls += mStopped ? 0 : 1;
    return !mStopped;
}

void Camera::Leave()
{
    LockScope lScope(mLock);
    --mCalls;
    mLeft.NotifyAll();
}

void Camera::Stop()
{
    {
        LockScope lScope(mLock);
        mStopped = true;
        while (mCalls > 0)
        {
            mLeft.Wait(mLock);
        }
    }
    mAdapter.reset(); // waits for the event that is being reported
}

KySerialCLib::HandleTable<Camera>& Cameras()
{
    static KyPermanent<KySerialCLib::HandleTable<Camera>> sTable(KySerialCLib::HandleKind::SimulatedCamera);
    return sTable.Get();
}

CameraCall::CameraCall(KySimCameraHandle aCamera) : mCamera(Cameras().Find(aCamera))
{
    if (mCamera != nullptr && !mCamera->Enter())
    {
        mCamera.reset();
    }
    ++gRunning;
}

CameraCall::~CameraCall()
{
    --gRunning;
    if (mCamera != nullptr)
    {
        mCamera->Leave();
    }
}

bool CameraCall::IsRunning()
{
    return gRunning > 0;
}

KyCode Finish(const KyResult& aResult)
{
    KySetLastText(aResult.IsOK() ? nullptr : aResult.GetDescription().GetAscii());
    return aResult.GetCode();
}

} // namespace KySimulatorCLib
