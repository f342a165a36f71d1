#pragma once

#include "HandleTable.h"
#include "KySerialC/Result.h"
#include "LogResult.h"
#include "OutOfMemory.h"

#include <memory>

/// \file
/// How every function of the C interface runs: nothing is thrown, handles are looked up, and the result's
/// text becomes the thread's.

namespace KySerialCLib
{

/// A failure that is found in this layer: logged, and the result to return.
KyResult Fail(KyCode aCode, const char* aFunction, const char* aText) noexcept;

/// Keeps a result's text for the thread. \return Its code.
KyCode Finish(const KyResult& aResult) noexcept;

/// Runs a function's body. \param aBody  Gives a KyResult; may throw.
template<typename Body>
KyCode Run(const Body& aBody) noexcept
{
    return Finish(KySerialLib::CatchOutOfMemory(aBody));
}

/// Runs the body of a function that works on an object. \param aBody  Gets the object.
template<typename Object, typename Body>
KyCode RunOn(const char* aFunction, HandleTable<Object>& aTable, uint64_t aHandle, const Body& aBody) noexcept
{
    return Run(
        [&]() -> KyResult
        {
            const std::shared_ptr<Object> lObject = aTable.Find(aHandle);
            return lObject != nullptr ? aBody(*lObject)
                                      : Fail(KY_INVALID_HANDLE, aFunction, "No such object.");
        });
}

/// The same with an out-parameter: it must be there, and is aInitial until the body sets it.
template<typename Object, typename Value, typename Body>
KyCode RunOn(const char* aFunction, HandleTable<Object>& aTable, uint64_t aHandle, Value* aValue,
             Value aInitial, const Body& aBody) noexcept
{
    if (aValue == nullptr)
    {
        return Finish(Fail(KY_BAD_PARAMETER, aFunction, "The result has nowhere to go: a null pointer."));
    }
    *aValue = aInitial;
    return RunOn(aFunction, aTable, aHandle, [&](Object& aObject) { return aBody(aObject, *aValue); });
}

/// Makes an object of a kind and gives its handle out.
template<typename Object>
KyCode Create(const char* aFunction, HandleTable<Object>& aTable, uint64_t* aHandle) noexcept
{
    return Run(
        [&]() -> KyResult
        {
            if (aHandle == nullptr)
            {
                return Fail(KY_BAD_PARAMETER, aFunction, "The handle has nowhere to go: a null pointer.");
            }
            *aHandle = 0;
            *aHandle = aTable.Add(std::make_shared<Object>());
            return *aHandle != 0 ? KyResult() : Fail(KY_FAILURE, aFunction, "Too many objects.");
        });
}

/// Takes an object's handle away. The object goes with the last call on it.
template<typename Object>
KyCode Destroy(const char* aFunction, HandleTable<Object>& aTable, uint64_t aHandle) noexcept
{
    return Run(
        [&]() -> KyResult
        {
            return aTable.Remove(aHandle) != nullptr ? KyResult()
                                                     : Fail(KY_INVALID_HANDLE, aFunction, "No such object.");
        });
}

/// Copies a text out, by the rule of kyserial.h.
KyResult CopyText(const char* aFunction, const KyString& aText, char* aBuffer, uint32_t* aSize) noexcept;

/// Whether the number is that of a device port; the library below has an assertion about others.
bool IsSerial(int32_t aSerial) noexcept;

} // namespace KySerialCLib
