#pragma once

#include "JxUtilsLib/Export.h"

#include <cstdint>
#include <memory>

namespace JxUtilsLib
{

/// What Logger::LogResult() gives back: the code that it was called with and the text that it formatted.
class Result
{
public:
    /// \param aCode         Any code; 0 is success.
    /// \param aDescription  Text ended by NUL, copied; null for a result without one.
    JXUTILSLIB_API explicit Result(uint32_t aCode, const char* aDescription = nullptr) noexcept;
    JXUTILSLIB_API ~Result();
    JXUTILSLIB_API Result(const Result& aOther) noexcept;
    JXUTILSLIB_API Result& operator=(const Result& aOther) noexcept;
    JXUTILSLIB_API Result(Result&& aOther) noexcept;
    JXUTILSLIB_API Result& operator=(Result&& aOther) noexcept;

    bool IsOK() const noexcept { return mCode == 0; }
    uint32_t GetCode() const noexcept { return mCode; }

    /// The text, owned by the result; null when there is none or there was no memory for it.
    const char* GetDescription() const noexcept { return mDescription.get(); }

private:
    uint32_t mCode;
    std::unique_ptr<char[]> mDescription;
};

} // namespace JxUtilsLib
