#pragma once

#include <gtest/gtest.h>

namespace KyTest
{

/// Runs something again and again, each time with another call of it refused, until a run makes fewer calls.
/// \param aRun    void(int aNth, int& aCount): runs it with the aNth call refused, counted from 1. aCount receives the
///                number of calls that it made.
/// \param aFirst  The first call that is refused.
/// \param aStep   Every so many calls are refused: several tests may share the work.
/// \return How many calls were refused.
template<typename Run>
int ForEachNth(Run&& aRun, int aFirst = 1, int aStep = 1)
{
    int lRefused = 0;
    for (int lNth = aFirst;; lNth += aStep)
    {
        SCOPED_TRACE(testing::Message() << "refused call " << lNth);
        int lCount = 0;
        aRun(lNth, lCount);
        if (lCount < lNth)
        {
            return lRefused;
        }
        ++lRefused;
    }
}

} // namespace KyTest
