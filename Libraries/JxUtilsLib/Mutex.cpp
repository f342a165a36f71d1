#include "JxUtilsLib/Mutex.h"

namespace JxUtilsLib
{

// Out of line on purpose: on Windows every module has a thread runtime of its own inside, and a lock has to
// be taken and given back by the same one.
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
