#include "kyserial/SimulatedCamera.h"

#include "kyserial/Failure.h"
#include "kyserial/PortName.h"
#include "kyserial/PortSettings.h"

#include "Simulator/CameraModel.h"
#include "Simulator/Eeprom24C02.h"
#include "Simulator/FeatureTable.h"
#include "Simulator/LensController.h"
#include "Simulator/LoopbackPeer.h"
#include "Simulator/SimulatedDeviceAdapter.h"
#include "Simulator/SpiFlash.h"
#include "Simulator/TemperatureSensor.h"

#include <JxUtilsLib/LockScope.h>
#include <JxUtilsLib/Mutex.h>
#include <JxUtilsLib/Thread.h>
#include <JxUtilsLib/ThreadSafety.h>

#include <algorithm>
#include <array>
#include <fstream>
#include <iterator>
#include <vector>

namespace KySerialTool
{

namespace
{

using namespace KySimulator;

CameraConfiguration Configuration(const SimulatorOptions& aOptions)
{
    CameraConfiguration lConfiguration;
    lConfiguration.mUnlimitedLineRate = aOptions.mFast;
    lConfiguration.mUartCount = aOptions.mFeaturesOnly ? 0 : 2;
    lConfiguration.mBulk[2].mMode = Protocol::I2C;
    lConfiguration.mBulk[3].mMode = Protocol::Spi;
    return lConfiguration;
}

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

/// An I2C bus with its two devices on a port.
std::shared_ptr<Eeprom24C02> PlugBus(CameraModel& aCamera, Port aPort)
{
    auto lEeprom = std::make_shared<Eeprom24C02>();
    auto lBus = std::make_shared<I2CBusPeer>();
    lBus->SetDevice(Eeprom24C02::cAddress, lEeprom);
    lBus->SetDevice(TemperatureSensor::cAddress, std::make_shared<TemperatureSensor>());
    aCamera.PlugI2C(aPort, lBus);
    return lEeprom;
}

/// A camera whose connection, once cut, comes back after a time; then the camera has lost its settings.
class ReturningAdapter : public SimulatedDeviceAdapter
{
public:
    /// \param aBackAfter  Milliseconds; 0: it stays away.
    ReturningAdapter(const std::shared_ptr<CameraModel>& aCamera, uint32_t aBackAfter)
        : SimulatedDeviceAdapter(aCamera), mBackAfter(aBackAfter)
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
        mAwaySince = mAwaySince == 0 ? lNow : mAwaySince;
        if (lNow >= mAwaySince + mBackAfter && GetFaults().IsDisconnected())
        {
            ComeBack();
        }
        return !GetFaults().IsDisconnected();
    }

private:
    void ComeBack()
    {
        constexpr uint32_t cInterruptEnable = 0xB838;
        static_cast<void>(GetCamera().WriteRegister(cInterruptEnable, 0)); // a camera may lack it
        GetFaults().Reconnect();
        for (const PortSettings& lSettings : mAtPowerUp)
        {
            static_cast<void>(lSettings.Write(*this)); // they were there before
        }
        static_cast<void>(mAtPowerUp.at(KyDeviceSerialBulk0).Write(*this));
    }

    const uint32_t mBackAfter;
    std::vector<PortSettings> mAtPowerUp;
    JxUtilsLib::Mutex mLock;
    uint64_t mAwaySince JX_GUARDED_BY(mLock) = 0;
};

} // namespace

struct SimulatedCamera::Parts
{
    explicit Parts(const SimulatorOptions& aOptions)
        : mStateFile(aOptions.mStateFile)
        , mCamera(std::make_shared<CameraModel>(Configuration(aOptions)))
        , mFlash(std::make_shared<SpiFlash>())
        , mAdapter(mCamera, aOptions.mBackAfter)
    {
    }

    void Plug();
    void LoadState();
    void SaveState() const;

    const std::string mStateFile;
    const std::shared_ptr<CameraModel> mCamera;
    std::array<std::shared_ptr<Eeprom24C02>, 2> mEeproms;
    const std::shared_ptr<SpiFlash> mFlash;
    ReturningAdapter mAdapter;
};

void SimulatedCamera::Parts::Plug()
{
    for (const Port lPort : {Port::Uart0, Port::Bulk0, Port::Bulk1})
    {
        mCamera->Plug(lPort, std::make_shared<LensController>());
    }
    for (const Port lPort :
         {Port::Uart1, Port::Bulk2, Port::Bulk3, Port::Bulk4, Port::Bulk5, Port::Bulk6, Port::Bulk7})
    {
        mCamera->Plug(lPort, std::make_shared<LoopbackPeer>());
    }
    mEeproms = {PlugBus(*mCamera, Port::Bulk0), PlugBus(*mCamera, Port::Bulk2)};
    mCamera->PlugSpi(Port::Bulk3, std::make_shared<SpiBusPeer>(mFlash));
}

void SimulatedCamera::Parts::LoadState()
{
    std::ifstream lFile(mStateFile, std::ios::binary);
    if (mStateFile.empty() || !lFile.is_open())
    {
        return; // the first run makes the file
    }
    const std::vector<uint8_t> lState{std::istreambuf_iterator<char>(lFile),
                                      std::istreambuf_iterator<char>()};
    if (lState.size() != 2 * Eeprom24C02::cSize + SpiFlash::cSize)
    {
        throw OperationError("--sim-state: " + mStateFile + " was not written by this program");
    }
    auto lNext = lState.begin();
    for (const auto& lEeprom : mEeproms)
    {
        std::array<uint8_t, Eeprom24C02::cSize> lContents{};
        std::copy_n(lNext, lContents.size(), lContents.begin());
        lEeprom->SetContents(lContents);
        lNext += Eeprom24C02::cSize;
    }
    mFlash->SetContents({lNext, lState.end()});
}

void SimulatedCamera::Parts::SaveState() const
{
    if (mStateFile.empty())
    {
        return;
    }
    std::vector<uint8_t> lState;
    for (const auto& lEeprom : mEeproms)
    {
        const auto lContents = lEeprom->GetContents();
        lState.insert(lState.end(), lContents.begin(), lContents.end());
    }
    const std::vector<uint8_t> lFlash = mFlash->GetContents();
    lState.insert(lState.end(), lFlash.begin(), lFlash.end());
    std::ofstream lFile(mStateFile, std::ios::binary | std::ios::trunc);
    lFile.write(reinterpret_cast<const char*>(lState.data()), static_cast<std::streamsize>(lState.size()));
    if (!lFile.flush())
    {
        PrintError("--sim-state: cannot write " + mStateFile);
    }
}

SimulatedCamera::SimulatedCamera(const SimulatorOptions& aOptions) : mThis(std::make_unique<Parts>(aOptions))
{
    mThis->Plug();
    mThis->LoadState();
    if (aOptions.mCutAfter > 0)
    {
        mThis->mAdapter.TakeDown();
        mThis->mAdapter.GetFaults().DisconnectAtCall(aOptions.mCutAfter);
    }
}

SimulatedCamera::~SimulatedCamera()
{
    mThis->SaveState();
}

IKyDeviceAdapter& SimulatedCamera::GetAdapter()
{
    return mThis->mAdapter;
}

std::vector<std::pair<std::string, std::string>> SimulatedCamera::GetFeatures() const
{
    std::vector<std::pair<std::string, std::string>> lFeatures;
    for (const auto& [lName, lFeature] : MakeFeatureTable(mThis->mCamera->GetConfiguration()))
    {
        lFeatures.emplace_back(lName, KindText(lFeature.mKind));
    }
    return lFeatures;
}

} // namespace KySerialTool
