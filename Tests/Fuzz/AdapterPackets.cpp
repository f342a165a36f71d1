// Packets from the network to the adapter's control channel, and what a device says about itself: a command
// is answered by what belongs to it only, nothing is delivered that the device did not send, and what lies
// outside a reader's buffer stays as it was.

#include "Adapters/GigE/Client/ControlChannel.h"
#include "Adapters/GigE/Client/DescriptionFile.h"
#include "Adapters/GigE/Client/ParseInformation.h"
#include "Fuzz/FuzzInput.h"

#include <string>

using namespace KyTest;
using namespace KyGvcp;
using KyGigE::ControlChannel;

namespace
{

using Buffer = std::vector<uint8_t>;

constexpr uint32_t cHost = 0x7F000001;
constexpr uint8_t cUntouched = 0xA5;

/// A device that sends its answers before it is asked: which request comes next is known.
class Session
{
public:
    explicit Session(FuzzInput& aInput) : mInput(aInput), mChannel(KyGigE::ControlTimes{0, 2, 0})
    {
        KY_REQUIRE(mDevice.Open({cHost, 0}) && mChannel.Open(mDevice.GetLocal(), cHost).IsOK());
        mChannel.Begin();
    }

    void Step()
    {
        mRequest = KyGigE::FollowingRequest(mRequest);
        const uint8_t lKind = mInput.TakeByte();
        for (unsigned lCount = lKind >> 2U & 3U; lCount > 0; --lCount)
        {
            SendAnything();
        }
        switch (lKind % 4)
        {
        case 0:
            ReadRegister();
            break;
        case 1:
            Write(cWriteRegister);
            break;
        case 2:
            Write(cWriteMemory);
            break;
        default:
            ReadMemory();
            break;
        }
        mChannel.Begin();
        size_t lSize = 0;
        Buffer lBytes(cMaxPacket);
        while (mDevice.Receive(lBytes, lSize, nullptr, SocketTime(0)) == SocketResult::Done)
        {
            KY_REQUIRE(ParseCommand(Bytes(lBytes).first(lSize)).has_value());
        }
    }

private:
    void Send(Bytes aPacket)
    {
        KY_REQUIRE(mDevice.SendTo(mChannel.GetLocal(), aPacket) == SocketResult::Done);
    }

    // None of it ends a command: another key or request, or another command's acknowledge.
    void SendAnything()
    {
        Buffer lPacket = mInput.TakeBytes(mInput.TakeByte());
        const auto lAnswer = ParseAcknowledge(lPacket);
        if (lAnswer.has_value() && lAnswer->mRequestID == mRequest)
        {
            lPacket[6] ^= 0x40U;
        }
        Send(lPacket);
    }

    // The answer, perhaps announced before; its status; an answer that is too short counts as none.
    uint16_t SendAnswer(uint16_t aCode, Bytes aPayload)
    {
        const uint8_t lChoice = mInput.TakeByte();
        if ((lChoice & 0x10U) != 0)
        {
            Packet lPending = Packet::Acknowledge(cSuccess, cPendingAck, mRequest);
            Send(lPending.Add16(0).Add16(mInput.TakeByte()).GetBytes());
        }
        const uint16_t lStatus = static_cast<uint16_t>((lChoice & 0x20U) != 0 ? 0x8000U | lChoice : 0U);
        Packet lPacket = Packet::Acknowledge(lStatus, static_cast<uint16_t>(aCode + 1), mRequest);
        Send(lPacket.Add(aPayload).GetBytes());
        return lStatus;
    }

    void ReadRegister()
    {
        const Buffer lPayload = mInput.TakeBytes(4 + mInput.TakeByte() % 4);
        const uint16_t lStatus = SendAnswer(cReadRegister, lPayload);
        uint32_t lValue = 1;
        const KyResult lResult = mChannel.ReadRegister(mInput.TakeWord(), lValue);
        CheckResult(lResult, lStatus, lPayload.size() >= 4);
        KY_REQUIRE(lValue == (lResult.IsOK() ? Reader(lPayload).Take32() : 0U));
    }

    void Write(uint16_t aCode)
    {
        const uint16_t lStatus = SendAnswer(aCode, mInput.TakeBytes(mInput.TakeByte() % 8));
        const Buffer lData(1 + mInput.TakeByte());
        const KyResult lResult = aCode == cWriteRegister
                                     ? mChannel.WriteRegister(mInput.TakeWord(), 5)
                                     : mChannel.WriteMemory(4, lData.data(), lData.size());
        CheckResult(lResult, lStatus, true);
    }

    void ReadMemory()
    {
        const size_t lAsked = 1 + mInput.TakeByte();
        const Buffer lPayload = mInput.TakeBytes(4 + mInput.TakeByte());
        const uint16_t lStatus = SendAnswer(cReadMemory, lPayload);
        Buffer lRead(lAsked + 8, cUntouched);
        const KyResult lResult = mChannel.ReadMemory(0x100, lRead.data(), lAsked);
        CheckResult(lResult, lStatus, lPayload.size() >= 4 + lAsked);
        for (size_t lIndex = 0; lIndex < lRead.size(); ++lIndex)
        {
            const bool lIsData = lResult.IsOK() && lIndex < lAsked;
            KY_REQUIRE(lRead[lIndex] == (lIsData ? lPayload[4 + lIndex] : cUntouched));
        }
    }

    static void CheckResult(const KyResult& aResult, uint16_t aStatus, bool aIsWhole)
    {
        if (aResult.GetCode() == KyResult::NO_CONNECTION)
        {
            return; // the machine was slower than the channel's patience, or the answer was too short
        }
        KY_REQUIRE(aResult.GetCode() == aStatus);
        KY_REQUIRE(aStatus != cSuccess || aIsWhole);
    }

    FuzzInput& mInput;
    UdpSocket mDevice;
    ControlChannel mChannel;
    uint16_t mRequest = 0;
};

bool IsPrintable(const std::string& aText)
{
    return std::all_of(aText.begin(), aText.end(),
                       [](unsigned char aByte) { return aByte >= 0x20 && aByte != 0x7F; });
}

void CheckInformation(Bytes aRegisters)
{
    const KyGigE::DeviceInformation lInformation = KyGigE::ParseInformation(aRegisters);
    KY_REQUIRE(lInformation.mMac <= 0xFFFFFFFFFFFFU);
    for (const std::string* lText :
         {&lInformation.mVendor, &lInformation.mModel, &lInformation.mVersion, &lInformation.mInformation,
          &lInformation.mSerialNumber, &lInformation.mUserName})
    {
        KY_REQUIRE(lText->size() <= cInformationSize && IsPrintable(*lText));
    }
    KyGigE::DescriptionPlace lPlace;
    const std::string lUrl(aRegisters.begin(), aRegisters.end());
    const bool lIsPlace = KyGigE::ParseDescriptionUrl(lUrl, lPlace);
    KY_REQUIRE(!lIsPlace || lPlace.mSize > 0);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* aData, size_t aSize)
{
    CheckInformation(Bytes(aData, aSize));
    FuzzInput lInput(aData, aSize);
    Session lSession(lInput);
    while (lInput.HasStep())
    {
        lSession.Step();
    }
    return 0;
}
