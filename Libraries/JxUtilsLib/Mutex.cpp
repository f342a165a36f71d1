#include "JxUtilsLib/Mutex.h"

namespace JxUtilsLib
{

// Out of line on purpose: on Windows every module contains a thread runtime of its own, and the same runtime has
// to take a lock and give it back.
Mutex::Mutex() noexcept = default;
Mutex::~Mutex() = default;

void Mutex::Wait() noexcept
{
    mMutex.lock();
}

void Mutex::Release() noexcept
{
    mMutex.unlock();
}

} // namespace JxUtilsLib
