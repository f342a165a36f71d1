#include "kyserial/Terminal/TrafficLog.h"

#include "kyserial/Text/FileContent.h"
#include "kyserial/Text/Hex.h"

#include <JxUtilsLib/LockScope.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <utility>

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
    return !lFile.is_open() || lFile.gcount() == 0 || PcapngSection::IsHeader(lBytes);
}

/// "focus.log" with number 2 as "focus.2.log".
std::filesystem::path NumberedPath(std::filesystem::path aPath, uint32_t aNumber)
{
    const std::string lEnding = aPath.extension().string();
    return aPath.replace_extension("." + std::to_string(aNumber) + lEnding);
}

} // namespace

std::string TrafficLog::Open(const std::string& aPath, const Limit& aLimit)
{
    const JxUtilsLib::LockScope lScope(mLock);
    mPath = aPath;
    mLimit = aLimit;
    return OpenLocked();
}

std::string TrafficLog::OpenLocked()
{
    const bool lPcapng = mPath.ends_with(".pcapng");
    if (lPcapng && !TakesSection(mPath))
    {
        return CannotWrite(": it has other content");
    }
    errno = 0;
    mFile.open(mPath, std::ios::binary | std::ios::app);
    mOpen = mFile.is_open();
    if (!mOpen)
    {
        return CannotWrite(FileFault(mPath));
    }
    std::error_code lError;
    const uintmax_t lSize = std::filesystem::file_size(mPath, lError);
    mBytes = lError ? 0 : lSize;
    if (lPcapng)
    {
        mSection.emplace(std::chrono::system_clock::now());
        WriteLocked(PcapngSection::Header());
    }
    return {};
}

std::string TrafficLog::CannotWrite(const std::string& aWhy) const
{
    return "cannot write " + mPath + aWhy;
}

TrafficLog::~TrafficLog()
{
    Flush();
}

void TrafficLog::Add(char aDirection, const uint8_t* aData, size_t aSize)
{
    const JxUtilsLib::LockScope lScope(mLock);
    if (!mOpen || aSize == 0)
    {
        return;
    }
    if (mSection.has_value())
    {
        WriteLocked(mSection->Packet(std::chrono::system_clock::now(), aDirection == cSent, aData, aSize));
        return;
    }
    AddLines(aDirection, aData, aSize);
}

void TrafficLog::AddLines(char aDirection, const uint8_t* aData, size_t aSize)
{
    const auto lNow = std::chrono::system_clock::now();
    if (mLineDirection != aDirection)
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
    const auto lNow = std::chrono::system_clock::now();
    const JxUtilsLib::LockScope lScope(mLock);
    FlushLocked();
    if (mOpen)
    {
        WriteLocked(mSection.has_value() ? mSection->Note(lNow, aText)
                                         : TimeText(lNow) + ' ' + cNote + ' ' + aText + '\n');
    }
}

void TrafficLog::WriteLocked(const std::string& aText)
{
    errno = 0;
    if (!mFile)
    {
        return;
    }
    if (!(mFile << aText << std::flush))
    {
        mFailure = CannotWrite(FileFault(mPath)); // the first failure is the last: the stream takes no more
        return;
    }
    mBytes += aText.size();
    if (mLimit.mBytes != 0 && mBytes >= mLimit.mBytes)
    {
        Rotate();
    }
}

// A file that the system does not let go of grows on; the next line tries again.
void TrafficLog::Rotate()
{
    mFile.close();
    const std::string lAside = mPath + ".aside";
    std::error_code lError;
    std::filesystem::rename(mPath, lAside, lError);
    if (!lError)
    {
        for (uint32_t lNumber = mLimit.mFiles; lNumber > 1; --lNumber) // each takes the place of the next
        {
            std::filesystem::rename(NumberedPath(mPath, lNumber - 1), NumberedPath(mPath, lNumber), lError);
        }
        if (mLimit.mFiles > 0)
        {
            std::filesystem::rename(lAside, NumberedPath(mPath, 1), lError);
        }
        std::filesystem::remove(lAside, lError);
    }
    const Limit lLimit = std::exchange(mLimit, {}); // the header of a section must not begin another file
    if (std::string lFault = OpenLocked(); !lFault.empty())
    {
        mFailure = std::move(lFault);
    }
    mLimit = lLimit;
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
        WriteLocked(Line(mLineTime, mLineDirection, mLine));
    }
    mLine.clear();
}

std::string TrafficLog::GetFailure() const
{
    const JxUtilsLib::LockScope lScope(mLock);
    return mFailure;
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
