#pragma once

#include <KyGvcp/Protocol.h>
#include <KySerial/DeviceProtocol.h>
#include <Simulator/Network/GvcpServer.h>
#include <Simulator/Time/ManualScheduler.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

/// A control channel without a network: packets in, packets out, and a clock that tests move.
class ServerFixture : public ::testing::Test, public KySimulator::GvcpServer::Host
{
protected:
    using Buffer = std::vector<uint8_t>;
    using Endpoint = KyGvcp::Endpoint;

    /// An answer to a command.
    struct Answer
    {
        uint16_t mStatus = 0xFFFF; ///< This one: there was none.
        uint16_t mCode = 0;
        uint16_t mRequestID = 0;
        Buffer mPayload{};

        uint32_t Word(size_t aIndex = 0) const
        {
            return KyGvcp::Reader(KyGvcp::Bytes(mPayload).subspan(4 * aIndex)).Take32();
        }
    };

    static constexpr Endpoint cOne{0x7F000001, 5001};
    static constexpr Endpoint cOther{0x7F000001, 5002};

    ServerFixture()
    {
        KySimulator::CameraConfiguration lConfiguration;
        lConfiguration.mMacAddress = 0x020304050607;
        lConfiguration.mSerialNumber = "SIM4711";
        lConfiguration.mUnlimitedLineRate = true;
        mCamera = std::make_unique<KySimulator::CameraModel>(
            lConfiguration, std::make_shared<KySimulator::ManualScheduler>());
        mRegisters = std::make_unique<KySimulator::RegisterMap>(*mCamera);
        mRegisters->SetPlace(0x7F000005, 0xFF000000);
        mServer = std::make_unique<KySimulator::GvcpServer>(*mRegisters, mFaults, *this);
    }

    void SendAcknowledge(const Endpoint& aTo, KyGvcp::Bytes aPacket) override
    {
        mSent.emplace_back(aTo, Buffer(aPacket.begin(), aPacket.end()));
    }
    void OnChannelChanged(const KySimulator::ChannelSettings& aSettings) override { mChannel = aSettings; }

    bool MoveTo(const KySimulator::ForcedAddress& aAddress) override
    {
        mForced.push_back(aAddress);
        return mMayMove;
    }

    void Receive(const Endpoint& aFrom, KyGvcp::Bytes aPacket) { mServer->Handle(aFrom, aPacket, mNow); }

    /// The answer that was sent last since the last call.
    Answer TakeAnswer()
    {
        const auto lSent = std::exchange(mSent, {});
        if (lSent.empty())
        {
            return {};
        }
        const auto lAnswer = KyGvcp::ParseAcknowledge(lSent.back().second);
        EXPECT_TRUE(lAnswer.has_value());
        return lAnswer.has_value() ? Answer{lAnswer->mStatus,
                                            lAnswer->mCode,
                                            lAnswer->mRequestID,
                                            {lAnswer->mPayload.begin(), lAnswer->mPayload.end()}}
                                   : Answer();
    }

    Answer Ask(const KyGvcp::Packet& aCommand, const Endpoint& aFrom = cOne)
    {
        Receive(aFrom, aCommand.GetBytes());
        return TakeAnswer();
    }

    Answer Read(uint32_t aAddress, const Endpoint& aFrom = cOne)
    {
        return Ask(KyGvcp::MakeReadRegister(NextID(), aAddress), aFrom);
    }
    Answer Write(uint32_t aAddress, uint32_t aValue, const Endpoint& aFrom = cOne)
    {
        return Ask(KyGvcp::MakeWriteRegister(NextID(), aAddress, aValue), aFrom);
    }
    Answer ReadMemory(uint32_t aAddress, uint16_t aCount)
    {
        return Ask(KyGvcp::MakeReadMemory(NextID(), aAddress, aCount));
    }
    Answer WriteMemory(uint32_t aAddress, const Buffer& aData, const Endpoint& aFrom = cOne)
    {
        return Ask(KyGvcp::MakeWriteMemory(NextID(), aAddress, aData), aFrom);
    }
    void TakeControl(const Endpoint& aFrom = cOne)
    {
        ASSERT_EQ(KyGvcp::cSuccess,
                  Write(KyGvcp::cControlPrivilegeRegister, KyGvcp::cControlAccess, aFrom).mStatus);
    }
    /// Lets slow commands be announced, as applications do.
    void EnablePending()
    {
        mRegisters->GetBootstrap().Set(KyGvcp::cConfigurationRegister, KyGvcp::cPendingAckEnabled);
    }
    void Advance(KySimulator::Time aTime)
    {
        mNow += aTime;
        mServer->Step(mNow);
    }
    uint16_t NextID() { return ++mRequestID; }

    std::unique_ptr<KySimulator::CameraModel> mCamera;
    std::unique_ptr<KySimulator::RegisterMap> mRegisters;
    KySimulator::NetworkFaults mFaults;
    std::unique_ptr<KySimulator::GvcpServer> mServer;
    std::vector<std::pair<Endpoint, Buffer>> mSent;
    KySimulator::ChannelSettings mChannel;
    std::vector<KySimulator::ForcedAddress> mForced;
    bool mMayMove = true;
    KySimulator::Time mNow{std::chrono::seconds(100)};
    uint16_t mRequestID = 0;
};
