#include "Tests/Support/HostLink.h"

#include "JxUtilsLib/Thread.h"
#include "KyPlatform/HostSerialPort.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <fstream>
#include <mutex>
#include <sstream>
#include <stdexcept>
#include <thread>

namespace KyTest
{

using KyPlatform::HostSerialPort;
using KyPlatform::HostTransfer;

// The second port of the pair, read all the time so that nothing is lost between two Read() calls.
struct HostLink::End
{
    HostSerialPort mPort;
    KyPlatform::StopEvent mReadStop;
    KyPlatform::StopEvent mWriteStop; // never set: a write ends by the port's time-out
    std::mutex mMutex;
    std::condition_variable mMore;
    std::string mBytes;
    std::thread mReader;

    void ReadAll()
    {
        std::array<char, 4096> lPart{};
        for (;;)
        {
            const auto lRead = mPort.Read(lPart.data(), static_cast<uint32_t>(lPart.size()), mReadStop);
            if (lRead.mEnd == HostTransfer::Stopped)
            {
                return;
            }
            if (lRead.mBytes == 0)
            {
                JxUtilsLib::Thread::Sleep(1);
                continue;
            }
            const std::lock_guard<std::mutex> lLock(mMutex);
            mBytes.append(lPart.data(), lRead.mBytes);
            mMore.notify_all();
        }
    }
};

std::string HostLink::GetReasonToSkip()
{
    return std::getenv("KYSERIAL_TEST_COM_PORTS") != nullptr
               ? ""
               : "no connected COM ports: KYSERIAL_TEST_COM_PORTS names none";
}

HostLink::HostLink() : mEnd(std::make_unique<End>())
{
    std::istringstream lPorts(std::getenv("KYSERIAL_TEST_COM_PORTS"));
    std::string lOther;
    lPorts >> mName >> lOther;
    mPath = R"(\\.\)" + mName;
    // The system may still be setting its ports up.
    bool lOpen = false;
    for (int lTry = 0; lTry < 100 && !lOpen; ++lTry)
    {
        lOpen = mEnd->mPort.Open((R"(\\.\)" + lOther).c_str());
        JxUtilsLib::Thread::Sleep(lOpen ? 0 : 50);
    }
    KyPlatform::HostLine lLine;
    lLine.mBaudRate = 115200;
    if (!lOpen || !mEnd->mPort.SetTimeouts() || !mEnd->mPort.ReadLine() || !mEnd->mPort.SetLine(lLine) ||
        !mEnd->mReadStop.Create() || !mEnd->mWriteStop.Create())
    {
        throw std::runtime_error("no COM port");
    }
    mEnd->mReader = std::thread([this] { mEnd->ReadAll(); });
    // What an earlier test of this process has left on the way is not this one's.
    while (!Read(1000000, 100).empty())
    {
    }
}

HostLink::~HostLink()
{
    StopReading();
}

void HostLink::StopReading()
{
    mEnd->mReadStop.Set();
    if (mEnd->mReader.joinable())
    {
        mEnd->mReader.join();
    }
}

// What runs the program does it, once it finds the file.
void HostLink::Vanish()
{
    std::ofstream(std::getenv("KYSERIAL_TEST_COM_UNPLUG")) << mName;
}

bool HostLink::CanComeBack()
{
    return false;
}

void HostLink::ComeBack() {}

size_t HostLink::Write(const std::string& aBytes)
{
    size_t lDone = 0;
    while (lDone < aBytes.size())
    {
        const auto lPart = static_cast<uint32_t>(std::min<size_t>(aBytes.size() - lDone, 256));
        const auto lWritten = mEnd->mPort.Write(aBytes.data() + lDone, lPart, mEnd->mWriteStop);
        lDone += lWritten.mBytes;
        if (lWritten.mBytes < lPart)
        {
            break;
        }
    }
    return lDone;
}

std::string HostLink::Read(size_t aCount, uint32_t aTimeout)
{
    std::unique_lock<std::mutex> lLock(mEnd->mMutex);
    mEnd->mMore.wait_for(lLock, std::chrono::milliseconds(aTimeout),
                         [&] { return mEnd->mBytes.size() >= aCount; });
    std::string lBytes = mEnd->mBytes.substr(0, aCount);
    mEnd->mBytes.erase(0, lBytes.size());
    return lBytes;
}

} // namespace KyTest
