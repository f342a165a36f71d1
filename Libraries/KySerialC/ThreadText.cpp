#include "ThreadText.h"

#include <algorithm>
#include <cstring>

namespace KySerialCLib
{

namespace
{

constexpr size_t cTextSize = 512;

// Plain data: a thread's end has nothing to destroy, whichever library goes first.
thread_local char sText[cTextSize] = "";
thread_local AdapterCall* sCall = nullptr;

} // namespace

const char* GetThreadText() noexcept
{
    return sText;
}

void SetThreadText(const char* aText) noexcept
{
    const size_t lLength = aText != nullptr ? std::min(std::strlen(aText), cTextSize - 1) : 0;
    if (lLength > 0)
    {
        std::memmove(sText, aText, lLength); // may be the text itself
    }
    sText[lLength] = '\0';
}

AdapterCall::AdapterCall(KyString* aText, KyStringList* aList) noexcept
    : mText(aText), mList(aList), mOuter(sCall)
{
    sCall = this;
    SetThreadText(nullptr);
}

AdapterCall::~AdapterCall()
{
    sCall = mOuter;
}

bool AdapterCall::TakeText(const char* aText) noexcept
{
    if (sCall == nullptr || (sCall->mText == nullptr && sCall->mList == nullptr))
    {
        return false;
    }
    if (sCall->mText != nullptr)
    {
        *sCall->mText = KyString(aText);
    }
    else
    {
        sCall->mList->Add(KyString(aText));
    }
    return true;
}

} // namespace KySerialCLib
