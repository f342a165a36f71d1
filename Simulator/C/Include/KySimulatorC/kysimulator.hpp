#ifndef KYSIMULATORC_KYSIMULATOR_HPP
#define KYSIMULATORC_KYSIMULATOR_HPP

#include <KySerialC/kyserial.hpp>
#include <KySimulatorC/kysimulator.h>

/// \file
/// The simulated camera for C++17 programs of every compiler; see KySerialC/kyserial.hpp.

namespace ky
{

/// A camera without hardware, and the device that stands for it.
class SimulatedCamera
{
public:
    /// As KySimCameraCreate(). \param aOptions  Null: the default.
    static Outcome<SimulatedCamera> Create(const KySimOptions* aOptions = nullptr)
    {
        KySimCameraHandle lHandle = 0;
        KyAdapter lAdapter{};
        lAdapter.mSize = sizeof lAdapter;
        KyCode lCode = KySimCameraCreate(aOptions, &lHandle);
        Handle<&KySimCameraDestroy> lCamera(lHandle);
        lCode = lCode == KY_OK ? KySimCameraGetAdapter(lHandle, &lAdapter) : lCode;
        if (lCode != KY_OK)
        {
            return Status(lCode);
        }
        Outcome<Device> lDevice = Device::Create(lAdapter);
        return lDevice ? Outcome<SimulatedCamera>(
                             SimulatedCamera(std::move(lCamera), std::move(lDevice.GetValue())))
                       : Outcome<SimulatedCamera>(Status(lDevice.GetCode()));
    }

    KySimCameraHandle GetHandle() const noexcept { return mCamera.Get(); }
    DeviceRef GetDevice() const noexcept { return mDevice.Get(); }
    operator DeviceRef() const noexcept { return GetDevice(); } // NOLINT: it is one, and owns it too
    /// As KySimCameraPlug().
    Status Plug(int32_t aSerial, int32_t aWhat)
    {
        return Status(KySimCameraPlug(mCamera.Get(), aSerial, aWhat));
    }
    Status SetConnected(bool aConnected)
    {
        return Status(KySimCameraSetConnected(mCamera.Get(), aConnected ? 1 : 0));
    }

private:
    SimulatedCamera(Handle<&KySimCameraDestroy> aCamera, Device aDevice)
        : mCamera(std::move(aCamera)), mDevice(std::move(aDevice))
    {
    }
    Handle<&KySimCameraDestroy> mCamera;
    Device mDevice; // goes first
};

} // namespace ky

#endif
