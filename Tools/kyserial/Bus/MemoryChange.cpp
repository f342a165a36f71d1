#include "kyserial/Bus/MemoryChange.h"

#include "kyserial/Text/Failure.h"

#include <Platform/Console.h>

#include <array>
#include <cstdio>

namespace KySerialTool
{

namespace
{

using KyToolPlatform::Console;

std::string Range(size_t aFirst, size_t aSize)
{
    std::array<char, 64> lText{};
    std::snprintf(lText.data(), lText.size(), "0x%06zx to 0x%06zx", aFirst, aFirst + aSize - 1);
    return lText.data();
}

} // namespace

void ConfirmChange(Context& aContext, bool aYes, bool aInputUsed, const std::string& aWhat)
{
    if (aYes)
    {
        return;
    }
    // A script must not change a memory because its input happens to begin with y.
    if (aInputUsed || !Console::IsInputTerminal() || !Console::IsErrorTerminal())
    {
        throw UsageError(aWhat + "; give -y, since there is no terminal to ask on");
    }
    std::string lAnswer;
    std::fputs((aWhat + ". Continue? [y/N] ").c_str(), stderr);
    std::fflush(stderr);
    // An empty line means no: what a memory held before cannot be brought back.
    if (!ReadLine(aContext.mConsole, lAnswer) || lAnswer.empty() ||
        (lAnswer.front() != 'y' && lAnswer.front() != 'Y'))
    {
        throw OperationError("nothing was changed, as you wished");
    }
}

void WatchInterrupts(Context& aContext)
{
    // Without its own handler the program would end inside a step, with a sector erased and not written for
    // example.
    if (!aContext.mConsole.WatchInterrupts())
    {
        throw OperationError("the system does not let the program handle Ctrl-C");
    }
}

void ThrowIfInterrupted(const Context& aContext)
{
    if (aContext.mConsole.IsInterrupted())
    {
        throw OperationError("interrupted");
    }
}

MemoryProgress::MemoryProgress(const Context& aContext, const std::string& aLabel, const std::string& aDone,
                               size_t aOffset, size_t aSize)
    : mContext(aContext), mVerb(aDone), mOffset(aOffset), mBar(aLabel, aSize)
{
}

void MemoryProgress::Run(const std::function<void(const Advance&)>& aSteps)
{
    try
    {
        ThrowIfInterrupted(mContext);
        aSteps(
            [this](size_t aCount)
            {
                Count(aCount);
                ThrowIfInterrupted(mContext); // between two steps, so that each step is whole
            });
    }
    catch (const OperationError& lError)
    {
        if (mVerb.empty())
        {
            throw; // a read leaves nothing half done
        }
        throw OperationError(lError.what() + std::string("; ") +
                             (mDone == 0 ? "nothing is " + mVerb : Range(mOffset, mDone) + " is " + mVerb) +
                             ", the next step may have begun");
    }
}

void MemoryProgress::Count(size_t aCount)
{
    mDone += aCount;
    mBar.Advance(aCount);
}

} // namespace KySerialTool
