#include "kyserial/Serve/Status/News.h"

#include <JxUtilsLib/LockScope.h>

#include <utility>

namespace KySerialTool
{

void News::Add(const std::string& aText, Clock::time_point aNow)
{
    const JxUtilsLib::LockScope lScope(mLock);
    // What goes on happening is news once: each repetition renews the pause.
    if (!mHasHappened || aNow - mLast > cPause)
    {
        mText = aText;
    }
    mHasHappened = true;
    mLast = aNow;
}

std::string News::Take()
{
    const JxUtilsLib::LockScope lScope(mLock);
    return std::exchange(mText, {});
}

} // namespace KySerialTool
