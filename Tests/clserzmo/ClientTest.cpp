#include "clserzmo/clser.h"

#include "JxUtilsLib/Thread.h"
#include "KyPlatform/NamedEvent.h"
#include "KyPlatform/SharedMemory.h"
#include "Tests/Support/PrivateSession.h"
#include "Tests/Support/RingView.h"
#include "Tests/Support/TextFifo.h"
#include "Tests/Support/TimeOf.h"
#include "Tests/Support/WaitFor.h"
#include "sharedregistry.h"

#include <cstring>
#include <functional>
#include <optional>
#include <utility>
#include <vector>

using JxUtilsLib::Thread;
using KySerialLib::SharedRegistry;
using KySerialLib::SharedRegistryEntry;
using KyTest::RingView;
using KyTest::TextFifo;
using KyTest::WaitFor;

namespace
{

constexpr uint32_t cPatience = 60000; // ms; a wait that needs all of it has failed
constexpr uint32_t cEndless = 0xFFFFFFFFU;

/// A server without a device: the test has the other ends of its FIFOs.
class Server
{
public:
    explicit Server(const std::string& aName)
    {
        EXPECT_TRUE(mRegistry.AcquireServer(aName, mServer, mClient));
        EXPECT_TRUE(mRegistry.Find(aName, mEntry));
        mEntry->mSupportedBaudRates = 0x13;
        const std::string lNumber = std::to_string(mEntry->mServerId);
        mDown.emplace("KySerialBridgeDownFifo" + lNumber);
        mUp.emplace("KySerialBridgeUpFifo" + lNumber);
        EXPECT_TRUE(mRegistry.SetServerActive(aName, true));
    }
    ~Server()
    {
        if (mServer.IsValid())
        {
            SharedRegistry::ReleaseServer(mServer, mClient);
        }
    }
    /// Ends as a killed process does: nothing is given back.
    void Crash()
    {
        mServer.Close();
        mClient.Close();
    }
    bool Send(const std::string& aText) { return mUp->Write(aText, cPatience); }
    std::string Receive(size_t aCount) { return mDown->ReadAll(aCount); }
    SharedRegistryEntry& Entry() { return *mEntry; }
    void DropFifos()
    {
        mDown.reset();
        mUp.reset();
    }

private:
    SharedRegistry mRegistry{true};
    KyPlatform::NamedSemaphore mServer;
    KyPlatform::NamedSemaphore mClient;
    SharedRegistryEntry* mEntry = nullptr;
    std::optional<TextFifo> mDown;
    std::optional<TextFifo> mUp;
};

/// How a read ended, and what it gave; how a write ended, and how much it stored.
using Got = std::pair<CLINT32, std::string>;
using Stored = std::pair<CLINT32, CLUINT32>;
using List = std::vector<std::string>;

class ClientTest : public testing::Test
{
protected:
    ~ClientTest() override { clSerialClose(mPort); }

    static CLUINT32 Count()
    {
        CLUINT32 lCount = 99;
        EXPECT_EQ(clGetNumSerialPorts(&lCount), CL_ERR_NO_ERR);
        return lCount;
    }
    static std::string Name(CLUINT32 aIndex)
    {
        char lName[300] = "";
        CLUINT32 lSize = sizeof lName;
        const CLINT32 lResult = clGetSerialPortIdentifier(aIndex, lName, &lSize);
        EXPECT_EQ(lResult == CL_ERR_NO_ERR ? lSize : 1, std::strlen(lName) + 1);
        return lResult == CL_ERR_NO_ERR ? lName : "";
    }
    static List Names()
    {
        List lNames(Count());
        std::generate(lNames.begin(), lNames.end(), [lIndex = 0U]() mutable { return Name(lIndex++); });
        EXPECT_EQ(Name(static_cast<CLUINT32>(lNames.size())), "");
        return lNames;
    }
    void Attach()
    {
        mServer.emplace("Server");
        ASSERT_EQ(clSerialInit(0, &mPort), CL_ERR_NO_ERR);
        ASSERT_NE(mPort, nullptr);
    }
    Got Read(CLUINT32 aCount, CLUINT32 aTimeout, decltype(&clSerialRead) aRead = &clSerialRead)
    {
        std::string lText(aCount, '#');
        CLUINT32 lCount = aCount;
        const CLINT32 lResult = aRead(mPort, lText.data(), &lCount, aTimeout);
        EXPECT_EQ(lText.substr(lCount), std::string(aCount - lCount, '#'));
        return {lResult, lText.substr(0, lCount)};
    }
    Stored Write(std::string aText, CLUINT32 aTimeout)
    {
        auto lCount = static_cast<CLUINT32>(aText.size());
        const CLINT32 lResult = clSerialWrite(mPort, aText.data(), &lCount, aTimeout);
        return {lResult, lCount};
    }
    // A call in a thread that waits without end for one byte, or to write so many, until the port is closed.
    std::jthread ReadInVain()
    {
        return std::jthread(
            [this]
            {
                EXPECT_EQ(Read(1, cEndless), Got(CL_ERR_INVALID_REFERENCE, ""));
                ++mEnded;
            });
    }
    std::jthread WriteInVain(CLUINT32 aCount, CLUINT32 aStored)
    {
        return std::jthread(
            [this, aCount, aStored]
            {
                EXPECT_EQ(Write(std::string(aCount, 'x'), cEndless),
                          Stored(CL_ERR_INVALID_REFERENCE, aStored));
                ++mEnded;
            });
    }
    CLUINT32 Available()
    {
        CLUINT32 lCount = 99;
        EXPECT_EQ(clGetNumBytesAvail(mPort, &lCount), CL_ERR_NO_ERR);
        return lCount;
    }

    PrivateSession mSession;
    std::optional<Server> mServer;
    hSerRef mPort = nullptr;
    std::atomic<int> mEnded{0};
};

TEST_F(ClientTest, ListsTheServersThatAreThere)
{
    EXPECT_EQ(Names(), List());
    Server lFirst("First");
    std::optional<Server> lSecond(std::in_place, "Second");
    const Server lThird("Third");
    EXPECT_EQ(Names(), List({"First", "Second", "Third"}));
    lSecond->Entry().mServerActive = 0; // not ready yet
    EXPECT_EQ(Names(), List({"First", "Third"}));
    lSecond->Entry().mServerActive = 1;
    lSecond.reset();
    EXPECT_EQ(Names(), List({"First", "Third"}));
    lFirst.Crash();
    EXPECT_EQ(Names(), List({"Third"}));
}

TEST_F(ClientTest, NumbersStayUntilTheyAreNewOrTheirServerHasGone)
{
    std::optional<Server> lFirst(std::in_place, "First");
    EXPECT_EQ(Count(), 1U);
    const Server lSecond("Second");
    EXPECT_EQ(Name(0), "First");
    EXPECT_EQ(Name(1), "Second"); // too high for the old list
    lFirst.reset();
    EXPECT_EQ(Name(1), "Second"); // still its number
    EXPECT_EQ(Name(0), "Second");
}

TEST_F(ClientTest, TextsReportTheRoomThatTheyNeed)
{
    const Server lServer("Server");
    CLUINT32 lVersion = 0;
    const struct
    {
        std::function<CLINT32(char*, CLUINT32*)> mCall;
        std::string mText;
    } lTexts[] = {
        {[](char* aText, CLUINT32* aSize) { return clGetSerialPortIdentifier(0, aText, aSize); }, "Server"},
        {[&](char* aText, CLUINT32* aSize) { return clGetManufacturerInfo(aText, aSize, &lVersion); },
         "Korvo"},
        {[](char* aText, CLUINT32* aSize) { return clGetErrorText(CL_ERR_TIMEOUT, aText, aSize); },
         "The operation has timed out."}};
    for (const auto& [lCall, lText] : lTexts)
    {
        SCOPED_TRACE(lText);
        CLUINT32 lSize = 0;
        EXPECT_EQ(lCall(nullptr, &lSize), CL_ERR_BUFFER_TOO_SMALL);
        EXPECT_EQ(lSize, lText.size() + 1);
        std::string lBuffer(lText.size() + 1, '#');
        lSize = static_cast<CLUINT32>(lText.size());
        EXPECT_EQ(lCall(lBuffer.data(), &lSize), CL_ERR_BUFFER_TOO_SMALL);
        EXPECT_EQ(lBuffer, std::string(lText.size() + 1, '#'));
        EXPECT_EQ(lSize, lText.size() + 1);
        EXPECT_EQ(lCall(lBuffer.data(), &lSize), CL_ERR_NO_ERR);
        EXPECT_STREQ(lBuffer.c_str(), lText.c_str());
        EXPECT_EQ(lCall(nullptr, &lSize), CL_ERR_INVALID_PTR);
        EXPECT_EQ(lCall(lBuffer.data(), nullptr), CL_ERR_INVALID_PTR);
    }
    EXPECT_EQ(lVersion, CL_DLL_VERSION_1_1);
}

TEST_F(ClientTest, EveryStandardCodeHasAText)
{
    char lText[100];
    CLUINT32 lSize = 0;
    for (const CLINT32 lCode : {0, -10001, -10002, -10003, -10004, -10005, -10006, -10007, -10008, -10009,
                                -10010, -10011, -10012, -10097, -10098, -10099})
    {
        lSize = sizeof lText;
        EXPECT_EQ(clGetErrorText(lCode, lText, &lSize), CL_ERR_NO_ERR) << lCode;
        EXPECT_EQ(std::strlen(lText) + 1, lSize);
    }
    for (const CLINT32 lCode : {1, -1, -10013, -10096, -20001, 10004})
    {
        EXPECT_EQ(clGetErrorText(lCode, lText, &lSize), CL_ERR_ERROR_NOT_FOUND) << lCode;
    }
}

TEST_F(ClientTest, NullPointersAreReported)
{
    Attach();
    EXPECT_EQ(clGetNumSerialPorts(nullptr), CL_ERR_INVALID_PTR);
    EXPECT_EQ(clSerialInit(0, nullptr), CL_ERR_INVALID_PTR);
    CLUINT32 lSize = 0;
    EXPECT_EQ(clGetManufacturerInfo(nullptr, &lSize, nullptr), CL_ERR_INVALID_PTR);
    char lByte = 0;
    for (const auto lCall : {&clSerialRead, &clSerialReadEx, &clSerialWrite})
    {
        CLUINT32 lCount = 5;
        EXPECT_EQ(lCall(mPort, nullptr, &lCount, 0), CL_ERR_INVALID_PTR);
        EXPECT_EQ(lCount, 0U);
        EXPECT_EQ(lCall(mPort, nullptr, &lCount, 0), CL_ERR_NO_ERR); // of no bytes
        EXPECT_EQ(lCall(mPort, &lByte, nullptr, 0), CL_ERR_INVALID_PTR);
    }
    EXPECT_EQ(clGetNumBytesAvail(mPort, nullptr), CL_ERR_INVALID_PTR);
    EXPECT_EQ(clGetSupportedBaudRates(mPort, nullptr), CL_ERR_INVALID_PTR);
}

TEST_F(ClientTest, CallsWithoutAnOpenPortReportAnInvalidReference)
{
    Attach();
    clSerialClose(mPort);
    int lNothing = 0;
    // NOLINTNEXTLINE(performance-no-int-to-ptr): never followed
    hSerRef lLast = reinterpret_cast<hSerRef>(~uintptr_t{0});
    for (hSerRef lPort : {hSerRef{nullptr}, mPort, hSerRef{&lNothing}, lLast})
    {
        char lByte = 0;
        CLUINT32 lCount = 1;
        for (const auto lCall : {&clSerialRead, &clSerialReadEx, &clSerialWrite})
        {
            lCount = 1;
            EXPECT_EQ(lCall(lPort, &lByte, &lCount, 0), CL_ERR_INVALID_REFERENCE);
            EXPECT_EQ(lCount, 0U);
        }
        EXPECT_EQ(clGetNumBytesAvail(lPort, &lCount), CL_ERR_INVALID_REFERENCE);
        EXPECT_EQ(clFlushPort(lPort), CL_ERR_INVALID_REFERENCE);
        EXPECT_EQ(clGetSupportedBaudRates(lPort, &lCount), CL_ERR_INVALID_REFERENCE);
        EXPECT_EQ(clSetBaudRate(lPort, 1), CL_ERR_INVALID_REFERENCE);
        clSerialClose(lPort);
    }
}

TEST_F(ClientTest, AServerHasOneClient)
{
    Attach();
    hSerRef lSecond = &lSecond;
    EXPECT_EQ(clSerialInit(0, &lSecond), CL_ERR_PORT_IN_USE);
    EXPECT_EQ(lSecond, nullptr);
    hSerRef lFirst = mPort;
    clSerialClose(mPort);
    EXPECT_EQ(clSerialInit(0, &mPort), CL_ERR_NO_ERR);
    EXPECT_NE(mPort, lFirst); // a closed reference stays closed
    EXPECT_EQ(clSerialInit(1, &lSecond), CL_ERR_INVALID_INDEX);
}

TEST_F(ClientTest, ComesUpAt9600OrTheLowestRateOffered)
{
    Server lServer("Server");
    lServer.Entry().mRequestedBaudRate = 0x10;
    const std::pair<uint32_t, uint32_t> lRates[] = {{0x13, 0x01}, {0x18, 0x08}, {0, 0x01}};
    for (const auto& [lOffered, lFirst] : lRates)
    {
        lServer.Entry().mSupportedBaudRates = lOffered;
        ASSERT_EQ(clSerialInit(0, &mPort), CL_ERR_NO_ERR);
        EXPECT_EQ(lServer.Entry().mRequestedBaudRate, lFirst);
        clSerialClose(mPort);
    }
}

TEST_F(ClientTest, RatesAreThoseTheServerOffers)
{
    Attach();
    CLUINT32 lRates = 0;
    EXPECT_EQ(clGetSupportedBaudRates(mPort, &lRates), CL_ERR_NO_ERR);
    EXPECT_EQ(lRates, CLUINT32{CL_BAUDRATE_9600 | CL_BAUDRATE_19200 | CL_BAUDRATE_115200});
    EXPECT_EQ(clSetBaudRate(mPort, CL_BAUDRATE_115200), CL_ERR_NO_ERR);
    EXPECT_EQ(mServer->Entry().mRequestedBaudRate, 0x10U);
    for (const CLUINT32 lRate : {0U, 0x03U, 0x04U, 0x20U, 0x80000000U, 9600U})
    {
        EXPECT_EQ(clSetBaudRate(mPort, lRate), CL_ERR_BAUD_RATE_NOT_SUPPORTED) << lRate;
        EXPECT_EQ(mServer->Entry().mRequestedBaudRate, 0x10U);
    }
    EXPECT_EQ(clSetBaudRate(mPort, CL_BAUDRATE_9600), CL_ERR_NO_ERR);
    EXPECT_EQ(clSetBaudRate(mPort, CL_BAUDRATE_AUTOMAX), CL_ERR_NO_ERR);
    EXPECT_EQ(mServer->Entry().mRequestedBaudRate, 0x10U);
    mServer->Entry().mSupportedBaudRates = 0xFFFFFF13; // bits that have no rate are not offered
    EXPECT_EQ(clGetSupportedBaudRates(mPort, &lRates), CL_ERR_NO_ERR);
    EXPECT_EQ(lRates, 0x13U);
    EXPECT_EQ(clSetBaudRate(mPort, 0x100), CL_ERR_BAUD_RATE_NOT_SUPPORTED);
}

TEST_F(ClientTest, ATimeOutTakesItsTimeAndConsumesNothing)
{
    Attach();
    EXPECT_TRUE(mServer->Send("abc"));
    for (const CLUINT32 lTimeout : {0U, 100U})
    {
        EXPECT_GE(KyTest::TimeOf([&] { EXPECT_EQ(Read(4, lTimeout), Got(CL_ERR_TIMEOUT, "")); }),
                  std::chrono::milliseconds(lTimeout) - std::chrono::milliseconds(1));
        EXPECT_EQ(Available(), 3U);
    }
    EXPECT_TRUE(mServer->Send("def"));
    EXPECT_EQ(Available(), 6U);
    EXPECT_EQ(Read(4, 0), Got(CL_ERR_NO_ERR, "abcd"));
    EXPECT_EQ(Available(), 2U); // the rest stays
    EXPECT_EQ(Read(2, 0), Got(CL_ERR_NO_ERR, "ef"));
}

TEST_F(ClientTest, ReadExTakesWhatHasComeByTheTimeOut)
{
    Attach();
    EXPECT_EQ(Read(4, 0, &clSerialReadEx), Got(CL_ERR_TIMEOUT, ""));
    EXPECT_TRUE(mServer->Send("abc"));
    EXPECT_EQ(Read(4, 20, &clSerialReadEx), Got(CL_ERR_TIMEOUT, "abc"));
    EXPECT_EQ(Available(), 0U);
    EXPECT_TRUE(mServer->Send("abcd"));
    EXPECT_EQ(Read(4, 0, &clSerialReadEx), Got(CL_ERR_NO_ERR, "abcd"));
}

TEST_F(ClientTest, ReadsMoreThanAFifoHolds)
{
    Attach();
    const std::string lMuch = KyTest::MakeText(5000);
    const std::jthread lSender([&] { EXPECT_TRUE(mServer->Send(lMuch)); });
    EXPECT_EQ(Read(5000, cPatience), Got(CL_ERR_NO_ERR, lMuch));
}

TEST_F(ClientTest, FlushDropsWhatHasArrivedWhereverItIs)
{
    Attach();
    EXPECT_TRUE(mServer->Send("abc"));
    EXPECT_EQ(Read(4, 0), Got(CL_ERR_TIMEOUT, "")); // has fetched it
    EXPECT_TRUE(mServer->Send("def"));
    EXPECT_EQ(Available(), 6U);
    EXPECT_EQ(clFlushPort(mPort), CL_ERR_NO_ERR);
    EXPECT_EQ(Available(), 0U);
    EXPECT_EQ(clFlushPort(mPort), CL_ERR_NO_ERR);
}

TEST_F(ClientTest, WritesAndReportsHowMuch)
{
    Attach();
    EXPECT_EQ(Write("to the server", 0), Stored(CL_ERR_NO_ERR, 13));
    EXPECT_EQ(mServer->Receive(13), "to the server");
    EXPECT_EQ(Write("", 0), Stored(CL_ERR_NO_ERR, 0));
    EXPECT_EQ(Write(std::string(2000, 'x'), 30), Stored(CL_ERR_TIMEOUT, 1023)); // nobody takes it
    EXPECT_EQ(mServer->Receive(1023).size(), 1023U);
    EXPECT_EQ(Write(std::string(1023, 'y'), 0), Stored(CL_ERR_NO_ERR, 1023)); // full, and all of it stored
}

TEST_F(ClientTest, CloseEndsCallsThatWait)
{
    Attach();
    {
        const std::jthread lCalls[] = {ReadInVain(), ReadInVain(), WriteInVain(5000, 1023)};
        Thread::Sleep(50);
        EXPECT_EQ(mEnded, 0);
        const uint64_t lStart = Thread::GetTickCount();
        clSerialClose(mPort);
        EXPECT_LE(Thread::GetTickCount() - lStart, 1000U); // ten times what it takes at most
    }
    EXPECT_EQ(mEnded, 3);
    EXPECT_EQ(clSerialInit(0, &mPort), CL_ERR_NO_ERR); // free again at once
    mServer.reset();
    const std::jthread lWaitsForAServer = WriteInVain(1, 0);
    Thread::Sleep(20); // most likely it is in the call by now; the result is the same when it is not
    clSerialClose(mPort);
}

// Calls use the port in turn. One that waits for its turn waits no longer than its own time.
TEST_F(ClientTest, AReadWaitsForTheOneBeforeItNoLongerThanItsTime)
{
    Attach();
    EXPECT_TRUE(mServer->Send("ab"));
    const std::jthread lFirst([this] { EXPECT_EQ(Read(4, cPatience), Got(CL_ERR_NO_ERR, "abcd")); });
    // The first one has the turn as soon as it has fetched what there is.
    EXPECT_TRUE(WaitFor([] { return RingView("KySerialBridgeUpFifo1").IsEmpty(); }));
    EXPECT_EQ(Read(2, 20), Got(CL_ERR_TIMEOUT, ""));
    EXPECT_TRUE(mServer->Send("cd"));
}

TEST_F(ClientTest, APortThatIsBeingClosedIsNoOpenPort)
{
    Attach();
    KyPlatform::NamedMutex lLock; // the reader waits for it, and the closer for the reader
    ASSERT_TRUE(lLock.Open("Local\\KySerialBridgeUpFifo1Mutex"));
    ASSERT_TRUE(IsOwned(lLock.Wait(cPatience)));
    const std::jthread lReader = ReadInVain();
    Thread::Sleep(20);
    const std::jthread lCloser([this] { clSerialClose(mPort); });
    CLUINT32 lRates = 0;
    EXPECT_TRUE(WaitFor([&] { return clGetSupportedBaudRates(mPort, &lRates) == CL_ERR_INVALID_REFERENCE; }));
    clSerialClose(mPort); // does not wait for the other
    EXPECT_EQ(clFlushPort(mPort), CL_ERR_INVALID_REFERENCE);
    EXPECT_TRUE(lLock.Release());
}

TEST_F(ClientTest, SeveralThreadsGetWholeBlocks)
{
    Attach();
    constexpr int cBlocks = 100;
    std::string lExpected;
    const auto lRepeat = [](int aTimes, const auto& aAction)
    {
        for (int lTime = 0; lTime < aTimes; ++lTime)
        {
            aAction();
        }
    };
    std::vector<std::jthread> lThreads;
    lThreads.emplace_back(lRepeat, 3 * cBlocks, [this] { EXPECT_TRUE(mServer->Send("<block>")); });
    for (int lIndex = 0; lIndex < 3; ++lIndex)
    {
        lThreads.emplace_back(lRepeat, cBlocks,
                              [this] { EXPECT_EQ(Read(7, cPatience), Got(CL_ERR_NO_ERR, "<block>")); });
        lThreads.emplace_back(lRepeat, cBlocks,
                              [this] { EXPECT_EQ(Write("[block]", cPatience), Stored(CL_ERR_NO_ERR, 7)); });
    }
    lRepeat(3 * cBlocks, [&] { lExpected += "[block]"; });
    EXPECT_EQ(mServer->Receive(lExpected.size()), lExpected);
}

TEST_F(ClientTest, GoesOnWithAServerThatStoppedAndCameBack)
{
    for (const bool lCrash : {false, true})
    {
        SCOPED_TRACE(lCrash);
        Attach();
        EXPECT_TRUE(mServer->Send("last"));
        if (lCrash)
        {
            mServer->Crash();
        }
        mServer.reset();
        EXPECT_EQ(Count(), 0U); // although this client keeps the entry's mark alive
        EXPECT_EQ(Read(4, 0), Got(CL_ERR_NO_ERR, "last"));
        EXPECT_EQ(Read(1, 20), Got(CL_ERR_TIMEOUT, ""));
        EXPECT_EQ(Write("nobody", 20), Stored(CL_ERR_TIMEOUT, 0));
        std::thread lWriter([this] { EXPECT_EQ(Write("somebody", cPatience), Stored(CL_ERR_NO_ERR, 8)); });
        mServer.emplace("Server");
        EXPECT_EQ(mServer->Receive(8), "somebody");
        lWriter.join();
        EXPECT_TRUE(mServer->Send("back"));
        EXPECT_EQ(Read(4, cPatience), Got(CL_ERR_NO_ERR, "back"));
        hSerRef lSecond = nullptr;
        EXPECT_EQ(clSerialInit(0, &lSecond), CL_ERR_PORT_IN_USE); // still this client's
        clSerialClose(mPort);
        mServer.reset();
    }
}

TEST_F(ClientTest, ADamagedFifoTimesOut)
{
    Attach();
    for (const std::string lWay : {"Up", "Down"})
    {
        std::memset(RingView("KySerialBridge" + lWay + "Fifo1").GetBytes(), 0xFF, 16);
    }
    EXPECT_EQ(Read(1, 50), Got(CL_ERR_TIMEOUT, ""));
    EXPECT_EQ(Write("x", 50), Stored(CL_ERR_TIMEOUT, 0));
    EXPECT_EQ(Available(), 0U);
    EXPECT_EQ(clFlushPort(mPort), CL_ERR_NO_ERR);
}

// Another process of the user can take the name first: on Windows with an object of any kind, elsewhere with a
// section that has no room for the header.
TEST_F(ClientTest, AFifoThatCannotBeOpenedFailsTheInitAndThePlaceIsGivenBack)
{
    mServer.emplace("Server");
    mServer->DropFifos();
    for (const std::string lWay : {"Up", "Down"})
    {
        const std::string lName = "Local\\KySerialBridge" + lWay + "Fifo1Memory";
        KyPlatform::NamedEvent lOther;
        KyPlatform::SharedMemory lSmall;
        bool lIsNew = false;
        ASSERT_TRUE(lOther.Create(lName));
        static_cast<void>(lSmall.Create(lName, 8, lIsNew)); // fails where the name is taken
        EXPECT_EQ(clSerialInit(0, &mPort), CL_ERR_INVALID_INDEX);
        EXPECT_EQ(mPort, nullptr);
    }
    EXPECT_EQ(clSerialInit(0, &mPort), CL_ERR_NO_ERR);
}

TEST_F(ClientTest, ADamagedRegistryListsNoPorts)
{
    Server lServer("Server");
    SharedRegistryEntry lSaved = lServer.Entry();
    std::memset(&lServer.Entry(), 0xFF, sizeof lSaved);
    EXPECT_EQ(Count(), 0U);
    lServer.Entry() = lSaved;
    std::memset(lServer.Entry().mName, 'n', sizeof lSaved.mName); // no end
    static_cast<void>(Name(0));
    EXPECT_EQ(clSerialInit(0, &mPort), CL_ERR_INVALID_INDEX);
    lServer.Entry() = lSaved;
}

} // namespace
