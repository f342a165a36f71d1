#include "KyPlatform/Linux/Obstacle.h"

namespace KyPlatform
{

namespace
{

thread_local Obstacle gFirst;

} // namespace

void Obstacle::Note(const char* aWhat, int aError) noexcept
{
    // The first failure is the reason. Later ones mostly follow from it.
    if (gFirst.mWhat == nullptr)
    {
        gFirst = {aWhat, aError};
    }
}

void Obstacle::Forget() noexcept
{
    gFirst = Obstacle();
}

const Obstacle& Obstacle::Get() noexcept
{
    return gFirst;
}

} // namespace KyPlatform
