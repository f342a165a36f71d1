#include "KyPlatform/Linux/Obstacle.h"

namespace KyPlatform
{

namespace
{

thread_local Obstacle tFirst;

} // namespace

void Obstacle::Note(const char* aWhat, int aError) noexcept
{
    if (tFirst.mWhat == nullptr)
    {
        tFirst = {aWhat, aError};
    }
}

void Obstacle::Forget() noexcept
{
    tFirst = Obstacle();
}

const Obstacle& Obstacle::Get() noexcept
{
    return tFirst;
}

} // namespace KyPlatform
