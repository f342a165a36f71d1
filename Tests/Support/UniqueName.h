#pragma once

#include <atomic>
#include <random>
#include <string>

/// A name that no other test, process or run uses: objects of that name are machine wide.
inline std::string UniqueName(const std::string& aStem)
{
    static const uint32_t cProcess = std::random_device()();
    static std::atomic<int> sCount{0};
    return aStem + std::to_string(cProcess) + "x" + std::to_string(++sCount);
}
