#pragma once

#include "Benchmarks/Figures.h"

#include <thread>

namespace KyBench
{

/// Two threads of this process that wake each other in turn.
/// \tparam tWait  Set() wakes the thread in Wait(), or the next one that calls it.
/// \return Microseconds until another thread has been woken and has woken this one.
template<typename tWait>
double MeasureRoundTrip(int aTurns)
{
    tWait lDown;
    tWait lUp;
    std::thread lPeer(
        [&]
        {
            for (int lTurn = 0; lTurn < aTurns; ++lTurn)
            {
                lDown.Wait();
                lUp.Set();
            }
        });
    const auto lStart = KyBench::Clock::now();
    for (int lTurn = 0; lTurn < aTurns; ++lTurn)
    {
        lDown.Set();
        lUp.Wait();
    }
    const double lTime = KyBench::GetSeconds(lStart);
    lPeer.join();
    return lTime / aTurns * 1e6;
}

} // namespace KyBench
