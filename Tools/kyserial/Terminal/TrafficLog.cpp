#include "kyserial/Terminal/TrafficLog.h"

#include "kyserial/Text/Hex.h"

#include <JxUtilsLib/LockScope.h>
#include <Platform/PreciseTime.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <fstream>

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

namespace
{

/// Whether a section may follow what the file has.
bool TakesSection(const std::string& aPath)
{
    std::ifstream lFile(aPath, std::ios::binary);
    std::string lBytes(4, '\0');
    lFile.read(lBytes.data(), static_cast<std::streamsize>(lBytes.size()));
    // A new file, an empty one, or one that this format began. Bytes after anything else would make both
    // unreadable.
    return !lFile.is_open() || lFile.gcount() == 0 || PcapngSection::IsHeader(lBytes);
}

} // namespace

std::string TrafficLog::Open(const std::string& aPath, const Limit& aLimit)
{
    const JxUtilsLib::LockScope lScope(mLock);
    const bool lPcapng = aPath.ends_with(".pcapng");
    // Asked before the file is opened, which makes one that is not there.
    const bool lTakesSection = !lPcapng || TakesSection(aPath);
    std::string lFault =
        lTakesSection ? mFile.Open(aPath, aLimit) : "cannot write " + aPath + ": it has other content";
    if (lFault.empty() && lPcapng)
    {
        BeginSection();
    }
    return lFault;
}

// The smallest file has room for a header, so that the header begins no other file.
void TrafficLog::BeginSection()
{
    mSection.emplace(KyToolPlatform::PreciseTime());
    static_cast<void>(mFile.Write(PcapngSection::Header()));
}

TrafficLog::~TrafficLog()
{
    Flush();
}

void TrafficLog::Add(char aDirection, const uint8_t* aData, size_t aSize)
{
    const JxUtilsLib::LockScope lScope(mLock);
    if (!mFile.IsOpen() || aSize == 0) // mostly there is no log, which must not cost a look at the clock
    {
        return;
    }
    const Time lNow = KyToolPlatform::PreciseTime();
    if (mSendingSince.has_value() && aDirection == cReceived)
    {
        mAnswers.push_back({lNow, {aData, aData + aSize}});
        return;
    }
    AddLocked(lNow, aDirection, aData, aSize);
}

void TrafficLog::BeginSending()
{
    const JxUtilsLib::LockScope lScope(mLock);
    if (mFile.IsOpen())
    {
        mSendingSince = KyToolPlatform::PreciseTime();
    }
}

void TrafficLog::EndSending(const uint8_t* aData, size_t aSize)
{
    const JxUtilsLib::LockScope lScope(mLock);
    if (!mSendingSince.has_value())
    {
        return;
    }
    if (aSize > 0)
    {
        AddLocked(*mSendingSince, cSent, aData, aSize);
    }
    mSendingSince.reset();
    for (const Answer& lAnswer : mAnswers)
    {
        AddLocked(lAnswer.mTime, cReceived, lAnswer.mBytes.data(), lAnswer.mBytes.size());
    }
    mAnswers.clear();
}

void TrafficLog::AddLocked(Time aTime, char aDirection, const uint8_t* aData, size_t aSize)
{
    // A packet is a piece of traffic as it has passed, so nothing is collected into lines.
    if (mSection.has_value())
    {
        WriteLocked(mSection->Packet(aTime, aDirection == cSent, aData, aSize));
        return;
    }
    AddLines(aTime, aDirection, aData, aSize);
}

void TrafficLog::AddLines(Time aTime, char aDirection, const uint8_t* aData, size_t aSize)
{
    // A line has one direction, so the other one's bytes end it.
    if (mLineDirection != aDirection)
    {
        FlushLocked();
    }
    for (size_t lIndex = 0; lIndex < aSize; ++lIndex)
    {
        if (mLine.empty())
        {
            // A line has the time of its first byte.
            mLineTime = aTime;
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
    const auto lNow = KyToolPlatform::PreciseTime();
    const JxUtilsLib::LockScope lScope(mLock);
    // A line of bytes that is not full yet came before the note, and stands before it.
    FlushLocked();
    if (mFile.IsOpen())
    {
        WriteLocked(mSection.has_value() ? mSection->Note(lNow, aText)
                                         : TimeText(lNow) + ' ' + cNote + ' ' + aText + '\n');
    }
}

void TrafficLog::WriteLocked(const std::string& aText)
{
    // The file has begun anew, and a capture file without a header is unreadable.
    if (mFile.Write(aText) && mSection.has_value())
    {
        BeginSection();
    }
}

void TrafficLog::Flush()
{
    const JxUtilsLib::LockScope lScope(mLock);
    FlushLocked();
}

void TrafficLog::FlushLocked()
{
    if (mFile.IsOpen() && !mLine.empty())
    {
        WriteLocked(Line(mLineTime, mLineDirection, mLine));
    }
    mLine.clear();
}

std::string TrafficLog::GetFailure() const
{
    const JxUtilsLib::LockScope lScope(mLock);
    return mFile.GetFailure();
}

std::string TrafficLog::Line(std::chrono::system_clock::time_point aTime, char aDirection,
                             const std::vector<uint8_t>& aBytes)
{
    std::string lNumbers = HexBytes(aBytes.data(), aBytes.size());
    // As wide as a full line, so that the characters stand in their column.
    lNumbers.resize(std::max(lNumbers.size(), HexDump::cBytesPerLine * 3 - 1), ' ');
    return TimeText(aTime) + ' ' + aDirection + ' ' + lNumbers + "  " +
           PrintableBytes(aBytes.data(), aBytes.size()) + '\n';
}

} // namespace KySerialTool
