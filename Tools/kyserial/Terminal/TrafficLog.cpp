#include "kyserial/Terminal/TrafficLog.h"

#include "kyserial/Text/Hex.h"

#include <JxUtilsLib/LockScope.h>

#include <algorithm>
#include <array>
#include <cstdio>

namespace KySerialTool
{

std::string TimeText(std::chrono::system_clock::time_point aTime)
{
    using namespace std::chrono;
    const auto lMicroseconds = floor<microseconds>(aTime);
    const auto lDay = floor<days>(lMicroseconds);
    const year_month_day lDate(lDay);
    const hh_mm_ss lClock(lMicroseconds - lDay);
    std::array<char, 64> lText{};
    std::snprintf(lText.data(), lText.size(), "%04d-%02u-%02uT%02d:%02d:%02d.%06dZ",
                  static_cast<int>(lDate.year()), static_cast<unsigned>(lDate.month()),
                  static_cast<unsigned>(lDate.day()), static_cast<int>(lClock.hours().count()),
                  static_cast<int>(lClock.minutes().count()), static_cast<int>(lClock.seconds().count()),
                  static_cast<int>(lClock.subseconds().count()));
    return lText.data();
}

bool TrafficLog::Open(const std::string& aPath)
{
    const JxUtilsLib::LockScope lScope(mLock);
    mFile.open(aPath, std::ios::binary | std::ios::app);
    mOpen = mFile.is_open();
    return mOpen;
}

TrafficLog::~TrafficLog()
{
    Flush();
}

void TrafficLog::Add(char aDirection, const uint8_t* aData, size_t aSize)
{
    const auto lNow = std::chrono::system_clock::now();
    const JxUtilsLib::LockScope lScope(mLock);
    if (aSize > 0 && mLineDirection != aDirection)
    {
        FlushLocked();
    }
    for (size_t lIndex = 0; lIndex < aSize; ++lIndex)
    {
        if (mLine.empty())
        {
            mLineTime = lNow;
            mLineDirection = aDirection;
        }
        mLine.push_back(aData[lIndex]);
        if (mLine.size() == HexDump::cBytesPerLine)
        {
            FlushLocked();
        }
    }
}

void TrafficLog::AddNote(const std::string& aText)
{
    const JxUtilsLib::LockScope lScope(mLock);
    FlushLocked();
    if (mOpen)
    {
        mFile << TimeText(std::chrono::system_clock::now()) << ' ' << cNote << ' ' << aText << '\n'
              << std::flush;
    }
}

void TrafficLog::Flush()
{
    const JxUtilsLib::LockScope lScope(mLock);
    FlushLocked();
}

void TrafficLog::FlushLocked()
{
    if (mOpen && !mLine.empty())
    {
        mFile << Line(mLineTime, mLineDirection, mLine) << std::flush;
    }
    mLine.clear();
}

bool TrafficLog::HasFailed() const
{
    const JxUtilsLib::LockScope lScope(mLock);
    return mOpen && !mFile;
}

std::string TrafficLog::Line(std::chrono::system_clock::time_point aTime, char aDirection,
                             const std::vector<uint8_t>& aBytes)
{
    std::string lNumbers = HexBytes(aBytes.data(), aBytes.size());
    lNumbers.resize(std::max(lNumbers.size(), HexDump::cBytesPerLine * 3 - 1), ' ');
    return TimeText(aTime) + ' ' + aDirection + ' ' + lNumbers + "  " +
           PrintableBytes(aBytes.data(), aBytes.size()) + '\n';
}

} // namespace KySerialTool
