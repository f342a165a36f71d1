#include "DeviceBus.h"

#include "LogResult.h"
#include "OutOfMemory.h"
#include "RetiredEngines.h"

#include <utility>

namespace KySerialLib
{

DeviceBus::DeviceBus(const char* aSourceFile, const char* aNotOpen)
    : mLogger(std::make_unique<JxUtilsLib::Logger>(cLogCategory, 0))
    , mSourceFile(aSourceFile)
    , mNotOpen(aNotOpen)
{
}

DeviceBus::~DeviceBus()
{
    if (mBulk != nullptr && mBulk->IsOpened())
    {
        static_cast<void>(CatchOutOfMemory(
            [this] { return mBulk->Close(); })); // ignored: a destructor has no caller to report to
    }
    // The engine of a disconnected device stays open and a sink of the adapter: it must not be deleted.
    RetireEngine(std::move(mBulk));
}

KyResult DeviceBus::CheckEngine(const char* aFunction, int aLine) const
{
    return mBulk != nullptr ? KyResult(KyResult::OK)
                            : ToKyResult(mLogger->LogResult(KyResult::NOT_OPEN, mSourceFile, aLine, aFunction,
                                                            mNotOpen, aFunction));
}

KyResult DeviceBus::CloseEngine(const char* aFunction, int aLine)
{
    KyResult lResult = CheckEngine(aFunction, aLine);
    return lResult.IsOK() ? mBulk->Close() : lResult;
}

bool DeviceBus::IsEngineOpen(const char* aFunction, int aLine) const
{
    return CheckEngine(aFunction, aLine).IsOK() && mBulk->IsOpened();
}

} // namespace KySerialLib
