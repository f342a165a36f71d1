#pragma once

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <map>
#include <string>
#include <vector>

namespace KyBench
{

using Clock = std::chrono::steady_clock;

/// What is measured is measured this often; the median counts.
constexpr int cRepeats = 5;
/// When there is no time for more, to see that everything works.
constexpr int cQuickRepeats = 2;

inline double GetSeconds(Clock::time_point aSince)
{
    return std::chrono::duration<double>(Clock::now() - aSince).count();
}

/// The value that aShare of all values are below.
inline double GetQuantile(std::vector<double> aValues, double aShare)
{
    std::sort(aValues.begin(), aValues.end());
    const auto lIndex = static_cast<size_t>(aShare * static_cast<double>(aValues.size()));
    return aValues.empty() ? 0 : aValues[std::min(lIndex, aValues.size() - 1)];
}

/// Named figures, each measured several times.
class Figures
{
public:
    void Add(const std::string& aName, double aValue) { mValues[aName].push_back(aValue); }

    /// One line each, with the median.
    void Print() const
    {
        for (const auto& [lName, lValues] : mValues)
        {
            std::printf("figure %s %.4g\n", lName.c_str(), GetQuantile(lValues, 0.5));
        }
        std::fflush(stdout);
    }

private:
    std::map<std::string, std::vector<double>> mValues;
};

/// Ends the program unless aGood: the figures of half a run are worth nothing.
inline void Require(bool aGood, const char* aWhat)
{
    if (!aGood)
    {
        std::fprintf(stderr, "%s failed\n", aWhat);
        std::abort();
    }
}

/// Runs aDo many times and notes the median, in microseconds.
inline void Measure(Figures& aFigures, const std::string& aName, int aRounds,
                    const std::function<void()>& aDo)
{
    std::vector<double> lTimes;
    for (int lRound = 0; lRound < aRounds; ++lRound)
    {
        const auto lBegin = Clock::now();
        aDo();
        lTimes.push_back(GetSeconds(lBegin) * 1e6);
    }
    aFigures.Add(aName, GetQuantile(lTimes, 0.5));
}

} // namespace KyBench
