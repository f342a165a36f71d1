#pragma once

#include <string>

namespace KyGigE
{

/// Calls aMake, and returns a short text in place of the one that there is no memory for: nothing throws across the
/// library's border. \param aOtherwise  Short enough to need no memory itself.
template<typename Make>
std::string TextWithMemory(const char* aOtherwise, Make&& aMake) noexcept
{
    try
    {
        return aMake();
    }
    catch (...)
    {
        return aOtherwise;
    }
}

constexpr const char* cOutOfMemory = "out of memory";

} // namespace KyGigE
