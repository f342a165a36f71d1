#pragma once

#include "KyPlatform/Linux/SystemCalls.h"

#include <cerrno>
#include <functional>
#include <utility>

namespace KyTest
{

/// Puts a function of the test in the place of a call into the system, until it is destroyed. One at a time
/// for each call; for one thread in this layer at a time.
template<auto tEntry>
class ScriptedCall;

template<typename tResult, typename... tArguments, tResult (*KyPlatform::SystemCalls::*tEntry)(tArguments...)>
class ScriptedCall<tEntry>
{
public:
    using Function = std::function<tResult(tArguments...)>;

    explicit ScriptedCall(Function aFunction) : mBefore(KyPlatform::gSystem.*tEntry)
    {
        sFunction = std::move(aFunction);
        KyPlatform::gSystem.*tEntry = [](tArguments... aArguments) { return sFunction(aArguments...); };
    }

    /// Refuses every call.
    explicit ScriptedCall(int aError) : ScriptedCall(Refuse(aError)) {}

    ~ScriptedCall() { KyPlatform::gSystem.*tEntry = mBefore; }
    ScriptedCall(const ScriptedCall&) = delete;
    ScriptedCall& operator=(const ScriptedCall&) = delete;

private:
    static Function Refuse(int aError)
    {
        return [aError](tArguments...)
        {
            errno = aError;
            return static_cast<tResult>(-1);
        };
    }

    static inline Function sFunction;
    tResult (*const mBefore)(tArguments...);
};

} // namespace KyTest
