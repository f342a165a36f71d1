// Packets from the network, of two applications and packets that break the protocol, to the camera's
// control channel: every answer belongs to the command that came, goes to its sender, and control is never
// taken from the application that has it.

#include "Fuzz/FuzzInput.h"
#include "KySerial/DeviceProtocol.h"
#include "Simulator/Network/GvcpServer.h"
#include "Simulator/Time/ManualScheduler.h"

#include <array>
#include <memory>
#include <optional>

using namespace KyDeviceProtocol;
using namespace KyTest;
using namespace KyGvcp;
using KySimulator::GvcpServer;
using KySimulator::Time;

namespace
{

using Buffer = std::vector<uint8_t>;

constexpr std::array<Endpoint, 2> cApplications = {{{0x7F000001, 5001}, {0x7F000001, 5002}}};

// Where a part of the camera begins or ends.
constexpr uint32_t cPlaces[] = {cVersionRegister,
                                cMacLowRegister,
                                cUserNameRegister,
                                cFirstUrlRegister,
                                cSecondUrlRegister,
                                cMessageCapabilityRegister,
                                cHeartbeatRegister,
                                cTimestampControlRegister,
                                cControlPrivilegeRegister,
                                cPrimaryAddressRegister,
                                cMessagePortRegister,
                                cMessageAddressRegister,
                                cMessageTimeoutRegister,
                                cMessageSourcePortRegister,
                                cManufacturerRegisters,
                                0x10100,
                                0x20000,
                                0x21000,
                                0x100000,
                                cInterruptEnable,
                                cUart0Data,
                                cBulk0Configuration,
                                cFunctionCapabilities,
                                0x80000000,
                                0x80001000,
                                0xFFFFFFFC};

struct Sent
{
    Endpoint mTo;
    Buffer mPacket;
};

/// Camera and registers are made once: their description takes longer than a run.
struct Camera
{
    Camera()
    {
        KySimulator::CameraConfiguration lConfiguration;
        lConfiguration.mUnlimitedLineRate = true;
        lConfiguration.mWireLimit = 1024;
        mModel = std::make_unique<KySimulator::CameraModel>(lConfiguration,
                                                            std::make_shared<KySimulator::ManualScheduler>());
        mRegisters = std::make_unique<KySimulator::RegisterMap>(*mModel);
    }

    std::unique_ptr<KySimulator::CameraModel> mModel;
    std::unique_ptr<KySimulator::RegisterMap> mRegisters;
};

class Session final : GvcpServer::Host
{
public:
    Session(Camera& aCamera, FuzzInput& aInput)
        : mRegisters(*aCamera.mRegisters), mInput(aInput), mServer(mRegisters, mFaults, *this)
    {
        mServer.ReleaseControl(); // what the run before has left in the registers
        mRegisters.GetBootstrap().Set(cHeartbeatRegister, 3000);
    }

    void Step()
    {
        switch (mInput.TakeByte() % 8)
        {
        case 0:
            Send(mInput.TakeBytes(mInput.TakeByte()));
            break;
        case 1:
            Send(mLast);
            break;
        case 2:
            mNow += std::chrono::milliseconds(mInput.TakeByte() * 20);
            mServer.Step(mNow);
            break;
        case 3:
            SetFaults();
            break;
        default:
            SendCommand();
            break;
        }
    }

private:
    void SendAcknowledge(const Endpoint& aTo, Bytes aPacket) override
    {
        mSent.push_back({aTo, {aPacket.begin(), aPacket.end()}});
    }

    void OnChannelChanged(const KySimulator::ChannelSettings& aSettings) override
    {
        KY_REQUIRE((aSettings.mPeer.mAddress == 0) == (aSettings.mPeer.mPort == 0));
    }

    bool MoveTo(const KySimulator::ForcedAddress& aAddress) override { return aAddress.mAddress % 2 == 0; }

    void SetFaults()
    {
        const uint8_t lKind = mInput.TakeByte();
        mFaults.Clear();
        mFaults.SetBusy(lKind & 3U);
        mFaults.SetSlow(lKind >> 2U & 3U, std::chrono::milliseconds(lKind));
    }

    uint32_t TakeAddress()
    {
        const uint8_t lChoice = mInput.TakeByte();
        const size_t lPlace = lChoice % (std::size(cPlaces) + 1);
        return lPlace < std::size(cPlaces) ? cPlaces[lPlace] + (lChoice & 0x80U ? 4U : 0U)
                                           : mInput.TakeWord();
    }

    void SendCommand()
    {
        const auto lID = static_cast<uint16_t>(++mRequest);
        const uint8_t lKind = mInput.TakeByte();
        const uint32_t lAddress = TakeAddress();
        std::optional<Packet> lPacket;
        switch (lKind % 5)
        {
        case 0:
            lPacket = MakeReadRegister(lID, lAddress);
            break;
        case 1:
            lPacket = MakeWriteRegister(lID, lAddress, mInput.TakeByte());
            break;
        case 2:
            lPacket = MakeReadMemory(lID, lAddress, static_cast<uint16_t>(mInput.TakeByte() * 4U));
            break;
        case 3:
            lPacket = MakeWriteMemory(lID, lAddress, mInput.TakeBytes(mInput.TakeByte()));
            break;
        default:
            lPacket = MakeDiscovery(lID, mInput.TakeFlag());
            break;
        }
        Buffer lBytes(lPacket->GetBytes().begin(), lPacket->GetBytes().end());
        if ((lKind & 0x80U) != 0 && !lBytes.empty())
        {
            lBytes[mInput.TakeByte() % lBytes.size()] = mInput.TakeByte();
        }
        Send(lBytes);
    }

    void Send(const Buffer& aPacket)
    {
        mFrom = cApplications[mInput.TakeByte() % cApplications.size()];
        const GvcpServer::Counters lBefore = mServer.GetCounters();
        const Endpoint lController = mServer.GetController();
        mSent.clear();
        mServer.Handle(mFrom, aPacket, mNow);
        const GvcpServer::Counters& lAfter = mServer.GetCounters();
        const auto lCommand = ParseCommand(aPacket);
        KY_REQUIRE(mSent.size() <= 1);
        if (!lCommand.has_value())
        {
            KY_REQUIRE(mSent.empty() && lAfter.mIgnored == lBefore.mIgnored + 1);
        }
        else
        {
            CheckAnswer(*lCommand);
        }
        if (!(lController == Endpoint()) && !(lController == mFrom))
        {
            KY_REQUIRE(mServer.GetController() == lController); // no other application ends or takes it
        }
        if (lAfter.mCommands > lBefore.mCommands && !(lController == mFrom))
        {
            CheckRight(*lCommand);
        }
        if (lAfter.mRepeated > lBefore.mRepeated)
        {
            KY_REQUIRE(lAfter.mCommands == lBefore.mCommands && mSent.size() == 1);
        }
        mLast = aPacket;
    }

    void CheckAnswer(const CommandView& aCommand)
    {
        if (mSent.empty())
        {
            return; // it waits, or wants none
        }
        const bool lWanted = (aCommand.mFlags & cAcknowledgeWanted) != 0;
        const auto lAnswer = ParseAcknowledge(mSent[0].mPacket);
        KY_REQUIRE(lAnswer.has_value() && mSent[0].mTo == mFrom && mSent[0].mPacket.size() <= cMaxPacket);
        KY_REQUIRE(lAnswer->mRequestID == aCommand.mRequestID && aCommand.mRequestID != 0);
        const bool lFits = lAnswer->mCode == aCommand.mCode + 1 || lAnswer->mCode == cPendingAck;
        KY_REQUIRE(lFits);
        KY_REQUIRE(lWanted || aCommand.mCode == cDiscovery || lAnswer->mStatus == cBusy);
    }

    // A sender that is not in control can write one register only, the one that takes control.
    void CheckRight(const CommandView& aCommand)
    {
        const bool lWrites = aCommand.mCode == cWriteRegister || aCommand.mCode == cWriteMemory;
        if (lWrites && !mSent.empty() && ParseAcknowledge(mSent[0].mPacket)->mStatus == cSuccess &&
            ParseAcknowledge(mSent[0].mPacket)->mCode != cPendingAck)
        {
            KY_REQUIRE(Reader(aCommand.mPayload).Take32() == cControlPrivilegeRegister);
        }
    }

    KySimulator::RegisterMap& mRegisters;
    FuzzInput& mInput;
    KySimulator::NetworkFaults mFaults;
    GvcpServer mServer;
    std::vector<Sent> mSent;
    Endpoint mFrom;
    Buffer mLast;
    Time mNow{std::chrono::seconds(100)};
    uint32_t mRequest = 0;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* aData, size_t aSize)
{
    static Camera sCamera;
    FuzzInput lInput(aData, aSize);
    Session lSession(sCamera, lInput);
    while (lInput.HasStep())
    {
        lSession.Step();
    }
    return 0;
}
