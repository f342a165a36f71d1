// A whole Camera Link bridge and its client: one of the two dies at any instruction of what it does, the
// other goes on. The stepped process does on one thread what a bridge does on its own.

#include "Benchmarks/BenchDevice.h"
#include "BridgeCLDLL.h"
#include "ClientPort.h"
#include "Tests/Processes/Linux/KillScenario.h"
#include "Tests/Processes/Linux/RingView.h"
#include "Tests/Processes/Linux/Sleeper.h"
#include "Tests/Support/PrivateSession.h"

#include <algorithm>
#include <cstring>
#include <optional>

using KySerialLib::BridgeCLDLL;
using KySerialLib::ClientPort;
using KySerialLib::ClientResult;
using KySerialLib::SharedFifo;
using KySerialLib::SharedRegistry;
using KySerialLib::SharedRegistryEntry;

namespace
{

constexpr char cName[] = "Server";
constexpr size_t cSome = 500;
constexpr size_t cMore = 3000; // than a FIFO holds
constexpr uint32_t cPatience = 10000;
constexpr uint32_t cShortTime = 10;
constexpr char cEnd = '!';

std::string MakeText(size_t aSize)
{
    std::string lText;
    uint32_t lState = 1;
    while (lText.size() < aSize)
    {
        lState = lState * 1664525U + 1013904223U;
        lText += static_cast<char>('a' + (lState >> 24U) % 26);
    }
    return lText;
}

/// Bulk port 1 of a device that keeps what it gets.
class Device final : public KyBench::BenchDevice
{
public:
    KyResult GetIntegerValue(const KyString& aName, int64_t& aValue) override
    {
        const bool lIsLength = std::strstr(aName.GetAscii(), "UpstreamDataLength") != nullptr;
        aValue = lIsLength ? static_cast<int64_t>(mPiece.size()) : mAddress;
        return KyResult();
    }
    KyResult GetRegisterData(const KyString& /*aName*/, uint8_t* aBuffer, int64_t aLength) override
    {
        std::copy_n(mPiece.begin(), std::min(static_cast<size_t>(aLength), mPiece.size()), aBuffer);
        return KyResult();
    }
    KyResult SetRegisterData(const KyString& /*aName*/, const uint8_t* aBuffer, int64_t /*aLength*/) override
    {
        const size_t lSize = size_t{aBuffer[6]} << 8U | aBuffer[7]; // end of the header, in network order
        mTaken.append(reinterpret_cast<const char*>(aBuffer) + 8, lSize);
        mOnTaken();
        return KyResult();
    }

    void Send(const std::string& aText)
    {
        const KyString lName("EventBulk1UpstreamDataBuffer");
        for (size_t lDone = 0; lDone < aText.size(); lDone += mPiece.size())
        {
            mPiece = aText.substr(lDone, 500);
            mSink->NotifyFeatureInvalidated(&lName);
        }
    }

    std::string mTaken;
    std::function<void()> mOnTaken = [] {};

private:
    std::string mPiece;
};

/// A bridge that relays on command.
class Server
{
public:
    bool Open()
    {
        mBridge.emplace();
        return mBridge->OpenDevicePort(&mDevice, KyDeviceSerialBulk1).IsOK() &&
               mBridge->OpenSharedMem(cName).IsOK();
    }
    void Close() { mBridge.reset(); }

    /// Relays down until the device gets cEnd, but not longer than cPatience.
    void RelayDown()
    {
        mDevice.mOnTaken = [this]
        {
            if (mDevice.mTaken.ends_with(cEnd))
            {
                mBridge->StopThreads();
            }
        };
        std::promise<void> lLeft;
        std::thread lStopper(
            [&]
            {
                lLeft.get_future().wait_for(std::chrono::milliseconds(cPatience));
                mBridge->StopThreads();
            });
        Run(mBridge->GetDownThreadRoutine());
        lLeft.set_value();
        lStopper.join();
    }

    /// Relays one block down.
    void RelayBlockDown()
    {
        mDevice.mOnTaken = [this] { mBridge->StopThreads(); };
        Run(mBridge->GetDownThreadRoutine());
    }

    /// Relays one block up, as far as there is room for it.
    void RelayBlockUp()
    {
        std::thread lStopper(
            [this]
            {
                while (mBridge->GetBytesReceivedFromDevice() == 0)
                {
                    std::this_thread::sleep_for(std::chrono::milliseconds(1));
                }
                std::this_thread::sleep_for(std::chrono::milliseconds(30)); // and stays in its wait for room
                mBridge->StopThreads();
            });
        Run(mBridge->GetUpThreadRoutine());
        lStopper.join();
    }

    /// Relays up until Stop().
    void RelayUp() { Run(mBridge->GetUpThreadRoutine()); }
    void Stop()
    {
        mBridge->StopThreads();
        mDevice.Send("#"); // ends its wait for the device
    }

    Device mDevice;

private:
    void Run(KyPlatform::WorkerThread::Routine aRoutine)
    {
        aRoutine(static_cast<KySerialLib::Bridge*>(&*mBridge));
    }

    std::optional<BridgeCLDLL> mBridge;
};

/// Reads what is there.
std::string ReadAll(ClientPort& aClient)
{
    std::string lText(2 * cMore, '\0');
    uint32_t lRead = 0;
    aClient.Read(lText.data(), static_cast<uint32_t>(lText.size()), false, 0, lRead);
    return lText.substr(0, lRead);
}

bool Write(ClientPort& aClient, const std::string& aText, uint32_t aTimeout)
{
    uint32_t lWritten = 0;
    return aClient.Write(aText.data(), static_cast<uint32_t>(aText.size()), aTimeout, lWritten) ==
           ClientResult::Done;
}

class BridgeScenario : public KillScenario
{
public:
    BridgeScenario() { JxUtilsLib::Logger::SetPriority(JxUtilsLib::PriorityFatal); }

protected:
    /// What the FIFOs of the server are named by; empty without an entry of it.
    std::string GetNumber()
    {
        SharedRegistryEntry* lEntry = nullptr;
        return mRegistry.Find(cName, lEntry) ? std::to_string(lEntry->mServerId) : "";
    }

    /// The FIFOs as they are between the processes.
    bool OpenFifos()
    {
        const std::string lNumber = GetNumber();
        if (!lNumber.empty())
        {
            mDown.emplace("KySerialBridgeDownFifo" + lNumber, "Local\\", 1024, false);
            mUp.emplace("KySerialBridgeUpFifo" + lNumber, "Local\\", 1024, false);
        }
        return !lNumber.empty() && mDown->IsValid() && mUp->IsValid();
    }

    /// The same, to be looked at only.
    bool ViewFifos()
    {
        mDownRing.emplace("Local\\KySerialBridgeDownFifo" + GetNumber());
        mUpRing.emplace("Local\\KySerialBridgeUpFifo" + GetNumber());
        return mDownRing->IsValid() && mUpRing->IsValid();
    }

    /// A new server and, if there is none, a new client, at once, with one more byte each way.
    /// \param aDown, aUp  Receive what came out of what was on its way before, and that byte.
    void ServeAgain(std::optional<ClientPort>& aClient, std::string& aDown, std::string& aUp)
    {
        const UndisturbedTimer lWatch;
        Server lNew;
        lNew.mDevice.mAddress = 0x77;
        if (!Require(lNew.Open() && OpenFifos(), "the name cannot be served again"))
        {
            return;
        }
        NoteIfLate(lWatch, cProgress, "the name was served again");
        if (!aClient.has_value() &&
            !Require(aClient.emplace().Attach(cName) == ClientResult::Done, "no client can attach"))
        {
            return;
        }
        NoteIfLate(lWatch, cProgress, "a client was attached again");
        const UndisturbedTimer lTransfer;
        {
            Sleeper lWriter([&] { Write(*aClient, std::string(1, cEnd), cPatience); });
            lNew.RelayDown();
        }
        NoteIfLate(lTransfer, cProgress, "a byte came down again");
        aDown = lNew.mDevice.mTaken;
        aUp = ReadAll(*aClient); // so that there is room
        uint32_t lWritten = 0;
        mUp->Write(&cEnd, 1, lWritten, 0);
        aUp.insert(0, GetFirst()); // who has slept reads before all others
        aUp += ReadAll(*aClient);
        Require(aDown.ends_with(cEnd) && aUp.ends_with(cEnd), "bytes do not come through");
    }

    /// What a sleeper has read that something has come for.
    virtual std::string GetFirst() { return ""; }

    PrivateSession mSession;
    SharedRegistry mRegistry{true};
    std::optional<SharedFifo> mDown;
    std::optional<SharedFifo> mUp;
    std::optional<RingView> mDownRing;
    std::optional<RingView> mUpRing;
};

/// What the surviving client does meanwhile.
enum class Company
{
    Nobody,
    Sleeper, ///< One call that takes as long as it takes.
    Caller   ///< One call after the other, each with a short time-out.
};

/// What the dying server does.
enum class Serving
{
    Open,
    Close,
    Down,
    Up
};

/// The survivor is the client.
class ServerDies : public BridgeScenario
{
public:
    ServerDies(Serving aDeed, size_t aSize, Company aCompany)
        : mDeed(aDeed), mCompany(aCompany), mText(MakeText(aSize))
    {
    }

    void Before() override
    {
        if (mDeed != Serving::Open)
        {
            mServer.Open();
        }
        if (mDeed == Serving::Up)
        {
            mServer.mDevice.Send(mText);
        }
    }

    void Beside() override
    {
        if (mDeed == Serving::Open)
        {
            return;
        }
        mAttached = mClient.emplace().Attach(cName) == ClientResult::Done && ViewFifos();
        if (mDeed == Serving::Down && mCompany == Company::Nobody)
        {
            mAttached = mAttached && Write(*mClient, mText, 0);
            mSent = mText;
        }
        if (mCompany != Company::Nobody)
        {
            mSleeper.emplace([this] { mDeed == Serving::Down ? WriteOn() : ReadOn(); });
            // The client has to be past its look for a server: before that it would wait for the next server.
            const UndisturbedTimer lWatch;
            const auto lIsFull = [this] { return mDownRing->IsFull(); };
            mAttached = mAttached && (mDeed != Serving::Down || Await(lIsFull, lWatch, "the scene was set"));
        }
    }

    void Steps() override
    {
        switch (mDeed)
        {
        case Serving::Open:
            mServer.Open();
            break;
        case Serving::Close:
            mServer.Close();
            break;
        case Serving::Down:
            mServer.RelayBlockDown();
            break;
        case Serving::Up:
            mServer.RelayBlockUp();
            break;
        }
    }

    void Check() override
    {
        if (!Require(mDeed == Serving::Open || mAttached, "the scene was not set"))
        {
            return;
        }
        if (mDeed != Serving::Open)
        {
            CheckClient();
        }
        std::string lDown;
        std::string lUp;
        ServeAgain(mClient, lDown, lUp);
        Require(HasWoken(), "the client sleeps for ever");
        mSleeper.reset();
        Require((mSent + cEnd).ends_with(lDown), "the next server gets what was not sent");
        const std::string lCame = mDeed == Serving::Up ? mText : "";
        Require(lCame.starts_with(lUp.substr(0, lUp.size() - 1)), "the client gets what was not sent");
    }

private:
    /// The client of a dead server goes on as far as there is something to go on with, and its calls end in
    /// time.
    void CheckClient()
    {
        mStop = true;
        const auto lGoesOn = [this]
        {
            // One that sleeps on has nothing to do.
            const bool lSleeps = mDeed == Serving::Down ? mDownRing->IsFull() : mUpRing->IsEmpty();
            return !mSleeper.has_value() || mSleeper->HasWoken() || (mCompany == Company::Sleeper && lSleeps);
        };
        if (!Require(Await(lGoesOn, GetDeath(), "the client went on"), "the client does not go on"))
        {
            return;
        }
        if (mCompany == Company::Caller)
        {
            NoteIfLate(GetDeath(), cShortCall, "the call that met the death ended");
        }
        char lBytes[cMore];
        uint32_t lCount = 0;
        const UndisturbedTimer lReading;
        const ClientResult lRead = mClient->Read(lBytes, sizeof lBytes, true, cShortTime, lCount);
        NoteIfLate(lReading, cShortCall, "a read ended");
        const UndisturbedTimer lWriting;
        const bool lWritten = Write(*mClient, "?", cShortTime);
        NoteIfLate(lWriting, cShortCall, "a write ended");
        Require(lRead == ClientResult::TimedOut && !lWritten, "there is no server, and bytes go somewhere");
    }

    bool HasWoken()
    {
        const UndisturbedTimer lWatch;
        return !mSleeper.has_value() ||
               Await([this] { return mSleeper->HasWoken(); }, lWatch, "the client woke");
    }

    std::string GetFirst() override { return mSleeper.has_value() && HasWoken() ? mFirst : ""; }

    static constexpr std::chrono::milliseconds cShortCall{cShortTime + cBeyondTimeout.count()};

    uint32_t GetTime() const { return mCompany == Company::Caller ? cShortTime : cPatience; }

    void WriteOn()
    {
        do
        {
            uint32_t lWritten = 0;
            const std::string lRest = mText.substr(mSent.size());
            mClient->Write(lRest.data(), static_cast<uint32_t>(lRest.size()), GetTime(), lWritten);
            mSent += lRest.substr(0, lWritten);
        } while (mCompany == Company::Caller && !mStop && mSent.size() < mText.size());
    }

    void ReadOn()
    {
        do
        {
            char lByte = 0;
            uint32_t lRead = 0;
            mClient->Read(&lByte, 1, true, GetTime(), lRead);
            mFirst.append(&lByte, lRead);
        } while (mCompany == Company::Caller && !mStop);
    }

    const Serving mDeed;
    const Company mCompany;
    const std::string mText;
    Server mServer;
    bool mAttached = false;
    std::optional<ClientPort> mClient;
    std::string mSent;  // the sleeper's until it has woken
    std::string mFirst; // likewise
    std::atomic<bool> mStop{false};
    std::optional<Sleeper> mSleeper;
};

/// What the dying client does.
enum class Using
{
    Attach,
    Close,
    Write,
    Read
};

/// The survivor is the server.
class ClientDies : public BridgeScenario
{
public:
    ClientDies(Using aDeed, size_t aSize, bool aSleeper)
        : mDeed(aDeed)
        , mHasSleeper(aSleeper)
        , mText(MakeText(aSize))
        , mOpen(mServer.Open() && OpenFifos() && ViewFifos())
    {
        if (mDeed == Using::Read)
        {
            mServer.mDevice.Send(mText);
        }
        if (mDeed == Using::Read && !mHasSleeper)
        {
            std::thread lStopper(
                [this]
                {
                    uint32_t lCount = 0;
                    while (mUp->GetAvailable(lCount) && lCount < mText.size())
                    {
                        std::this_thread::sleep_for(std::chrono::microseconds(50));
                    }
                    mServer.Stop();
                });
            mServer.RelayUp();
            lStopper.join();
        }
    }

    void Before() override
    {
        if (mDeed != Using::Attach)
        {
            mClient.emplace().Attach(cName);
        }
    }

    void Beside() override
    {
        if (mHasSleeper)
        {
            mSleeper.emplace([this] { mDeed == Using::Write ? mServer.RelayDown() : mServer.RelayUp(); });
        }
    }

    void Steps() override
    {
        char lBytes[200];
        uint32_t lCount = 0;
        switch (mDeed)
        {
        case Using::Attach:
            mClient.emplace().Attach(cName);
            break;
        case Using::Close:
            mClient.reset();
            break;
        case Using::Write:
            Write(*mClient, mText, 1000);
            break;
        case Using::Read:
            mClient->Read(lBytes, sizeof lBytes, true, 1000, lCount);
            break;
        }
    }

    void Check() override
    {
        if (!Require(mOpen, "the scene was not set"))
        {
            return;
        }
        if (mHasSleeper)
        {
            mDeed == Using::Write ? WakeDown() : WakeUp();
        }
        const std::string lBefore = mServer.mDevice.mTaken;
        std::string lLeft = mTakenUp + ReadUp(0);
        if (lLeft.ends_with('#'))
        {
            lLeft.pop_back(); // of the stop
        }
        mServer.Close();
        std::string lDown;
        std::string lUp;
        mClient.reset();
        ServeAgain(mClient, lDown, lUp);
        const std::string lAll = mHasSleeper && mDeed == Using::Write ? lBefore : lDown;
        Require((mDeed == Using::Write ? mText : "").starts_with(lAll.substr(0, lAll.size() - 1)),
                "the device gets what was not written");
        Require((mDeed == Using::Read ? mText : "").ends_with(lLeft),
                "the next client gets what was not sent, or twice");
    }

private:
    std::string ReadUp(uint32_t aTimeout)
    {
        char lBytes[1024];
        uint32_t lRead = 0;
        mUp->Read(lBytes, sizeof lBytes, lRead, aTimeout);
        return {lBytes, lRead};
    }

    /// What the survivor sleeps for comes: bytes from the client.
    void WakeDown()
    {
        const bool lGoesOn = Await([this] { return mDownRing->IsEmpty(); }, GetDeath(), "the server read on");
        const UndisturbedTimer lWatch;
        uint32_t lWritten = 0;
        mDown->Write(&cEnd, 1, lWritten, cPatience);
        const bool lWoken = Await([this] { return mSleeper->HasWoken(); }, lWatch, "the server woke");
        mSleeper.reset();
        Require(lGoesOn && lWoken, "the server sleeps for ever");
    }

    /// The same, room for the client's. What the device has sent, more than the client can have taken, comes to its
    /// end, although that one is dead.
    void WakeUp()
    {
        const bool lGoesOn = Await([this] { return mUpRing->IsFull(); }, GetDeath(), "the server wrote on");
        const UndisturbedTimer lWatch;
        const auto lTakeRest = [this]
        {
            mTakenUp += ReadUp(1);
            return mTakenUp.ends_with(mText.substr(mText.size() - 100));
        };
        Await(lTakeRest, lWatch, "the rest came");
        const UndisturbedTimer lStop;
        mServer.Stop();
        const bool lWoken = Await([this] { return mSleeper->HasWoken(); }, lStop, "the server stopped");
        NoteIfLate(lStop, cBeyondTimeout, "the server stopped");
        mSleeper.reset();
        Require(lGoesOn && lWoken, "the server sleeps for ever");
    }

    const Using mDeed;
    const bool mHasSleeper;
    const std::string mText;
    Server mServer;
    const bool mOpen;
    std::optional<ClientPort> mClient;
    std::string mTakenUp;
    std::optional<Sleeper> mSleeper;
};

template<typename tScenario, typename tDeed, typename tCompany>
KillCase MakeCase(const char* aName, tDeed aDeed, size_t aSize, tCompany aCompany)
{
    return {aName,
            [=]() -> std::unique_ptr<KillScenario>
            { return std::make_unique<tScenario>(aDeed, aSize, aCompany); },
            true};
}

} // namespace

std::vector<KillCase> GetBridgeKillCases()
{
    return {
        MakeCase<ServerDies>("BridgeOpens", Serving::Open, 0, Company::Nobody),
        MakeCase<ServerDies>("BridgeCloses", Serving::Close, 0, Company::Nobody),
        MakeCase<ServerDies>("BridgeRelaysDown", Serving::Down, cSome, Company::Nobody),
        MakeCase<ServerDies>("BridgeRelaysDownBesideASleepingClient", Serving::Down, cMore, Company::Sleeper),
        MakeCase<ServerDies>("BridgeRelaysDownBesideACallingClient", Serving::Down, cMore, Company::Caller),
        MakeCase<ServerDies>("BridgeRelaysUp", Serving::Up, cSome, Company::Nobody),
        MakeCase<ServerDies>("BridgeRelaysUpBesideASleepingClient", Serving::Up, cSome, Company::Sleeper),
        MakeCase<ServerDies>("BridgeRelaysUpBesideACallingClient", Serving::Up, cSome, Company::Caller),
        MakeCase<ServerDies>("BridgeRelaysUpMoreThanFits", Serving::Up, cMore, Company::Nobody),
        MakeCase<ClientDies>("ClientAttaches", Using::Attach, 0, false),
        MakeCase<ClientDies>("ClientCloses", Using::Close, 0, false),
        MakeCase<ClientDies>("ClientWrites", Using::Write, cSome, false),
        MakeCase<ClientDies>("ClientWritesBesideASleepingBridge", Using::Write, cMore, true),
        MakeCase<ClientDies>("ClientReads", Using::Read, cSome, false),
        MakeCase<ClientDies>("ClientReadsBesideASleepingBridge", Using::Read, cMore, true)};
}
