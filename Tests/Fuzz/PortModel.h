#pragma once

#include "Fuzz/FuzzInput.h"
#include "JxUtilsLib/Assert.h"
#include "JxUtilsLib/Logger.h"
#include "SerialPort.h"

#include <array>
#include <cstring>
#include <initializer_list>

namespace KyTest
{

/// What a port's receive buffer has to hold: the bytes pushed last, one fewer than it has cells.
class PortModel
{
public:
    void Push(uint8_t aByte)
    {
        if (mCells > 1)
        {
            mBytes[mEnd++] = aByte;
            mBegin = std::max(mBegin, mEnd - std::min<size_t>(mEnd, mCells - 1));
        }
        if (mEnd == mBytes.size())
        {
            mEnd = static_cast<size_t>(
                std::copy(mBytes.begin() + static_cast<ptrdiff_t>(mBegin), mBytes.end(), mBytes.begin()) -
                mBytes.begin());
            mBegin = 0;
        }
    }

    void Flush()
    {
        mBegin = 0;
        mEnd = 0;
    }

    /// Compares the number of bytes waiting, the buffer's size, and the bytes of one read of up to 256.
    void Check(KySerialLib::SerialPort& aPort, uint32_t aReadSize)
    {
        uint32_t lCount = 0xDEAD;
        KY_REQUIRE(aPort.GetRxBytesReady(lCount).IsOK() && lCount == mEnd - mBegin);
        KY_REQUIRE(aPort.GetRxBufferSize(lCount).IsOK() && lCount == mCells);
        std::array<uint8_t, 256> lBytes;
        const KyResult lResult = aPort.Read(lBytes.data(), aReadSize, lCount, 0);
        const size_t lExpected = std::min<size_t>(std::max(aReadSize, 1U), mEnd - mBegin); // 0 takes one byte
        KY_REQUIRE(lCount == lExpected && lResult.IsOK() == (lExpected > 0));
        KY_REQUIRE(lResult.IsOK() || lResult.GetCode() == KyResult::TIMED_OUT);
        KY_REQUIRE(std::memcmp(lBytes.data(), mBytes.data() + mBegin, lCount) == 0);
        mBegin += lCount;
    }

    /// Gives port and model a new, empty buffer.
    void Resize(KySerialLib::SerialPort& aPort, uint32_t aCells)
    {
        KY_REQUIRE(aCells < mBytes.size() && aPort.SetRxBufferSize(aCells).IsOK());
        mCells = aCells;
        Flush();
    }

private:
    uint32_t mCells = 0;
    size_t mBegin = 0;
    size_t mEnd = 0;
    std::array<uint8_t, 4096> mBytes; // those from mBegin to mEnd are waiting
};

/// Word 0 of an event's payload, little-endian.
inline uint32_t GetStatus(const std::vector<uint8_t>& aPayload)
{
    return static_cast<uint32_t>(aPayload[0]) | static_cast<uint32_t>(aPayload[1]) << 8U |
           static_cast<uint32_t>(aPayload[2]) << 16U | static_cast<uint32_t>(aPayload[3]) << 24U;
}

/// Silences the log, and lets these broken assertions pass: a hostile device breaks them. Others end the
/// process.
class HostileDevice
{
public:
    HostileDevice(std::initializer_list<const char*> aTexts)
    {
        sTexts = aTexts;
        JxUtilsLib::Logger::SetPriority(
            static_cast<JxUtilsLib::PriorityLevel>(JxUtilsLib::PriorityFatal + 1));
        JxUtilsLib::SetAssertHandler(&Handle);
    }

private:
    static void Handle(const char* aText, const char* aFile, int aLine)
    {
        for (const char* const lText : sTexts)
        {
            if (std::strcmp(lText, aText) == 0)
            {
                return;
            }
        }
        RequirementFailed(aText, aFile, aLine);
    }

    static inline std::vector<const char*> sTexts;
};

} // namespace KyTest
