#pragma once

#include "Simulator/RecordingListener.h"

#include <KySerial/DeviceProtocol.h>
#include <Simulator/Camera/CameraModel.h>
#include <Simulator/Time/ManualScheduler.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

/// A camera with a clock that stands still. Tests change mConfiguration and call Make() before anything else.
class CameraFixture : public ::testing::Test
{
protected:
    using Bytes = std::vector<uint8_t>;

    CameraFixture() = default;
    ~CameraFixture() override
    {
        if (mCamera != nullptr)
        {
            mCamera->RemoveListener(&mListener);
        }
    }

    void Make()
    {
        mCamera = std::make_shared<KySimulator::CameraModel>(mConfiguration, mClock);
        mCamera->AddListener(&mListener);
    }

    void Write(uint32_t aAddress, uint32_t aValue)
    {
        const KySimulator::Outcome lOutcome = mCamera->WriteRegister(aAddress, aValue);
        EXPECT_TRUE(lOutcome.IsOk()) << std::hex << aAddress << ": " << lOutcome.mText;
    }

    uint32_t Read(uint32_t aAddress)
    {
        uint32_t lValue = 0;
        const KySimulator::Outcome lOutcome = mCamera->ReadRegister(aAddress, lValue);
        EXPECT_TRUE(lOutcome.IsOk()) << std::hex << aAddress << ": " << lOutcome.mText;
        return lValue;
    }

    void Set(const std::string& aName, const std::string& aValue)
    {
        const KySimulator::Outcome lOutcome = mCamera->SetText(aName, aValue);
        EXPECT_TRUE(lOutcome.IsOk()) << aName << ": " << lOutcome.mText;
    }

    std::string Get(const std::string& aName)
    {
        std::string lValue;
        const KySimulator::Outcome lOutcome = mCamera->GetText(aName, lValue);
        EXPECT_TRUE(lOutcome.IsOk()) << aName << ": " << lOutcome.mText;
        return lValue;
    }

    /// A register of the camera that is written as a message.
    KySimulator::Status Send(size_t aBulk, const Bytes& aMessage)
    {
        return mCamera
            ->SetRegisterData("Bulk" + std::to_string(aBulk) + "DownstreamData", aMessage.data(),
                              static_cast<int64_t>(aMessage.size()))
            .mStatus;
    }

    /// A big-endian message in the form for UART and I2C. \param aFlags  The upper four bits of the first
    /// word.
    static Bytes Message(const Bytes& aData, uint8_t aFlags = 0)
    {
        Bytes lMessage = {static_cast<uint8_t>(aFlags << 4U), 0, 0, 0};
        AppendLength(lMessage, aData.size());
        lMessage.insert(lMessage.end(), aData.begin(), aData.end());
        lMessage.resize((lMessage.size() + 3) / 4 * 4, 0xEE);
        return lMessage;
    }

    static Bytes SpiMessage(const Bytes& aData, uint8_t aRead, bool aSimultaneous, bool aFinal)
    {
        const auto lSize = static_cast<uint8_t>(aData.size());
        const auto lNone = static_cast<uint8_t>(0);
        Bytes lMessage(4, 0);
        AppendLength(lMessage, aData.size() + 4);
        lMessage.push_back(aSimultaneous ? lNone : lSize);
        lMessage.push_back(aSimultaneous ? lNone : aRead);
        lMessage.push_back(aSimultaneous ? lSize : lNone);
        lMessage.push_back(aFinal ? 1 : 0);
        lMessage.insert(lMessage.end(), aData.begin(), aData.end());
        lMessage.resize((lMessage.size() + 3) / 4 * 4);
        return lMessage;
    }

    /// Switches the upstream event of a port on or off.
    void Notify(size_t aBulk, const char* aValue = "On")
    {
        Set("EventSelector", "Bulk" + std::to_string(aBulk) + "UpstreamData");
        Set("EventNotification", aValue);
        mListener.TakeChanges();
    }

    /// Data of all events with an identifier since the last call that took events, one after the other.
    Bytes TakeData(uint16_t aId, size_t aSkip = 0)
    {
        Bytes lBytes;
        for (const KySimulator::DeviceEvent& lEvent : mListener.TakeEvents())
        {
            if (lEvent.mId == aId && lEvent.mData.size() >= aSkip)
            {
                lBytes.insert(lBytes.end(), lEvent.mData.begin() + static_cast<std::ptrdiff_t>(aSkip),
                              lEvent.mData.end());
            }
        }
        return lBytes;
    }

    static Bytes Numbers(size_t aCount)
    {
        Bytes lBytes(aCount);
        for (size_t lIndex = 0; lIndex < aCount; ++lIndex)
        {
            lBytes[lIndex] = static_cast<uint8_t>(lIndex);
        }
        return lBytes;
    }

    KySimulator::CameraConfiguration mConfiguration;
    std::shared_ptr<KySimulator::ManualScheduler> mClock = std::make_shared<KySimulator::ManualScheduler>();
    std::shared_ptr<KySimulator::CameraModel> mCamera;
    RecordingListener mListener;

private:
    static void AppendLength(Bytes& aMessage, size_t aLength)
    {
        for (const unsigned lShift : {24U, 16U, 8U, 0U})
        {
            aMessage.push_back(static_cast<uint8_t>((aLength >> lShift) & 0xFFU));
        }
    }
};
