#include "kyserial/Bridge/StartReason.h"

#include <JxUtilsLib/LockScope.h>

#include <string_view>

namespace KySerialTool
{

using JxUtilsLib::Logger;

StartReason::StartReason() : mWanted(Logger::GetPriority())
{
    // A log that shows errors has the reason in it already. Only a quieter one is listened to for the time of
    // the start.
    if (mWanted > JxUtilsLib::PriorityError)
    {
        Logger::SetPriority(JxUtilsLib::PriorityError);
        Logger::SetSink(this);
    }
}

StartReason::~StartReason()
{
    if (mWanted > JxUtilsLib::PriorityError)
    {
        Logger::SetSink(nullptr);
        Logger::SetPriority(mWanted);
    }
}

void StartReason::Write(const JxUtilsLib::LogRecord& aRecord)
{
    constexpr std::string_view cStart = "The registry of servers cannot be used: ";
    const std::string_view lMessage = aRecord.mMessage;
    // The library's result does not say why; this message does. Other messages belong to the log alone.
    if (lMessage.substr(0, cStart.size()) == cStart)
    {
        const JxUtilsLib::LockScope lScope(mLock);
        mText = lMessage;
    }
}

std::string StartReason::Text()
{
    const JxUtilsLib::LockScope lScope(mLock);
    return mText.empty() ? std::string() : " (" + mText + ')';
}

} // namespace KySerialTool
