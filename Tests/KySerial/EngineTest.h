#pragma once

#include "Support/AssertRecorder.h"
#include "Support/RecordingLogSink.h"
#include "Support/ResultMatcher.h"
#include "Support/ScriptedAdapter.h"

#include "PortMap.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

namespace KyTest
{

using JxUtilsLib::PriorityDebug;
using JxUtilsLib::PriorityError;
using JxUtilsLib::PriorityFatal;
using JxUtilsLib::PriorityInfo;
using JxUtilsLib::PriorityWarning;

using Lines = std::vector<LogLine>;

/// One call transcript after the other.
inline Calls Join(const std::vector<Calls>& aParts)
{
    Calls lAll;
    for (const Calls& lPart : aParts)
    {
        lAll.insert(lAll.end(), lPart.begin(), lPart.end());
    }
    return lAll;
}

/// The first aCount of some calls; fewer when there are fewer.
inline Calls First(const Calls& aCalls, size_t aCount)
{
    return {aCalls.begin(), aCalls.begin() + static_cast<ptrdiff_t>(std::min(aCount, aCalls.size()))};
}

/// The last ones.
inline Calls Last(const Calls& aCalls, size_t aCount)
{
    return {aCalls.end() - static_cast<ptrdiff_t>(std::min(aCount, aCalls.size())), aCalls.end()};
}

/// What identifying a GigE Vision device asks the adapter.
inline const Calls cIdentify = {"IsGigEVision", "GetIntegerValue(GevMACAddress)"};

/// What the engines that drive registers ask the adapter before they look at their port.
inline const Calls cAskRegisters =
    Join({{"IsConnected", "IsKorvoVideoInterface"}, cIdentify, {"IsGigEVision", "ReadRegister(0xb8fc)"}});

// Texts of results and log lines that several classes share.
inline constexpr char cNull[] = "Device pointer is NULL.";
inline constexpr char cDisconnected[] = "The device is not currently connected.";
inline constexpr char cNotSupported[] = "The specified port is not supported by this device.";
inline constexpr char cInUse[] = "The specified port is already in use.";
inline constexpr char cNullBuffer[] = "aBuffer pointer cannot be NULL.";

/// What the log says of a port that somebody has claimed. The text is not about the port; clients' log filters know
/// it like this.
inline const LogLine cClaimed{PriorityInfo, "KySerialLib::PortMap::Lock",
                              "Could not read MAC address from device node map."};

/// A test with a scripted device. Log lines and broken assertions are recorded; those assertions that the
/// test does not take are failures.
class EngineTest : public testing::Test
{
protected:
    void TearDown() override { EXPECT_EQ(mAsserts.Take(), Calls()); }

    /// The log lines so far, every one of which is in the library's category.
    Lines TakeLog()
    {
        for (const std::string& lCategory : mLog.GetCategories())
        {
            EXPECT_EQ(lCategory, "KySerialLib");
        }
        return mLog.Take();
    }

    /// The same, from one source file.
    Lines TakeLogOf(const std::string& aFile)
    {
        for (const std::string& lFile : mLog.GetFiles())
        {
            EXPECT_TRUE(lFile.ends_with("/" + aFile) || lFile.ends_with("\\" + aFile)) << lFile;
        }
        return TakeLog();
    }

    /// Expects a failure, and nothing in the log but one line about it, which a function of a source file wrote.
    void ExpectFailure(const KyResult& aResult, uint32_t aCode, const std::string& aFunction,
                       const std::string& aText, const char* aFile = nullptr)
    {
        EXPECT_THAT(aResult, IsResult(aCode, aText.c_str())) << aFunction;
        EXPECT_EQ(aFile != nullptr ? TakeLogOf(aFile) : TakeLog(),
                  (Lines{{PriorityError, aFunction, aText}}));
    }

    /// Forgets what happened so far.
    void Forget()
    {
        mLog.Take();
        mDevice.TakeCalls();
        mDevice.ClearCounts();
    }

    /// Whether another engine can have a port of the device now.
    bool IsFree(int aPort)
    {
        KySerialLib::PortMap& lPorts = KySerialLib::PortMap::GetInstance();
        const auto lPort = static_cast<KyDeviceSerial>(aPort);
        return lPorts.Lock(&mDevice, lPort) && lPorts.Unlock(&mDevice, lPort);
    }

    static void DisableEveryPriority()
    {
        JxUtilsLib::Logger::SetPriority(static_cast<JxUtilsLib::PriorityLevel>(PriorityFatal + 1));
    }

    RecordingLogSink mLog;
    AssertRecorder mAsserts;
    ScriptedAdapter mDevice;
};

/// Little-endian bytes of 32-bit words, as an event carries them.
inline Bytes Words(const std::vector<uint32_t>& aWords)
{
    Bytes lBytes;
    for (const uint32_t lWord : aWords)
    {
        for (unsigned lShift = 0; lShift < 32; lShift += 8)
        {
            lBytes.push_back(static_cast<uint8_t>(lWord >> lShift));
        }
    }
    return lBytes;
}

/// Bytes one after the other.
inline Bytes Together(const std::vector<Bytes>& aParts)
{
    Bytes lAll;
    for (const Bytes& lPart : aParts)
    {
        lAll.insert(lAll.end(), lPart.begin(), lPart.end());
    }
    return lAll;
}

/// aSize bytes of others, from one on.
inline Bytes Part(const Bytes& aBytes, size_t aFrom, size_t aSize)
{
    const auto lFrom = aBytes.begin() + static_cast<ptrdiff_t>(aFrom);
    return {lFrom, lFrom + static_cast<ptrdiff_t>(aSize)};
}

/// aCount bytes that count up.
inline Bytes Count(size_t aCount)
{
    Bytes lBytes(aCount);
    for (size_t lIndex = 0; lIndex < aCount; ++lIndex)
    {
        lBytes[lIndex] = static_cast<uint8_t>(lIndex);
    }
    return lBytes;
}

/// The device brings bytes at bulk port aBulk, through its features.
inline void SendUpstream(ScriptedAdapter& aDevice, int aBulk, const Bytes& aBytes)
{
    const std::string lEvent = "EventBulk" + std::to_string(aBulk) + "UpstreamData";
    aDevice.SetContent(lEvent + "Buffer", aBytes);
    aDevice.SetInteger(lEvent + "Length", static_cast<int64_t>(aBytes.size()));
    aDevice.Invalidate(lEvent + "Buffer");
}

/// Writes bytes to a port or an engine.
template<typename Port>
KyResult WriteTo(Port& aPort, const Bytes& aBytes, uint32_t& aWritten)
{
    return aPort.Write(aBytes.data(), static_cast<uint32_t>(aBytes.size()), aWritten);
}

/// Everything that a port has received, taken without waiting.
template<typename Port>
Bytes ReadAll(Port& aPort)
{
    Bytes lAll;
    uint8_t lPart[256];
    uint32_t lGot = 0;
    while (aPort.Read(lPart, sizeof lPart, lGot, 0).IsOK() && lGot > 0)
    {
        lAll.insert(lAll.end(), lPart, lPart + lGot);
    }
    return lAll;
}

/// Received bytes waiting.
template<typename Port>
uint32_t GetReady(Port& aPort)
{
    uint32_t lReady = 0xDEAD;
    EXPECT_THAT(aPort.GetRxBytesReady(lReady), IsOK());
    return lReady;
}

} // namespace KyTest
