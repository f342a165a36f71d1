#include "KyPlatform/Linux/Obstacle.h"

#include <cerrno>

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

void Obstacle::NoteShortage(const char* aWhat, int aError) noexcept
{
    if (Obstacle{aWhat, aError}.IsShortage())
    {
        Note(aWhat, aError);
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

bool Obstacle::IsShortage() const noexcept
{
    return mError == EMFILE || mError == ENFILE || mError == ENOMEM || mError == ENOLCK;
}

} // namespace KyPlatform
