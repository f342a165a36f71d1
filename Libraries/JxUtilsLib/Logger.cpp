#include "JxUtilsLib/Logger.h"

#include "JxUtilsLib/LockScope.h"
#include "JxUtilsLib/StandardErrorSink.h"
#include "KyBase/KyPermanent.h"

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <memory>
#include <new>

namespace JxUtilsLib
{

namespace
{

std::atomic<int> gPriority{PriorityWarning};

struct SinkState
{
    Mutex mMutex;
    StandardErrorSink mDefault;
    LogSink* mSink JX_GUARDED_BY(mMutex) = &mDefault;
};

SinkState& GetSinkState()
{
    static KyPermanent<SinkState> sState; // ports may be closed, and log, while the process ends
    return sState.Get();
}

// A formatted text, on the stack when it is short.
class Text
{
public:
    Text(const char* aFormat, va_list aArguments) noexcept
    {
        // The first pass uses the arguments up, and a long text needs a second one.
        va_list lSecondPass;
        va_copy(lSecondPass, aArguments);
        // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): started by the callers
        const int lLength = std::vsnprintf(mShort, sizeof(mShort), aFormat, aArguments);
        if (lLength >= static_cast<int>(sizeof(mShort)))
        {
            const size_t lSize = static_cast<size_t>(lLength) + 1;
            mLong.reset(new (std::nothrow) char[lSize]);
            if (mLong != nullptr)
            {
                std::vsnprintf(mLong.get(), lSize, aFormat, lSecondPass);
            }
        }
        va_end(lSecondPass);
    }

    // Without memory for a long text, its beginning is logged.
    const char* Get() const noexcept { return mLong != nullptr ? mLong.get() : mShort; }

private:
    char mShort[256] = "";
    std::unique_ptr<char[]> mLong;
};

void Write(const LogRecord& aRecord) noexcept
{
    SinkState& lState = GetSinkState();
    // The lock is held during the call: SetSink() promises that no thread is inside the former sink.
    const LockScope lLock(lState.mMutex);
    try
    {
        lState.mSink->Write(aRecord);
    }
    catch (...) // NOLINT(bugprone-empty-catch): logging never fails as seen by the caller
    {
    }
}

} // namespace

Logger::Logger(const char* aCategory, int /*aConfiguration*/) noexcept : mCategory(aCategory) {}

Logger::~Logger() = default;

bool Logger::IsPriorityEnabled(PriorityLevel aPriority) const noexcept
{
    return aPriority >= gPriority.load(std::memory_order_relaxed);
}

void Logger::Log(PriorityLevel aPriority, const char* aFile, int aLine, const char* aFunction,
                 const char* aFormat, ...) const noexcept
{
    if (!IsPriorityEnabled(aPriority))
    {
        return;
    }
    va_list lArguments;
    va_start(lArguments, aFormat);
    const Text lText(aFormat, lArguments);
    va_end(lArguments);
    Write({mCategory, aPriority, aFile, aLine, aFunction, lText.Get()});
}

Result Logger::LogResult(uint32_t aCode, const char* aFile, int aLine, const char* aFunction,
                         const char* aFormat, ...) const noexcept
{
    // The text is formatted in any case, since it is the result's description, logged or not.
    va_list lArguments;
    va_start(lArguments, aFormat);
    const Text lText(aFormat, lArguments);
    va_end(lArguments);
    if (IsPriorityEnabled(PriorityError))
    {
        Write({mCategory, PriorityError, aFile, aLine, aFunction, lText.Get()});
    }
    return Result(aCode, lText.Get());
}

void Logger::SetSink(LogSink* aSink) noexcept
{
    SinkState& lState = GetSinkState();
    const LockScope lLock(lState.mMutex);
    lState.mSink = aSink != nullptr ? aSink : &lState.mDefault;
}

void Logger::SetPriority(PriorityLevel aPriority) noexcept
{
    gPriority.store(aPriority, std::memory_order_relaxed);
}

PriorityLevel Logger::GetPriority() noexcept
{
    return static_cast<PriorityLevel>(gPriority.load(std::memory_order_relaxed));
}

} // namespace JxUtilsLib
