#pragma once

#include <new>
#include <utility>

/// Holds an object that is never destroyed, for a static variable.
///
/// A static variable of another type is destroyed while the program ends, and static objects made before it
/// still use it then: a port that closes itself, or the text of a result that was kept. The object lies
/// inside the variable, so what it refers to stays reachable for leak checkers.
template<typename Object>
class KyPermanent
{
public:
    /// Makes the object from aArguments; throws what its constructor throws.
    template<typename... Arguments>
    explicit KyPermanent(Arguments&&... aArguments)
    {
        new (mStorage) Object(std::forward<Arguments>(aArguments)...);
    }
    KyPermanent(const KyPermanent&) = delete;
    KyPermanent& operator=(const KyPermanent&) = delete;

    /// The object. Any thread, until the process is gone.
    Object& Get() noexcept { return *std::launder(reinterpret_cast<Object*>(mStorage)); }

private:
    alignas(Object) unsigned char mStorage[sizeof(Object)];
};
