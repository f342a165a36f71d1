#pragma once

#include "JxUtilsLib/Assert.h"
#include "OutOfMemory.h"

#include <utility>

/// \file
/// What the public classes share: each owns one object of the library, mThis, and hands its calls on to it.

namespace KySerialLib
{

/// Makes a shell's object. \return Null without memory, which each later operation reports.
template<typename Object>
Object* MakeObject() noexcept
{
    try
    {
        return new Object;
    }
    catch (...)
    {
        return nullptr;
    }
}

/// Calls an operation of a shell's object. Nothing is thrown.
/// \param aThis  The shell's mThis. Null is a broken expectation and FAILURE.
template<typename Object, typename Class, typename... Parameters, typename... Arguments>
KyResult Forward(Object* aThis, KyResult (Class::*aOperation)(Parameters...),
                 Arguments&&... aArguments) noexcept
{
    JX_EXPECT_WITH_TEXT(aThis != nullptr, "mThis != NULL");
    return aThis != nullptr
               ? CatchOutOfMemory([&]
                                  { return (aThis->*aOperation)(std::forward<Arguments>(aArguments)...); })
               : OutOfMemory();
}

/// Whether a shell's object is open. Null is a broken expectation and false.
template<typename Object>
bool IsOpen(Object* aThis) noexcept
{
    JX_EXPECT_WITH_TEXT(aThis != nullptr, "mThis != NULL");
    return aThis != nullptr && aThis->IsOpened();
}

} // namespace KySerialLib
