#include "kyserial/Terminal/Screen.h"

#include "kyserial/Terminal/TrafficLog.h"

#include <JxUtilsLib/LockScope.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <utility>

namespace KySerialTool
{

namespace
{

constexpr std::array<const char*, 4> cTimeStamps = {"none", "utc", "elapsed", "step"};

} // namespace

const char* TimeStampsName(TimeStamps aStamps)
{
    return cTimeStamps.at(static_cast<size_t>(aStamps));
}

std::optional<TimeStamps> ParseTimeStamps(const std::string& aText)
{
    const auto* const lFound = std::find(cTimeStamps.begin(), cTimeStamps.end(), aText);
    return lFound != cTimeStamps.end() ? std::optional(static_cast<TimeStamps>(lFound - cTimeStamps.begin()))
                                       : std::nullopt;
}

Screen::Screen(Write aWrite, const ScreenSettings& aSettings, std::function<Time()> aNow)
    : mWrite(std::move(aWrite))
    , mNow(std::move(aNow))
    , mBegin(mNow())
    , mLastLine(mBegin)
    , mSettings(aSettings)
    , mLineEnds(aSettings.mLineEnd)
{
}

bool Screen::Show(const uint8_t* aData, size_t aSize)
{
    const JxUtilsLib::LockScope lScope(mLock);
    const std::string lText = mSettings.mHex ? Dump(aData, aSize) : mLineEnds.Map(aData, aSize);
    return lText.empty() || mWrite(Stamped(lText));
}

bool Screen::Echo(const uint8_t* aData, size_t aSize)
{
    const JxUtilsLib::LockScope lScope(mLock);
    // With a memory of its own: a CR from the port must not swallow an LF that is typed.
    return mWrite(Stamped(mEchoEnds.Map(aData, aSize)));
}

bool Screen::Print(const std::string& aText)
{
    const JxUtilsLib::LockScope lScope(mLock);
    return mWrite(aText);
}

bool Screen::Flush()
{
    const JxUtilsLib::LockScope lScope(mLock);
    const std::string lText = mDump.Flush();
    return lText.empty() || mWrite(Stamped(lText));
}

ScreenSettings Screen::GetSettings() const
{
    const JxUtilsLib::LockScope lScope(mLock);
    return mSettings;
}

void Screen::Change(const ScreenSettings& aSettings)
{
    const JxUtilsLib::LockScope lScope(mLock);
    mSettings = aSettings;
    // Begins anew: a CR of the former setting must not swallow the LF of this one.
    mLineEnds = LineEndMap(aSettings.mLineEnd);
}

std::string Screen::Dump(const uint8_t* aData, size_t aSize)
{
    // A pause shows the line that has been begun. In a file it would break lines at every pause.
    return aSize == 0 && mSettings.mPartialLines ? mDump.Flush() : mDump.Add(aData, aSize);
}

std::string Screen::Stamped(const std::string& aText)
{
    std::string lText;
    for (const char lByte : aText)
    {
        // The stamp is made when the first byte of a line comes, not when the line before ended: the pause in
        // between counts.
        if (mLineBegins)
        {
            lText += Stamp();
        }
        lText += lByte;
        mLineBegins = lByte == '\n';
    }
    return lText;
}

std::string Screen::Stamp()
{
    constexpr size_t cClock = 11; // where it is in the text of a time, and its length down to milliseconds
    constexpr size_t cClockLength = 12;
    const Time lNow = mNow();
    // Kept for every line, so that a step is right from the moment when stamps are switched on.
    const Time lFormer = std::exchange(mLastLine, lNow);
    if (mSettings.mTimeStamps == TimeStamps::None)
    {
        return {};
    }
    if (mSettings.mTimeStamps == TimeStamps::Utc)
    {
        return '[' + TimeText(lNow).substr(cClock, cClockLength) + "] ";
    }
    const bool lStep = mSettings.mTimeStamps == TimeStamps::Step;
    const double lSeconds = std::chrono::duration<double>(lNow - (lStep ? lFormer : mBegin)).count();
    std::array<char, 48> lText{};
    std::snprintf(lText.data(), lText.size(), lStep ? "[%+9.3f] " : "[%9.3f] ", lSeconds);
    return lText.data();
}

} // namespace KySerialTool
