#pragma once

#include <cstdint>
#include <cstring>

namespace KyTest
{

/// The number of a virtual function in its class's table.
///
/// With GCC and Clang, on Windows too, a pointer to a member function is two words. For a virtual function
/// the first word is the byte offset of its entry in the table; the mark "virtual" is 1 added to that word
/// (x86) or bit 0 of the second word (ARM). A virtual destructor takes two entries there.
/// \return -1 for a function that is not virtual.
template<typename Function>
int GetVirtualSlot(Function aFunction)
{
    static_assert(sizeof(Function) == 2 * sizeof(intptr_t),
                  "not a pointer to a member function as described");
    intptr_t lWords[2];
    std::memcpy(lWords, &aFunction, sizeof lWords);
    if ((lWords[0] & 1) != 0)
    {
        return static_cast<int>((lWords[0] - 1) / static_cast<intptr_t>(sizeof(void*)));
    }
    return (lWords[1] & 1) != 0 ? static_cast<int>(lWords[0] / static_cast<intptr_t>(sizeof(void*))) : -1;
}

} // namespace KyTest
