#pragma once

#include "KyBase/KyResult.h"

#include <gmock/gmock.h>

#include <ostream>

/// Shows a result in a failed expectation.
inline void PrintTo(const KyResult& aResult, std::ostream* aStream)
{
    *aStream << aResult.GetCodeString().GetAscii() << " (" << aResult.GetCode() << ") \""
             << aResult.GetDescription().GetAscii() << '"';
}

namespace KyTest
{

/// A result with exactly this code and this description.
MATCHER_P2(IsResult, aCode, aDescription, "")
{
    static_cast<void>(result_listener);
    return arg.GetCode() == static_cast<uint32_t>(aCode) && arg.GetDescription() == KyString(aDescription);
}

/// Code 0 without a description.
MATCHER(IsOK, "")
{
    static_cast<void>(result_listener);
    return arg.IsOK() && arg.GetCode() == 0 && arg.GetDescription().GetLength() == 0;
}

} // namespace KyTest
