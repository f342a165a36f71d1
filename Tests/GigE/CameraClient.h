#pragma once

#include <KyGvcp/Protocol.h>
#include <KyGvcp/UdpSocket.h>

#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <optional>
#include <vector>

/// Whether all loopback addresses are 127.0.0.1, as under Wine: what was sent from another one comes from there.
inline bool HasOneLoopbackAddress()
{
    KyGvcp::UdpSocket lFirst;
    KyGvcp::UdpSocket lSecond;
    std::array<uint8_t, 1> lByte{};
    size_t lSize = 0;
    KyGvcp::Endpoint lFrom;
    EXPECT_TRUE(lFirst.Open({0x7F000001, 0}) && lSecond.Open({0x7F000002, 0}));
    EXPECT_EQ(KyGvcp::SocketResult::Done, lSecond.SendTo(lFirst.GetLocal(), lByte));
    EXPECT_EQ(KyGvcp::SocketResult::Done, lFirst.Receive(lByte, lSize, &lFrom, std::chrono::seconds(20)));
    return lFrom.mAddress == 0x7F000001;
}

/// An application that sends and receives raw packets, for tests of a camera on the network.
class CameraClient
{
public:
    using Buffer = std::vector<uint8_t>;

    /// Generous: a test that needs it has failed anyway.
    static constexpr std::chrono::seconds cPatience{20};

    /// \param aCamera  Where the camera is; a loopback address.
    explicit CameraClient(const KyGvcp::Endpoint& aCamera)
    {
        EXPECT_TRUE(mControl.Open({aCamera.mAddress, 0})) << mControl.GetError();
        EXPECT_TRUE(mControl.Connect(aCamera)) << mControl.GetError();
        EXPECT_TRUE(mEvents.Open({aCamera.mAddress, 0})) << mEvents.GetError();
    }

    KyGvcp::SocketResult Send(const KyGvcp::Packet& aPacket) { return mControl.Send(aPacket.GetBytes()); }

    /// The next acknowledge; nothing when none comes in time.
    std::optional<KyGvcp::AcknowledgeView> Receive(KyGvcp::SocketTime aTimeout = cPatience)
    {
        size_t lSize = 0;
        mResult = mControl.Receive(mBuffer, lSize, nullptr, aTimeout);
        return mResult == KyGvcp::SocketResult::Done
                   ? KyGvcp::ParseAcknowledge(KyGvcp::Bytes(mBuffer).first(lSize))
                   : std::nullopt;
    }
    /// How the last Receive() ended.
    KyGvcp::SocketResult GetResult() const { return mResult; }

    /// Writes a register, and expects that to be acknowledged.
    void Write(uint32_t aAddress, uint32_t aValue)
    {
        ASSERT_EQ(KyGvcp::SocketResult::Done,
                  Send(KyGvcp::MakeWriteRegister(++mRequestID, aAddress, aValue)));
        const auto lAnswer = Receive();
        ASSERT_TRUE(lAnswer.has_value()) << std::hex << aAddress;
        EXPECT_EQ(KyGvcp::cSuccess, lAnswer->mStatus) << std::hex << aAddress;
        EXPECT_EQ(mRequestID, lAnswer->mRequestID);
    }
    uint32_t Read(uint32_t aAddress)
    {
        EXPECT_EQ(KyGvcp::SocketResult::Done, Send(KyGvcp::MakeReadRegister(++mRequestID, aAddress)));
        const auto lAnswer = Receive();
        EXPECT_TRUE(lAnswer.has_value() && lAnswer->mStatus == KyGvcp::cSuccess) << std::hex << aAddress;
        return lAnswer.has_value() ? KyGvcp::Reader(lAnswer->mPayload).Take32() : 0;
    }

    /// Takes control and has events sent here.
    void Take()
    {
        Write(KyGvcp::cControlPrivilegeRegister, KyGvcp::cControlAccess);
        Write(KyGvcp::cMessageAddressRegister, mEvents.GetLocal().mAddress);
        Write(KyGvcp::cMessagePortRegister, mEvents.GetLocal().mPort);
    }

    /// The next event datagram, not acknowledged; empty when none comes in time.
    Buffer ReceiveEvent(KyGvcp::SocketTime aTimeout = cPatience)
    {
        size_t lSize = 0;
        const auto lResult = mEvents.Receive(mBuffer, lSize, &mEventSource, aTimeout);
        return lResult == KyGvcp::SocketResult::Done
                   ? Buffer(mBuffer.begin(), mBuffer.begin() + static_cast<ptrdiff_t>(lSize))
                   : Buffer();
    }
    void AcknowledgeEvent(const Buffer& aPacket)
    {
        const auto lCommand = KyGvcp::ParseCommand(aPacket);
        ASSERT_TRUE(lCommand.has_value());
        const auto lPacket =
            KyGvcp::Packet::Acknowledge(KyGvcp::cSuccess, KyGvcp::cEventDataAck, lCommand->mRequestID);
        EXPECT_EQ(KyGvcp::SocketResult::Done, mEvents.SendTo(mEventSource, lPacket.GetBytes()));
    }
    const KyGvcp::Endpoint& GetEventSource() const { return mEventSource; }
    uint16_t NextID() { return ++mRequestID; }

private:
    KyGvcp::UdpSocket mControl;
    KyGvcp::UdpSocket mEvents;
    KyGvcp::Endpoint mEventSource;
    KyGvcp::SocketResult mResult = KyGvcp::SocketResult::Failed;
    std::array<uint8_t, 2048> mBuffer{};
    uint16_t mRequestID = 0;
};
