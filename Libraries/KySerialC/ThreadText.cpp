#include "ThreadText.h"

#include <algorithm>
#include <cstring>

namespace KySerialCLib
{

namespace
{

constexpr size_t cTextSize = 512;

// Plain data: a thread's end has nothing to destroy, whichever library goes first.
thread_local char gText[cTextSize] = "";
thread_local AdapterCall* gCall = nullptr;

} // namespace

const char* GetThreadText() noexcept
{
    return gText;
}

void SetThreadText(const char* aText) noexcept
{
    const size_t lLength = aText != nullptr ? std::min(std::strlen(aText), cTextSize - 1) : 0;
    if (lLength > 0)
    {
        std::memmove(gText, aText, lLength); // may be the text itself
    }
    gText[lLength] = '\0';
}

AdapterCall::AdapterCall(KyString* aText, KyStringList* aList) noexcept
    : mText(aText), mList(aList), mOuter(gCall)
{
    gCall = this;
    // A failure without a text of its own must not show that of an earlier call.
    SetThreadText(nullptr);
}

AdapterCall::~AdapterCall()
{
    // Calls nest: an application's function may call the library, which calls the adapter again.
    gCall = mOuter;
}

bool AdapterCall::TakeText(const char* aText) noexcept
{
    if (gCall == nullptr || (gCall->mText == nullptr && gCall->mList == nullptr))
    {
        return false;
    }
    if (gCall->mText != nullptr)
    {
        *gCall->mText = KyString(aText);
    }
    else
    {
        gCall->mList->Add(KyString(aText));
    }
    return true;
}

} // namespace KySerialCLib
