#include "JxUtilsLib/Result.h"

#include <cstring>
#include <new>

namespace JxUtilsLib
{

namespace
{

std::unique_ptr<char[]> Copy(const char* aText) noexcept
{
    std::unique_ptr<char[]> lCopy;
    if (aText != nullptr)
    {
        const size_t lSize = std::strlen(aText) + 1;
        lCopy.reset(new (std::nothrow) char[lSize]);
        if (lCopy != nullptr)
        {
            std::memcpy(lCopy.get(), aText, lSize);
        }
    }
    return lCopy;
}

} // namespace

Result::Result(uint32_t aCode, const char* aDescription) noexcept
    : mCode(aCode), mDescription(Copy(aDescription))
{
}

Result::~Result() = default;
Result::Result(Result&& aOther) noexcept = default;
Result& Result::operator=(Result&& aOther) noexcept = default;

Result::Result(const Result& aOther) noexcept : Result(aOther.mCode, aOther.mDescription.get()) {}

Result& Result::operator=(const Result& aOther) noexcept
{
    if (this != &aOther)
    {
        *this = Result(aOther);
    }
    return *this;
}

} // namespace JxUtilsLib
