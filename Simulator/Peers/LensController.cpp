#include "Simulator/Peers/LensController.h"

#include <algorithm>
#include <cctype>
#include <utility>

namespace KySimulator
{

namespace
{

constexpr const char* cOk = "OK";
constexpr const char* cUnknownCommand = "ERR 1 UNKNOWN COMMAND";
constexpr const char* cBadValue = "ERR 2 BAD VALUE";
constexpr const char* cOutOfRange = "ERR 3 OUT OF RANGE 0..";
constexpr const char* cLineTooLong = "ERR 4 LINE TOO LONG";
constexpr const char* cBadCharacter = "ERR 5 BAD CHARACTER";
constexpr const char* cHelp = "HELP ID? STATUS? ZOOM? ZOOM n FOCUS? FOCUS n IRIS? IRIS n HOME STOP HELP?";

constexpr std::string_view cBlanks = " \t";

std::string_view Trimmed(std::string_view aText)
{
    const size_t lFirst = aText.find_first_not_of(cBlanks);
    if (lFirst == std::string_view::npos)
    {
        return {};
    }
    return aText.substr(lFirst, aText.find_last_not_of(cBlanks) - lFirst + 1);
}

bool IsPlain(char aCharacter)
{
    return aCharacter == '\t' || (aCharacter >= ' ' && aCharacter <= '~');
}

bool IsDigit(char aCharacter)
{
    return aCharacter >= '0' && aCharacter <= '9';
}

std::string UpperCase(std::string_view aText)
{
    std::string lText(aText);
    std::transform(lText.begin(), lText.end(), lText.begin(),
                   [](unsigned char aCharacter) { return static_cast<char>(std::toupper(aCharacter)); });
    return lText;
}

} // namespace

LensController::LensController(LensOptions aOptions)
    : mOptions(std::move(aOptions))
    , mMotors{{{"ZOOM", 3000, 0, 0, 0, Time(0)},
               {"FOCUS", 2000, 1000, 1000, 1000, Time(0)},
               {"IRIS", 100, 100, 100, 100, Time(0)}}}
{
}

void LensController::OnPlugged(const std::shared_ptr<SerialLine>& aLine)
{
    LockScope lScope(mLock);
    mLine = aLine;
    // A half command of the line before means nothing on the new one.
    mCommand.clear();
    mTooLong = false;
}

void LensController::OnUnplugged()
{
    LockScope lScope(mLock);
    mLine.reset();
}

void LensController::OnReceived(const uint8_t* aData, size_t aSize)
{
    // Answers are collected under the lock and sent without it: the line calls back into the camera.
    std::string lAnswers;
    std::shared_ptr<SerialLine> lLine;
    {
        LockScope lScope(mLock);
        lLine = mLine;
        // Bytes of a line that is unplugged by now have nowhere to be answered.
        if (lLine == nullptr)
        {
            return;
        }
        const Time lNow = lLine->Now();
        for (size_t lIndex = 0; lIndex < aSize; ++lIndex)
        {
            const auto lCharacter = static_cast<char>(aData[lIndex]);
            if (lCharacter == '\r' || lCharacter == '\n')
            {
                lAnswers += EndLine(lNow);
            }
            // Bytes after the longest line are dropped, so that a sender without line ends does not fill memory.
            else if (mCommand.size() < cMaxLine)
            {
                mCommand.push_back(lCharacter);
            }
            else
            {
                mTooLong = true; // the rest of the line is no command
            }
        }
    }
    if (!lAnswers.empty())
    {
        std::vector<uint8_t> lBytes(lAnswers.begin(), lAnswers.end());
        lLine->Send(lBytes.data(), lBytes.size(), mOptions.mAnswerDelay);
    }
}

std::string LensController::EndLine(Time aNow)
{
    const std::string lCommand = std::exchange(mCommand, {});
    const std::string lAnswer = std::exchange(mTooLong, false) ? cLineTooLong : ExecuteLocked(lCommand, aNow);
    return lAnswer.empty() ? lAnswer : lAnswer + "\r\n"; // the LF of a CR LF ends an empty line
}

std::string LensController::Execute(std::string_view aLine, Time aNow)
{
    LockScope lScope(mLock);
    return aLine.size() > cMaxLine ? cLineTooLong : ExecuteLocked(aLine, aNow);
}

std::string LensController::ExecuteLocked(std::string_view aLine, Time aNow)
{
    // Noise of a wrong baud rate shows itself as such characters. A user has to see that, not "unknown command".
    if (!std::all_of(aLine.begin(), aLine.end(), IsPlain))
    {
        return cBadCharacter;
    }
    const std::string lLine = UpperCase(Trimmed(aLine));
    const size_t lEnd = std::min(lLine.find_first_of(cBlanks), lLine.size());
    const std::string_view lCommand = std::string_view(lLine).substr(0, lEnd);
    const std::string_view lValue = Trimmed(std::string_view(lLine).substr(lEnd));
    for (Motor& lMotor : mMotors)
    {
        if (lCommand == lMotor.mName)
        {
            return ExecuteMotor(lMotor, lValue, aNow);
        }
    }
    // None of these commands takes a value.
    std::string lAnswer = ExecutePlain(lCommand, aNow);
    return lValue.empty() || lAnswer == cUnknownCommand ? lAnswer : cBadValue;
}

std::string LensController::ExecutePlain(std::string_view aCommand, Time aNow)
{
    // An empty line gets no answer, so that CR LF counts as one end of a line.
    if (aCommand.empty())
    {
        return {};
    }
    if (aCommand == "ID?")
    {
        return "ID " + mOptions.mIdentity;
    }
    if (aCommand == "STATUS?")
    {
        return Status(aNow);
    }
    if (aCommand == "HELP?")
    {
        return cHelp;
    }
    for (Motor& lMotor : mMotors)
    {
        if (aCommand == std::string(lMotor.mName) + "?")
        {
            return std::string(lMotor.mName) + " " + std::to_string(PositionOf(lMotor, aNow));
        }
    }
    if (aCommand == "HOME" || aCommand == "STOP")
    {
        for (Motor& lMotor : mMotors)
        {
            // STOP is a move to where the motor is at this moment.
            Move(lMotor, aCommand == "HOME" ? lMotor.mHome : PositionOf(lMotor, aNow), aNow);
        }
        return cOk;
    }
    return cUnknownCommand;
}

std::string LensController::ExecuteMotor(Motor& aMotor, std::string_view aValue, Time aNow) const
{
    constexpr size_t cDigits = 9; // more are out of every range
    const bool lNegative = !aValue.empty() && aValue.front() == '-';
    const std::string_view lDigits = aValue.substr(lNegative ? 1 : 0);
    if (lDigits.empty() || !std::all_of(lDigits.begin(), lDigits.end(), IsDigit))
    {
        return cBadValue;
    }
    // Nine digits always fit, so the conversion cannot fail.
    const int32_t lTarget = lDigits.size() > cDigits ? INT32_MAX : std::stoi(std::string(lDigits));
    // "-0" is 0, and in range.
    if (lTarget > aMotor.mMaximum || (lNegative && lTarget != 0))
    {
        return cOutOfRange + std::to_string(aMotor.mMaximum);
    }
    Move(aMotor, lTarget, aNow);
    return cOk;
}

std::string LensController::Status(Time aNow) const
{
    std::string lPositions;
    bool lMoving = false;
    for (const Motor& lMotor : mMotors)
    {
        const int32_t lPosition = PositionOf(lMotor, aNow);
        lMoving = lMoving || lPosition != lMotor.mTarget;
        lPositions += std::string(" ") + lMotor.mName + " " + std::to_string(lPosition);
    }
    return std::string("STATUS ") + (lMoving ? "MOVING" : "READY") + lPositions;
}

int32_t LensController::PositionOf(const Motor& aMotor, Time aNow) const
{
    const int64_t lDistance = std::abs(aMotor.mTarget - aMotor.mFrom);
    // Without a speed the motors are at their target at once.
    if (mOptions.mStepsPerSecond == 0)
    {
        return aMotor.mTarget;
    }
    const Time lWay = TimeOfSteps(lDistance);
    // An application's own clock may go back; the motor does not.
    const Time lGone = std::max(aNow - aMotor.mStart, Time(0));
    if (lGone >= lWay)
    {
        return aMotor.mTarget;
    }
    // Whole steps, as a motor makes them, and rounded down, so that the target is not reported too early.
    const int64_t lSteps = lDistance * lGone.count() / lWay.count();
    return static_cast<int32_t>(aMotor.mFrom + (aMotor.mTarget > aMotor.mFrom ? lSteps : -lSteps));
}

Time LensController::TimeOfSteps(int64_t aSteps) const
{
    return Time(aSteps * 1000000000 / mOptions.mStepsPerSecond);
}

void LensController::Move(Motor& aMotor, int32_t aTarget, Time aNow) const
{
    // A move in the middle of another one starts where the motor has got to.
    aMotor.mFrom = PositionOf(aMotor, aNow);
    aMotor.mTarget = aTarget;
    aMotor.mStart = aNow;
}

} // namespace KySimulator
