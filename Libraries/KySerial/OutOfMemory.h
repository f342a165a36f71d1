#pragma once

#include "KyBase/KyResult.h"

namespace KySerialLib
{

/// The result of an operation that found no memory. It is not logged: a log line could need memory too.
inline KyResult OutOfMemory() noexcept
{
    return KyResult(KyResult::FAILURE, "Out of memory.");
}

/// Calls aOperation and makes std::bad_alloc its result: nothing throws across the library's border.
template<typename Operation>
KyResult CatchOutOfMemory(Operation&& aOperation) noexcept
{
    try
    {
        return aOperation();
    }
    catch (...) // nothing else is ever thrown below: the device adapter does not throw, nor does the log
    {
        return OutOfMemory();
    }
}

/// The same for a question: without memory for it the answer is no.
template<typename Question>
bool AskWithMemory(Question&& aQuestion) noexcept
{
    try
    {
        return aQuestion();
    }
    catch (...)
    {
        return false;
    }
}

} // namespace KySerialLib
