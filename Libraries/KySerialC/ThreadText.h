#pragma once

#include "KyBase/KyString.h"
#include "KyBase/KyStringList.h"

/// \file
/// What belongs to the calling thread: the text of its last result, and where an adapter's texts go.

namespace KySerialCLib
{

/// The text of the thread's last result. Never null.
const char* GetThreadText() noexcept;

/// Sets it. \param aText  Cut after 511 bytes; null is empty.
void SetThreadText(const char* aText) noexcept;

/// For the time of one call into an adapter: the thread's text is empty, and KyReturnText() goes to aText or
/// aList; to neither when both are null.
class AdapterCall
{
public:
    explicit AdapterCall(KyString* aText = nullptr, KyStringList* aList = nullptr) noexcept;
    ~AdapterCall();
    AdapterCall(const AdapterCall&) = delete;
    AdapterCall& operator=(const AdapterCall&) = delete;

    /// Takes a text from the adapter. \return False when no call that gives texts runs on this thread.
    static bool TakeText(const char* aText) noexcept;

private:
    KyString* const mText;
    KyStringList* const mList;
    AdapterCall* const mOuter;
};

} // namespace KySerialCLib
