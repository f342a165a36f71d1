#include "clserzmo/clser.h"

#include "JxUtilsLib/Thread.h"
#include "KyPlatform/NamedMutex.h"
#include "KyPlatform/SharedMemory.h"
#include "Tests/Support/PrivateSession.h"
#include "Tests/Support/TimeOf.h"
#include "Tests/Support/WaitFor.h"
#include "sharedfifo.h"
#include "sharedregistry.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

using JxUtilsLib::Thread;
using KyPlatform::NamedSemaphore;
using KySerialLib::SharedFifo;
using KySerialLib::SharedRegistry;
using KySerialLib::SharedRegistryEntry;
using KyTest::WaitFor;

namespace
{

constexpr uint32_t cPatience = 60000; // ms; a wait that needs all of it has failed

/// A server without a device: the test has the other ends of its FIFOs.
class Server
{
public:
    explicit Server(const std::string& aName, uint32_t aRates = 0x13) : mRegistry(true)
    {
        EXPECT_TRUE(mRegistry.AcquireServer(aName, mServer, mClient));
        EXPECT_TRUE(mRegistry.Find(aName, mEntry));
        mEntry->mSupportedBaudRates = aRates;
        const std::string lNumber = std::to_string(mEntry->mServerId);
        mDown = std::make_unique<SharedFifo>("KySerialBridgeDownFifo" + lNumber, "Local\\", 1024, true);
        mUp = std::make_unique<SharedFifo>("KySerialBridgeUpFifo" + lNumber, "Local\\", 1024, true);
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
    bool Send(const std::string& aText)
    {
        uint32_t lWritten = 0;
        return mUp->Write(aText.data(), static_cast<uint32_t>(aText.size()), lWritten, cPatience);
    }
    std::string Receive(size_t aCount, uint32_t aTimeout = cPatience)
    {
        std::string lAll;
        char lPart[1024];
        uint32_t lRead = 0;
        while (lAll.size() < aCount && mDown->Read(lPart, sizeof lPart, lRead, aTimeout))
        {
            lAll.append(lPart, lRead);
        }
        return lAll;
    }
    SharedRegistryEntry& Entry() { return *mEntry; }

private:
    SharedRegistry mRegistry;
    NamedSemaphore mServer;
    NamedSemaphore mClient;
    SharedRegistryEntry* mEntry = nullptr;
    std::unique_ptr<SharedFifo> mDown;
    std::unique_ptr<SharedFifo> mUp;
};

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
    void Attach()
    {
        mServer.emplace("Server");
        ASSERT_EQ(clSerialInit(0, &mPort), CL_ERR_NO_ERR);
        ASSERT_NE(mPort, nullptr);
    }
    CLINT32 Read(CLUINT32 aCount, CLUINT32 aTimeout, decltype(&clSerialRead) aRead = &clSerialRead)
    {
        mBuffer.assign(aCount, '#');
        mCount = aCount;
        return aRead(mPort, mBuffer.data(), &mCount, aTimeout);
    }
    CLINT32 Write(std::string aText, CLUINT32 aTimeout)
    {
        mCount = static_cast<CLUINT32>(aText.size());
        return clSerialWrite(mPort, aText.data(), &mCount, aTimeout);
    }
    // A call in a thread that waits without end for one byte, or to write so many, until the port is closed.
    std::jthread ReadInVain()
    {
        return std::jthread(
            [this]
            {
                char lByte = 0;
                CLUINT32 lCount = 1;
                EXPECT_EQ(clSerialRead(mPort, &lByte, &lCount, 0xFFFFFFFFU), CL_ERR_INVALID_REFERENCE);
                ++mEnded;
            });
    }
    std::jthread WriteInVain(CLUINT32 aCount, CLUINT32 aStored)
    {
        return std::jthread(
            [this, aCount, aStored]
            {
                std::string lText(aCount, 'x');
                CLUINT32 lCount = aCount;
                EXPECT_EQ(clSerialWrite(mPort, lText.data(), &lCount, 0xFFFFFFFFU), CL_ERR_INVALID_REFERENCE);
                EXPECT_EQ(lCount, aStored);
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
    std::string mBuffer;
    CLUINT32 mCount = 0;
    std::atomic<int> mEnded{0};
};

TEST_F(ClientTest, ListsTheServersThatAreThere)
{
    EXPECT_EQ(Count(), 0U);
    EXPECT_EQ(Name(0), "");
    Server lFirst("First");
    std::optional<Server> lSecond(std::in_place, "Second");
    const Server lThird("Third");
    EXPECT_EQ(Count(), 3U);
    EXPECT_EQ(Name(0), "First");
    EXPECT_EQ(Name(1), "Second");
    EXPECT_EQ(Name(2), "Third");
    EXPECT_EQ(Name(3), "");
    lSecond.reset();
    EXPECT_EQ(Count(), 2U);
    EXPECT_EQ(Name(1), "Third");
    lFirst.Crash();
    EXPECT_EQ(Count(), 1U);
    EXPECT_EQ(Name(0), "Third");
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

TEST_F(ClientTest, AServerThatIsNotReadyYetIsNotListed)
{
    Server lServer("Server");
    lServer.Entry().mServerActive = 0;
    EXPECT_EQ(Count(), 0U);
    EXPECT_EQ(clSerialInit(0, &mPort), CL_ERR_INVALID_INDEX);
}

TEST_F(ClientTest, TextsReportTheRoomThatTheyNeed)
{
    const Server lServer("Server");
    CLUINT32 lSize = 0;
    EXPECT_EQ(clGetSerialPortIdentifier(0, nullptr, &lSize), CL_ERR_BUFFER_TOO_SMALL);
    EXPECT_EQ(lSize, 7U);
    char lName[7] = "######";
    lSize = 6;
    EXPECT_EQ(clGetSerialPortIdentifier(0, lName, &lSize), CL_ERR_BUFFER_TOO_SMALL);
    EXPECT_STREQ(lName, "######");
    EXPECT_EQ(lSize, 7U);
    EXPECT_EQ(clGetSerialPortIdentifier(0, lName, &lSize), CL_ERR_NO_ERR);
    EXPECT_STREQ(lName, "Server");
    EXPECT_EQ(clGetSerialPortIdentifier(0, nullptr, &lSize), CL_ERR_INVALID_PTR);
    EXPECT_EQ(clGetSerialPortIdentifier(0, lName, nullptr), CL_ERR_INVALID_PTR);
}

TEST_F(ClientTest, ReportsManufacturerAndVersion)
{
    CLUINT32 lSize = 0;
    CLUINT32 lVersion = 0;
    EXPECT_EQ(clGetManufacturerInfo(nullptr, &lSize, &lVersion), CL_ERR_BUFFER_TOO_SMALL);
    EXPECT_EQ(lVersion, CL_DLL_VERSION_1_1);
    std::string lName(lSize, '#');
    EXPECT_EQ(clGetManufacturerInfo(lName.data(), &lSize, &lVersion), CL_ERR_NO_ERR);
    EXPECT_EQ(std::strlen(lName.data()) + 1, lSize);
    EXPECT_EQ(clGetManufacturerInfo(lName.data(), nullptr, &lVersion), CL_ERR_INVALID_PTR);
    EXPECT_EQ(clGetManufacturerInfo(lName.data(), &lSize, nullptr), CL_ERR_INVALID_PTR);
}

TEST_F(ClientTest, EveryStandardCodeHasAText)
{
    const CLINT32 lCodes[] = {0,      -10001, -10002, -10003, -10004, -10005, -10006, -10007,
                              -10008, -10009, -10010, -10011, -10012, -10097, -10098, -10099};
    char lText[100];
    for (const CLINT32 lCode : lCodes)
    {
        CLUINT32 lSize = sizeof lText;
        EXPECT_EQ(clGetErrorText(lCode, lText, &lSize), CL_ERR_NO_ERR) << lCode;
        EXPECT_EQ(std::strlen(lText) + 1, lSize);
    }
    CLUINT32 lSize = 1;
    EXPECT_EQ(clGetErrorText(-10004, lText, &lSize), CL_ERR_BUFFER_TOO_SMALL);
    EXPECT_EQ(lSize, std::strlen("The operation has timed out.") + 1);
    for (const CLINT32 lCode : {1, -1, -10013, -10096, -20001, 10004})
    {
        EXPECT_EQ(clGetErrorText(lCode, lText, &lSize), CL_ERR_ERROR_NOT_FOUND) << lCode;
    }
    EXPECT_EQ(clGetErrorText(0, lText, nullptr), CL_ERR_INVALID_PTR);
}

TEST_F(ClientTest, NullPointersAreCodes)
{
    Attach();
    EXPECT_EQ(clGetNumSerialPorts(nullptr), CL_ERR_INVALID_PTR);
    EXPECT_EQ(clSerialInit(0, nullptr), CL_ERR_INVALID_PTR);
    mCount = 5;
    EXPECT_EQ(clSerialRead(mPort, nullptr, &mCount, 0), CL_ERR_INVALID_PTR);
    EXPECT_EQ(mCount, 0U);
    mCount = 5;
    EXPECT_EQ(clSerialWrite(mPort, nullptr, &mCount, 0), CL_ERR_INVALID_PTR);
    EXPECT_EQ(mCount, 0U);
    char lByte = 0;
    EXPECT_EQ(clSerialRead(mPort, &lByte, nullptr, 0), CL_ERR_INVALID_PTR);
    EXPECT_EQ(clSerialReadEx(mPort, &lByte, nullptr, 0), CL_ERR_INVALID_PTR);
    EXPECT_EQ(clSerialWrite(mPort, &lByte, nullptr, 0), CL_ERR_INVALID_PTR);
    EXPECT_EQ(clGetNumBytesAvail(mPort, nullptr), CL_ERR_INVALID_PTR);
    EXPECT_EQ(clGetSupportedBaudRates(mPort, nullptr), CL_ERR_INVALID_PTR);
    EXPECT_EQ(clSerialRead(mPort, nullptr, &mCount, 0), CL_ERR_NO_ERR); // of no bytes
}

TEST_F(ClientTest, WhatIsNoOpenPortIsACode)
{
    Attach();
    clSerialClose(mPort);
    int lNothing = 0;
    for (hSerRef lPort :
         {hSerRef{nullptr}, mPort, hSerRef{&lNothing}, reinterpret_cast<hSerRef>(~uintptr_t{0})})
    {
        char lByte = 0;
        CLUINT32 lCount = 1;
        EXPECT_EQ(clSerialRead(lPort, &lByte, &lCount, 0), CL_ERR_INVALID_REFERENCE);
        EXPECT_EQ(lCount, 0U);
        lCount = 1;
        EXPECT_EQ(clSerialReadEx(lPort, &lByte, &lCount, 0), CL_ERR_INVALID_REFERENCE);
        lCount = 1;
        EXPECT_EQ(clSerialWrite(lPort, &lByte, &lCount, 0), CL_ERR_INVALID_REFERENCE);
        EXPECT_EQ(lCount, 0U);
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
    const hSerRef lFirst = mPort;
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

TEST_F(ClientTest, ReadsWhatIsWantedAndLeavesTheRest)
{
    Attach();
    EXPECT_TRUE(mServer->Send("abcdef"));
    EXPECT_EQ(Available(), 6U);
    EXPECT_EQ(Read(4, 0), CL_ERR_NO_ERR);
    EXPECT_EQ(mBuffer, "abcd");
    EXPECT_EQ(mCount, 4U);
    EXPECT_EQ(Available(), 2U);
    EXPECT_EQ(Read(2, 0), CL_ERR_NO_ERR);
    EXPECT_EQ(mBuffer, "ef");
    EXPECT_EQ(Available(), 0U);
}

TEST_F(ClientTest, ATimeOutConsumesNothing)
{
    Attach();
    EXPECT_TRUE(mServer->Send("abc"));
    for (const CLUINT32 lTimeout : {0U, 30U})
    {
        EXPECT_EQ(Read(4, lTimeout), CL_ERR_TIMEOUT);
        EXPECT_EQ(mCount, 0U);
        EXPECT_EQ(mBuffer, "####");
        EXPECT_EQ(Available(), 3U);
    }
    EXPECT_TRUE(mServer->Send("d"));
    EXPECT_EQ(Read(4, 0), CL_ERR_NO_ERR);
    EXPECT_EQ(mBuffer, "abcd");
}

TEST_F(ClientTest, ATimeOutTakesItsTime)
{
    Attach();
    EXPECT_GE(KyTest::TimeOf([this] { EXPECT_EQ(Read(1, 100), CL_ERR_TIMEOUT); }),
              std::chrono::milliseconds(99));
}

TEST_F(ClientTest, ReadExTakesWhatHasComeByTheTimeOut)
{
    Attach();
    EXPECT_EQ(Read(4, 0, &clSerialReadEx), CL_ERR_TIMEOUT);
    EXPECT_EQ(mCount, 0U);
    EXPECT_TRUE(mServer->Send("abc"));
    EXPECT_EQ(Read(4, 20, &clSerialReadEx), CL_ERR_TIMEOUT);
    EXPECT_EQ(mCount, 3U);
    EXPECT_EQ(mBuffer, "abc#");
    EXPECT_EQ(Available(), 0U);
    EXPECT_TRUE(mServer->Send("abcd"));
    EXPECT_EQ(Read(4, 0, &clSerialReadEx), CL_ERR_NO_ERR);
    EXPECT_EQ(mCount, 4U);
}

TEST_F(ClientTest, ReadsMoreThanAFifoHolds)
{
    Attach();
    const std::string lMuch(5000, 'm');
    std::thread lSender([&] { EXPECT_TRUE(mServer->Send(lMuch)); });
    EXPECT_EQ(Read(5000, cPatience), CL_ERR_NO_ERR);
    EXPECT_EQ(mBuffer, lMuch);
    lSender.join();
}

TEST_F(ClientTest, FlushDropsWhatHasArrivedWhereverItIs)
{
    Attach();
    EXPECT_TRUE(mServer->Send("abc"));
    EXPECT_EQ(Read(4, 0), CL_ERR_TIMEOUT); // has fetched it
    EXPECT_TRUE(mServer->Send("def"));
    EXPECT_EQ(Available(), 6U);
    EXPECT_EQ(clFlushPort(mPort), CL_ERR_NO_ERR);
    EXPECT_EQ(Available(), 0U);
    EXPECT_EQ(clFlushPort(mPort), CL_ERR_NO_ERR);
}

TEST_F(ClientTest, WritesAndReportsHowMuch)
{
    Attach();
    EXPECT_EQ(Write("to the server", 0), CL_ERR_NO_ERR);
    EXPECT_EQ(mCount, 13U);
    EXPECT_EQ(mServer->Receive(13), "to the server");
    EXPECT_EQ(Write("", 0), CL_ERR_NO_ERR);
}

TEST_F(ClientTest, AWriteThatIsNotTakenTimesOutWithWhatWasStored)
{
    Attach();
    EXPECT_EQ(Write(std::string(2000, 'x'), 30), CL_ERR_TIMEOUT);
    EXPECT_EQ(mCount, 1023U);
    EXPECT_EQ(mServer->Receive(1023).size(), 1023U);
    EXPECT_EQ(Write(std::string(1023, 'y'), 0), CL_ERR_NO_ERR); // full, and all of it stored
    EXPECT_EQ(mCount, 1023U);
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
}

// Calls use the port in turn. One that waits for its turn waits no longer than its own time.
TEST_F(ClientTest, AWriteWaitsForTheOneBeforeItNoLongerThanItsTime)
{
    Attach();
    EXPECT_EQ(Write(std::string(1022, 'x'), 0), CL_ERR_NO_ERR);
    const std::jthread lFirst = WriteInVain(10, 1);
    // The first one has the turn as soon as its first byte is in the FIFO.
    KyPlatform::SharedMemory lDown;
    ASSERT_TRUE(lDown.Open("Local\\KySerialBridgeDownFifo1Memory"));
    auto* const lHeader = static_cast<KySerialLib::SharedFifoHeader*>(lDown.GetBase());
    EXPECT_TRUE(WaitFor([&] { return std::atomic_ref<uint32_t>(lHeader->mHeadIndex) == 1023; }));
    EXPECT_EQ(Write("y", 20), CL_ERR_TIMEOUT);
    EXPECT_EQ(mCount, 0U);
    clSerialClose(mPort);
}

TEST_F(ClientTest, CloseEndsAWriteThatWaitsForItsServer)
{
    Attach();
    mServer.reset();
    const std::jthread lWriter = WriteInVain(1, 0);
    Thread::Sleep(20); // most likely it is in the call by now; the result is the same when it is not
    clSerialClose(mPort);
}

TEST_F(ClientTest, APortThatIsBeingClosedIsNoOpenPort)
{
    Attach();
    KyPlatform::NamedMutex lLock; // the reader waits for it, and the closer for the reader
    ASSERT_TRUE(lLock.Open("Local\\KySerialBridgeUpFifo1Mutex"));
    ASSERT_TRUE(IsOwned(lLock.Wait(cPatience)));
    std::thread lReader([&] { EXPECT_EQ(Read(1, 0xFFFFFFFFU), CL_ERR_INVALID_REFERENCE); });
    Thread::Sleep(20);
    std::thread lCloser([&] { clSerialClose(mPort); });
    CLUINT32 lRates = 0;
    EXPECT_TRUE(WaitFor([&] { return clGetSupportedBaudRates(mPort, &lRates) == CL_ERR_INVALID_REFERENCE; }));
    clSerialClose(mPort); // does not wait for the other
    EXPECT_EQ(clFlushPort(mPort), CL_ERR_INVALID_REFERENCE);
    EXPECT_TRUE(lLock.Release());
    lReader.join();
    lCloser.join();
}

TEST_F(ClientTest, SeveralThreadsGetWholeBlocks)
{
    Attach();
    constexpr int cBlocks = 100;
    std::atomic<int> lWhole{0};
    const auto lRead = [&]
    {
        for (int j = 0; j < cBlocks; ++j)
        {
            char lBlock[7];
            CLUINT32 lCount = 7;
            const CLINT32 lResult = clSerialRead(mPort, lBlock, &lCount, cPatience);
            lWhole += lResult == CL_ERR_NO_ERR && std::memcmp(lBlock, "<block>", 7) == 0 ? 1 : 0;
        }
    };
    const auto lWrite = [&]
    {
        for (int j = 0; j < cBlocks; ++j)
        {
            char lBlock[] = "[block]";
            CLUINT32 lCount = 7;
            EXPECT_EQ(clSerialWrite(mPort, lBlock, &lCount, cPatience), CL_ERR_NO_ERR);
        }
    };
    std::string lExpected;
    {
        std::vector<std::jthread> lThreads;
        for (int lIndex = 0; lIndex < 3; ++lIndex)
        {
            lThreads.emplace_back(lRead);
            lThreads.emplace_back(lWrite);
        }
        const std::jthread lSender(
            [&]
            {
                for (int j = 0; j < 3 * cBlocks; ++j)
                {
                    EXPECT_TRUE(mServer->Send("<block>"));
                }
            });
        for (int j = 0; j < 3 * cBlocks; ++j)
        {
            lExpected += "[block]";
        }
        EXPECT_EQ(mServer->Receive(lExpected.size()), lExpected);
    }
    EXPECT_EQ(lWhole, 3 * cBlocks);
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
        EXPECT_EQ(Read(4, 0), CL_ERR_NO_ERR);
        EXPECT_EQ(mBuffer, "last");
        EXPECT_EQ(Read(1, 20), CL_ERR_TIMEOUT);
        EXPECT_EQ(Write("nobody", 20), CL_ERR_TIMEOUT);
        EXPECT_EQ(mCount, 0U);
        std::thread lWriter([&] { EXPECT_EQ(Write("somebody", cPatience), CL_ERR_NO_ERR); });
        mServer.emplace("Server");
        EXPECT_EQ(mServer->Receive(8), "somebody");
        lWriter.join();
        EXPECT_TRUE(mServer->Send("back"));
        EXPECT_EQ(Read(4, cPatience), CL_ERR_NO_ERR);
        EXPECT_EQ(mBuffer, "back");
        hSerRef lSecond = nullptr;
        EXPECT_EQ(clSerialInit(0, &lSecond), CL_ERR_PORT_IN_USE); // still this client's
        clSerialClose(mPort);
        mServer.reset();
    }
}

TEST_F(ClientTest, ADamagedFifoTimesOut)
{
    Attach();
    KyPlatform::SharedMemory lUp;
    KyPlatform::SharedMemory lDown;
    ASSERT_TRUE(lUp.Open("Local\\KySerialBridgeUpFifo1Memory"));
    ASSERT_TRUE(lDown.Open("Local\\KySerialBridgeDownFifo1Memory"));
    std::memset(lUp.GetBase(), 0xFF, 16);
    std::memset(lDown.GetBase(), 0xFF, 16);
    EXPECT_EQ(Read(1, 50), CL_ERR_TIMEOUT);
    EXPECT_EQ(Write("x", 50), CL_ERR_TIMEOUT);
    EXPECT_EQ(Available(), 0U);
    EXPECT_EQ(clFlushPort(mPort), CL_ERR_NO_ERR);
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
