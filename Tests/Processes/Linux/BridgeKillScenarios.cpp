// A whole Camera Link bridge and its client: one of the two dies at any instruction of what it does, the
// other goes on. The stepped process does on one thread what a bridge does on its own.

#include "Benchmarks/LoopDevice.h"
#include "BridgeCLDLL.h"
#include "ClientPort.h"
#include "Tests/Processes/Linux/KillScenario.h"
#include "Tests/Support/PrivateSession.h"
#include "Tests/Support/RingView.h"
#include "Tests/Support/TextFifo.h"
#include "Tests/Support/WaitFor.h"

#include <algorithm>

using KySerialLib::BridgeCLDLL;
using KySerialLib::ClientPort;
using KySerialLib::ClientResult;
using KyTest::MakeText;
using KyTest::RingView;
using KyTest::TextFifo;
using KyTest::WaitFor;

namespace
{

constexpr char cName[] = "Server";
constexpr char cDownFifo[] = "KySerialBridgeDownFifo1"; // of the only server of the session
constexpr char cUpFifo[] = "KySerialBridgeUpFifo1";
constexpr size_t cSome = 500;
constexpr size_t cMore = 3000; // than a FIFO holds
constexpr uint32_t cPatience = 10000;
constexpr uint32_t cShortTime = 10;
constexpr char cEnd = '!';
constexpr char cNotSet[] = "the scene was not set";

/// A bridge that relays on command. Its device keeps what it gets.
class Server
{
public:
    Server()
    {
        mDevice.mOnData = [this](const uint8_t* aData, uint32_t aSize)
        {
            mTaken.append(reinterpret_cast<const char*>(aData), aSize);
            if (mStopsAtBlock || mTaken.ends_with(cEnd))
            {
                Stop();
            }
        };
    }
    bool IsOpened() const { return mOpened; }
    void Open()
    {
        mBridge.emplace();
        mOpened = mBridge->OpenDevicePort(&mDevice, KyDeviceSerialBulk1).IsOK() &&
                  mBridge->OpenSharedMem(cName).IsOK();
    }
    void Close() { mBridge.reset(); }

    /// The device says something.
    void Send(const std::string& aText)
    {
        constexpr size_t cMessage = 500;
        for (size_t lDone = 0; lDone < aText.size(); lDone += cMessage)
        {
            mDevice.Emit(reinterpret_cast<const uint8_t*>(&aText[lDone]),
                         static_cast<uint32_t>(std::min(cMessage, aText.size() - lDone)));
        }
    }

    /// Relays down until the device gets cEnd, but not longer than cPatience.
    void RelayDown()
    {
        std::atomic<bool> lLeft{false};
        const std::jthread lStopper(
            [&]
            {
                WaitFor([&] { return lLeft.load(); }, std::chrono::milliseconds(cPatience));
                Stop();
            });
        Run(mBridge->GetDownThreadRoutine());
        lLeft = true;
    }

    void RelayBlockDown()
    {
        mStopsAtBlock = true;
        Run(mBridge->GetDownThreadRoutine());
    }

    /// Relays one block up, as far as there is room for it.
    void RelayBlockUp()
    {
        const std::jthread lStopper(
            [this]
            {
                WaitFor([this] { return mBridge->GetBytesReceivedFromDevice() != 0; });
                std::this_thread::sleep_for(std::chrono::milliseconds(30)); // and stays in its wait for room
                Stop();
            });
        RelayUp();
    }

    /// Relays up until Stop().
    void RelayUp() { Run(mBridge->GetUpThreadRoutine()); }
    void Stop() { mBridge->StopThreads(); }

    KyBench::LoopDevice mDevice{0x55};
    std::string mTaken; // by the device

private:
    void Run(KyPlatform::WorkerThread::Routine aRoutine)
    {
        aRoutine(static_cast<KySerialLib::Bridge*>(&*mBridge));
    }

    bool mStopsAtBlock = false;
    bool mOpened = false;
    std::optional<BridgeCLDLL> mBridge;
};

/// What one of the two does when it dies.
using ServerDeed = void (Server::*)();

uint32_t Write(ClientPort& aClient, const std::string& aText, uint32_t aTimeout)
{
    uint32_t lWritten = 0;
    aClient.Write(aText.data(), static_cast<uint32_t>(aText.size()), aTimeout, lWritten);
    return lWritten;
}

std::string Read(ClientPort& aClient, size_t aSize, bool aWhole, uint32_t aTimeout)
{
    std::string lText(aSize, '\0');
    uint32_t lRead = 0;
    aClient.Read(lText.data(), static_cast<uint32_t>(aSize), aWhole, aTimeout, lRead);
    return lText.substr(0, lRead);
}

class BridgeScenario : public KillScenario
{
public:
    BridgeScenario() { JxUtilsLib::Logger::SetPriority(JxUtilsLib::PriorityFatal); }

protected:
    /// The FIFOs as they are between the processes.
    bool OpenFifos()
    {
        mDown.emplace(cDownFifo, 1024, false);
        mUp.emplace(cUpFifo, 1024, false);
        return mDown->IsValid() && mUp->IsValid();
    }

    bool Attach() { return mClient.emplace().Attach(cName) == ClientResult::Done; }

    /// A new server and, if there is none, a new client, at once, with one more byte each way.
    /// \param aDown, aUp  Receive what came out of what was on its way before, and that byte.
    void ServeAgain(std::string& aDown, std::string& aUp)
    {
        const UndisturbedTimer lWatch;
        Server lNew;
        lNew.mDevice.mAddress = 0x77;
        lNew.Open();
        if (!Require(lNew.IsOpened() && OpenFifos(), "the name cannot be served again"))
        {
            return;
        }
        NoteIfLate(lWatch, cProgress, "the name was served again");
        if (!mClient.has_value() && !Require(Attach(), "no client can attach"))
        {
            return;
        }
        NoteIfLate(lWatch, cProgress, "a client was attached again");
        const UndisturbedTimer lTransfer;
        {
            const std::jthread lWriter([&] { Write(*mClient, std::string(1, cEnd), cPatience); });
            lNew.RelayDown();
        }
        NoteIfLate(lTransfer, cProgress, "a byte came down again");
        aDown = lNew.mTaken;
        aUp = Read(*mClient, 2 * cMore, false, 0); // so that there is room
        mUp->Write(std::string(1, cEnd));
        aUp.insert(0, GetFirst()); // a sleeper reads before all others
        aUp += Read(*mClient, 2 * cMore, false, 0);
        Require(aDown.ends_with(cEnd) && aUp.ends_with(cEnd), "bytes do not come through");
    }

    /// What a sleeper has read that something has come for.
    virtual std::string GetFirst() { return ""; }

    PrivateSession mSession;
    KySerialLib::SharedRegistry mRegistry{true};
    std::optional<TextFifo> mDown;
    std::optional<TextFifo> mUp;
    Server mServer;
    std::optional<ClientPort> mClient;
};

/// What the surviving client does meanwhile.
enum class Company
{
    Nobody,
    Sleeper, ///< One call that takes as long as it takes.
    Caller   ///< One call after the other, each with a short time-out.
};

/// The survivor is the client.
class ServerDies : public BridgeScenario
{
public:
    ServerDies(ServerDeed aDeed, size_t aSize, Company aCompany)
        : mDeed(aDeed), mCompany(aCompany), mText(MakeText(aSize))
    {
    }

    void Before() override
    {
        if (mDeed != &Server::Open)
        {
            mServer.Open();
        }
        if (mIsUp)
        {
            mServer.Send(mText);
        }
    }

    void Beside() override
    {
        if (mDeed == &Server::Open)
        {
            return;
        }
        if (!Require(Attach(), cNotSet))
        {
            return;
        }
        if (mIsDown && mCompany == Company::Nobody)
        {
            Require(Write(*mClient, mText, 0) == mText.size(), cNotSet);
            mSent = mText;
        }
        if (mCompany != Company::Nobody)
        {
            StartSleeper([this] { CallOn(); });
            // The client has to be past its look for a server: before that it would wait for the next server.
            const auto lIsPast = [this] { return !mIsDown || RingView(cDownFifo).IsFull(); };
            Require(Await(lIsPast, UndisturbedTimer(), "the scene was set"), cNotSet);
        }
    }

    void Steps() override { (mServer.*mDeed)(); }

    void Check() override
    {
        if (mDeed != &Server::Open)
        {
            CheckClient();
        }
        std::string lDown;
        std::string lUp;
        ServeAgain(lDown, lUp);
        RequireWaking([] {});
        Require((mSent + cEnd).ends_with(lDown), "the next server gets what was not sent");
        const std::string lCame = mIsUp ? mText : "";
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
            const bool lMaySleep = mIsDown ? RingView(cDownFifo).IsFull() : RingView(cUpFifo).IsEmpty();
            return HasWoken() || (mCompany == Company::Sleeper && lMaySleep);
        };
        if (!Require(Await(lGoesOn, GetDeath(), "the client went on"), "the client does not go on"))
        {
            return;
        }
        if (mCompany == Company::Caller)
        {
            NoteIfLate(GetDeath(), cShortCall, "the call that met the death ended");
        }
        const UndisturbedTimer lReading;
        const std::string lRead = Read(*mClient, cMore, true, cShortTime);
        NoteIfLate(lReading, cShortCall, "a read ended");
        const UndisturbedTimer lWriting;
        const uint32_t lWritten = Write(*mClient, "?", cShortTime);
        NoteIfLate(lWriting, cShortCall, "a write ended");
        Require(lRead.empty() && lWritten == 0, "there is no server, and bytes go somewhere");
    }

    std::string GetFirst() override
    {
        return Await([this] { return HasWoken(); }, UndisturbedTimer(), "the client woke") ? mFirst : "";
    }

    /// Writes the text, or reads a byte; a caller does it as often as it takes.
    void CallOn()
    {
        const uint32_t lTime = mCompany == Company::Caller ? cShortTime : cPatience;
        do
        {
            if (mIsDown)
            {
                mSent += mText.substr(mSent.size(), Write(*mClient, mText.substr(mSent.size()), lTime));
            }
            else
            {
                mFirst += Read(*mClient, 1, true, lTime);
            }
        } while (mCompany == Company::Caller && !mStop && (mIsUp || mSent.size() < mText.size()));
    }

    static constexpr std::chrono::milliseconds cShortCall{cShortTime + cBeyondTimeout.count()};

    const ServerDeed mDeed;
    const bool mIsDown = mDeed == &Server::RelayBlockDown;
    const bool mIsUp = mDeed == &Server::RelayBlockUp;
    const Company mCompany;
    const std::string mText;
    std::string mSent;  // the sleeper's until it has woken
    std::string mFirst; // likewise
    std::atomic<bool> mStop{false};
};

/// The survivor is the server.
class ClientDies : public BridgeScenario
{
public:
    using Deed = void (ClientDies::*)();

    ClientDies(Deed aDeed, size_t aSize, bool aSleeper)
        : mDeed(aDeed), mHasSleeper(aSleeper), mText(MakeText(aSize))
    {
        mServer.Open();
        if (!Require(mServer.IsOpened() && OpenFifos(), cNotSet) || !mIsRead)
        {
            return;
        }
        mServer.Send(mText);
        if (!mHasSleeper)
        {
            mServer.RelayBlockUp();
        }
    }

    // What the client does.
    void AttachClient() { Attach(); }
    void CloseClient() { mClient.reset(); }
    void WriteText() { Write(*mClient, mText, 1000); }
    void ReadSome() { Read(*mClient, 200, true, 1000); }

    void Before() override
    {
        if (mDeed != &ClientDies::AttachClient)
        {
            Attach();
        }
    }
    void Beside() override
    {
        if (mHasSleeper)
        {
            StartSleeper([this] { mIsRead ? mServer.RelayUp() : mServer.RelayDown(); });
        }
    }
    void Steps() override { (this->*mDeed)(); }

    void Check() override
    {
        if (mHasSleeper)
        {
            mIsRead ? WakeUp() : WakeDown();
        }
        const std::string lBefore = mServer.mTaken;
        const std::string lLeft = mTakenUp + mUp->Read();
        mServer.Close();
        std::string lDown;
        std::string lUp;
        mClient.reset();
        ServeAgain(lDown, lUp);
        const std::string lAll = mHasSleeper && !mIsRead ? lBefore : lDown;
        Require((mDeed == &ClientDies::WriteText ? mText : "").starts_with(lAll.substr(0, lAll.size() - 1)),
                "the device gets what was not written");
        Require((mIsRead ? mText : "").ends_with(lLeft), "the next client gets what was not sent, or twice");
    }

private:
    /// What the survivor sleeps for comes: bytes from the client.
    void WakeDown()
    {
        Require(Await([] { return RingView(cDownFifo).IsEmpty(); }, GetDeath(), "the server read on"),
                "the server does not read on");
        RequireWaking([this] { mDown->Write(std::string(1, cEnd), cPatience); });
    }

    /// The same, room for the client's. What the device has sent, more than the client can have taken, comes to its
    /// end, although that one is dead.
    void WakeUp()
    {
        Require(Await([] { return RingView(cUpFifo).IsFull(); }, GetDeath(), "the server wrote on"),
                "the server does not write on");
        const auto lTakeRest = [this]
        {
            mTakenUp += mUp->Read(1024, 1);
            return mTakenUp.ends_with(mText.substr(mText.size() - 100));
        };
        Await(lTakeRest, UndisturbedTimer(), "the rest came");
        const UndisturbedTimer lStop;
        RequireWaking([this] { mServer.Stop(); });
        NoteIfLate(lStop, cBeyondTimeout, "the server stopped");
    }

    const Deed mDeed;
    const bool mIsRead = mDeed == &ClientDies::ReadSome;
    const bool mHasSleeper;
    const std::string mText;
    std::string mTakenUp;
};

} // namespace

std::vector<KillCase> GetBridgeKillCases()
{
    constexpr auto cServer = [](const char* aName, ServerDeed aDeed, size_t aSize, Company aCompany)
    { return MakeKillCase<ServerDies>(aName, aDeed, aSize, aCompany); };
    constexpr auto cClient = [](const char* aName, ClientDies::Deed aDeed, size_t aSize, bool aSleeper)
    { return MakeKillCase<ClientDies>(aName, aDeed, aSize, aSleeper); };
    std::vector<KillCase> lCases = {
        cServer("BridgeOpens", &Server::Open, 0, Company::Nobody),
        cServer("BridgeCloses", &Server::Close, 0, Company::Nobody),
        cServer("BridgeRelaysDown", &Server::RelayBlockDown, cSome, Company::Nobody),
        cServer("BridgeRelaysDownBesideASleepingClient", &Server::RelayBlockDown, cMore, Company::Sleeper),
        cServer("BridgeRelaysDownBesideACallingClient", &Server::RelayBlockDown, cMore, Company::Caller),
        cServer("BridgeRelaysUp", &Server::RelayBlockUp, cSome, Company::Nobody),
        cServer("BridgeRelaysUpBesideASleepingClient", &Server::RelayBlockUp, cSome, Company::Sleeper),
        cServer("BridgeRelaysUpBesideACallingClient", &Server::RelayBlockUp, cSome, Company::Caller),
        cServer("BridgeRelaysUpMoreThanFits", &Server::RelayBlockUp, cMore, Company::Nobody),
        cClient("ClientAttaches", &ClientDies::AttachClient, 0, false),
        cClient("ClientCloses", &ClientDies::CloseClient, 0, false),
        cClient("ClientWrites", &ClientDies::WriteText, cSome, false),
        cClient("ClientWritesBesideASleepingBridge", &ClientDies::WriteText, cMore, true),
        cClient("ClientReads", &ClientDies::ReadSome, cSome, false),
        cClient("ClientReadsBesideASleepingBridge", &ClientDies::ReadSome, cMore, true)};
    for (KillCase& lCase : lCases)
    {
        lCase.mIsLarge = true;
    }
    return lCases;
}
