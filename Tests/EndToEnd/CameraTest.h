#pragma once

#include "CameraLink.h" // InProcess/ or Network/, as the program is built

#include <KySerial/KyDeviceSerialPort.h>

#include "Simulator/Camera/CameraModel.h"
#include "Simulator/Peers/LensController.h"
#include "Simulator/Peers/LoopbackPeer.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

namespace KyTest
{

/// A simulated camera whose lines take no time, and an application's view of it.
class Camera
{
public:
    explicit Camera(const KySimulator::CameraConfiguration& aConfiguration = {})
        : mModel(std::make_shared<KySimulator::CameraModel>(Fast(aConfiguration))), mLink(mModel)
    {
    }

    KySimulator::CameraModel& Model() { return *mModel; }
    auto& Adapter() { return mLink.GetAdapter(); }
    CameraLink& Link() { return mLink; }
    std::shared_ptr<KySimulator::CameraModel> Share() { return mModel; }

    void PlugLoopback(KyDeviceSerial aPort)
    {
        mModel->Plug(static_cast<KySimulator::Port>(aPort), std::make_shared<KySimulator::LoopbackPeer>());
    }
    void PlugLens(KyDeviceSerial aPort)
    {
        mModel->Plug(static_cast<KySimulator::Port>(aPort), std::make_shared<KySimulator::LensController>());
    }

    /// A camera whose bulk port 0 can only be driven through features.
    static KySimulator::CameraConfiguration WithoutRegisters()
    {
        KySimulator::CameraConfiguration lConfiguration;
        lConfiguration.mUartCount = 0;
        return lConfiguration;
    }

private:
    static KySimulator::CameraConfiguration Fast(KySimulator::CameraConfiguration aConfiguration)
    {
        aConfiguration.mUnlimitedLineRate = true;
        return aConfiguration;
    }

    std::shared_ptr<KySimulator::CameraModel> mModel;
    CameraLink mLink;
};

/// Time for what is sure to come; only a failing test waits that long.
constexpr uint32_t cPatience = 20000;

/// Writes all of aText; a failure is the test's.
inline void Send(KyDeviceSerialPort& aPort, const std::string& aText)
{
    uint32_t lWritten = 0;
    const KyResult lResult = aPort.Write(reinterpret_cast<const uint8_t*>(aText.data()),
                                         static_cast<uint32_t>(aText.size()), lWritten);
    EXPECT_TRUE(lResult.IsOK()) << lResult.GetDescription().GetAscii();
    EXPECT_EQ(lWritten, aText.size());
}

/// Reads exactly aSize bytes, or what came before a failure.
inline std::string Receive(KyDeviceSerialPort& aPort, size_t aSize)
{
    std::string lText;
    std::vector<uint8_t> lBuffer(aSize);
    while (lText.size() < aSize)
    {
        uint32_t lRead = 0;
        const KyResult lResult =
            aPort.Read(lBuffer.data(), static_cast<uint32_t>(aSize - lText.size()), lRead, cPatience);
        if (!lResult.IsOK())
        {
            ADD_FAILURE() << "after " << lText.size() << " bytes: " << lResult.GetCodeString().GetAscii();
            break;
        }
        lText.append(reinterpret_cast<const char*>(lBuffer.data()), lRead);
    }
    return lText;
}

/// Reads up to the end of a line, which is not part of the text.
inline std::string ReceiveLine(KyDeviceSerialPort& aPort)
{
    std::string lLine;
    for (;;)
    {
        const std::string lByte = Receive(aPort, 1);
        if (lByte.empty() || lByte == "\n")
        {
            return lLine;
        }
        if (lByte != "\r")
        {
            lLine += lByte;
        }
    }
}

} // namespace KyTest
