#include "Platform/HangUp.h"

#include <atomic>
#include <csignal>

namespace KyToolPlatform
{

namespace
{

std::atomic<bool> gHasHungUp{false};
struct sigaction gFormerHangUp = {};

void OnHangUp(int)
{
    gHasHungUp = true;
}

} // namespace

HangUp::HangUp() noexcept
{
    struct sigaction lAction = {};
    lAction.sa_handler = &OnHangUp;
    // Calls of other threads go on: a request to reload is no reason to end them.
    lAction.sa_flags = SA_RESTART;
    ::sigaction(SIGHUP, &lAction, &gFormerHangUp); // cannot fail for this signal
}

HangUp::~HangUp()
{
    ::sigaction(SIGHUP, &gFormerHangUp, nullptr);
}

bool HangUp::Take() noexcept
{
    return gHasHungUp.exchange(false);
}

} // namespace KyToolPlatform
